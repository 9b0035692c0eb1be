# Completes names that a shell would run, with the command and the script of this tree, and evaluates what comes out.
# usage: completion_test.bash COMMAND COMPLETION_SCRIPT
set -u
folder=$(mktemp -d) && trap 'rm -rf "$folder"' EXIT && cd "$folder" || exit 1
export XDG_CONFIG_HOME=$folder/config HOME=$folder
command=$1 failures=0
source "$2" || exit 1

# What TAB makes of the line $1, whose part from the last break on readline replaces by a candidate.
complete_line() {
    COMP_LINE=$1 COMP_POINT=${#1}
    _corvane "$command"
}

names=('$(touch pwned)x' '`touch pwned`' "it's; touch pwned;" 'say "hi"$(touch pwned)' 'back\slash\' 'a!b' '~' '*' 'c:d=e f')
for name in "${names[@]}"; do
    "$command" add "$name" --source id:none -r 48000 >add.log 2>&1 || { cat add.log; failures=1; }
    for quote in '' '"' "'"; do
        complete_line "corvane show $quote"
        found=
        for reply in "${COMPREPLY[@]}"; do
            eval "value=$quote$reply$quote"
            if [[ $value == "$name" ]]; then found=1; fi
        done
        if [[ ! $found ]]; then echo "'$name' is not offered behind <$quote>: ${COMPREPLY[*]}"; failures=1; fi
    done
done
if [[ -e pwned ]]; then echo "completion ran a command"; failures=1; fi

complete_line 'corvane show c:d=' # what stands before a break must not come again
if [[ ${COMPREPLY[*]} != 'e\ f' ]]; then echo "behind a colon: ${COMPREPLY[*]}"; failures=1; fi
complete_line 'corvane record --source "sys'
if [[ ${COMPREPLY[*]} != system ]]; then echo "sources: ${COMPREPLY[*]}"; failures=1; fi
exit $failures
