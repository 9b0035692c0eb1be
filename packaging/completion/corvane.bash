# Completion of corvane's words for bash: commands, options, devices, sources and outputs.

# The values of a field in a list's JSON, a line each. sed alone: nothing else need be installed.
_corvane_values() {
    corvane list "$1" --json 2>/dev/null | sed -n "s/^ *\"$2\": \"\(.*\)\",\{0,1\}\$/\1/p"
}

_corvane_offer() {
    local IFS=$'\n'
    COMPREPLY=($(compgen -W "$1" -- "$2"))
    local i
    for i in "${!COMPREPLY[@]}"; do COMPREPLY[i]=$(printf %q "${COMPREPLY[i]}"); done
}

_corvane_sources() {
    printf '%s\n' system input:default
    _corvane_values apps name | sed 's/^/app:/'
    _corvane_values inputs uid | sed 's/^/input:/'
}

_corvane() {
    local word previous words cword
    _get_comp_words_by_ref -n : word previous words cword 2>/dev/null ||
        { word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=("${COMP_WORDS[@]}") cword=$COMP_CWORD; }
    local command=${words[1]}
    local commands="list record add show set rename remove enable disable route doctor watch"
    case $previous in
        --source) _corvane_offer "$(_corvane_sources)" "$word" ;;
        --from) _corvane_offer "$(printf '%s\n' default all; _corvane_values outputs uid)" "$word" ;;
        -f | --format) _corvane_offer $'f32\ns24\ns16' "$word" ;;
        -c | --channels | -r | --rate | -d | --duration) COMPREPLY=() ;;
        *)
            if ((cword == 1)); then
                _corvane_offer "$(tr ' ' '\n' <<<"$commands")" "$word"
            elif [[ $word == -* ]]; then
                _corvane_offer "$(corvane "$command" --help 2>/dev/null | grep -o -e '--[a-z]*' | sort -u)" "$word"
            else
                case $command in
                    list) _corvane_offer $'apps\noutputs\ninputs\ndevices' "$word" ;;
                    show | set | rename | remove | enable | disable)
                        _corvane_offer "$(_corvane_values devices name)" "$word" ;;
                    route)
                        if ((cword == 2)); then
                            _corvane_offer "$(_corvane_values apps name | sed 's/^/app:/')" "$word"
                        else
                            _corvane_offer "$(printf '%s\n' default; _corvane_values outputs uid)" "$word"
                        fi ;;
                    record) compopt -o default ;;
                esac
            fi ;;
    esac
    # A colon ends a word for bash: what stands before it must not come again.
    if [[ $word == *:* && $COMP_WORDBREAKS == *:* ]]; then
        local prefix=${word%"${word##*:}"} i
        for i in "${!COMPREPLY[@]}"; do COMPREPLY[i]=${COMPREPLY[i]#"$prefix"}; done
    fi
}
complete -F _corvane corvane
