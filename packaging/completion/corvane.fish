# Completion of corvane's words for fish. Names come from other programs: nothing here evaluates one.

function __corvane_candidates
    set -l words (commandline -opc)
    set -l word (commandline -ct)
    for line in (command $words[1] complete $words[2..] "$word" 2>/dev/null)
        if string match -q -- \t\* "$line"
            __fish_complete_path "$word"
        else
            printf '%s\n' "$line"
        end
    end
end

complete -c corvane -f -a '(__corvane_candidates)'
