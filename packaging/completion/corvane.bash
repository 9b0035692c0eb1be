# Completion of corvane's words for bash. Names come from other programs: nothing here evaluates one.

# Reads the command line up to the cursor as bash does, without expanding anything. Sets
#   words  the whole words before the cursor's
#   word   the cursor's word, without its quotes
#   quote  the quote that is open at the cursor, or nothing
#   kept   characters of `word` that readline leaves alone: it replaces what follows a break character or an open quote
_corvane_split() {
    local line=${COMP_LINE:0:COMP_POINT} c started= i
    words=() word= quote= kept=0
    for ((i = 0; i < ${#line}; i++)); do
        c=${line:i:1}
        case $quote$c in
            "''" | '""') quote= ;;
            "'"?) word+=$c ;;
            '"\')
                if [[ ${line:i+1:1} == [\\\"\$\`] ]]; then ((i++)); fi
                word+=${line:i:1}
                ;;
            '"'?) word+=$c ;;
            "'" | '"') quote=$c started=1 opened=${#word} ;;
            '\') ((i++)); word+=${line:i:1} started=1 ;;
            ' ' | $'\t' | $'\n')
                if [[ $started ]]; then words+=("$word"); fi
                word= started= kept=0
                ;;
            *)
                word+=$c started=1
                if [[ $COMP_WORDBREAKS == *"$c"* ]]; then kept=${#word}; fi
                ;;
        esac
    done
    if [[ $quote ]]; then kept=$opened; fi
}

# $1 as it is written behind an open quote $2.
_corvane_quoted() {
    local text=$1 c i out=
    case $2 in
        "'") out=${text//\'/"'\\''"} ;;
        '"')
            for ((i = 0; i < ${#text}; i++)); do
                c=${text:i:1}
                case $c in
                    '!') out+='"\!"' ;; # between double quotes, history would be put in its place
                    [\\\"\$\`]) out+=\\$c ;;
                    *) out+=$c ;;
                esac
            done
            ;;
        *) if [[ $text ]]; then printf -v out %q "$text"; fi ;;
    esac
    REPLY=$out
}

_corvane() {
    local IFS=$' \t\n' words word quote kept opened=0 candidate description REPLY
    COMPREPLY=()
    _corvane_split
    while IFS= read -r candidate; do
        candidate=${candidate%%$'\t'*}
        if [[ ! $candidate ]]; then
            compopt -o default 2>/dev/null
        elif [[ ${candidate,,} == "${word,,}"* && $candidate == "${word:0:kept}"* ]]; then
            _corvane_quoted "${candidate:kept}" "$quote"
            COMPREPLY+=("$REPLY")
        fi
    done < <("$1" complete "${words[@]:1}" "$word" 2>/dev/null)
}
complete -F _corvane corvane
