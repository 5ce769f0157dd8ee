# Completion of the bench's commands for bash, to be read by it:
#
#   . bench/completion.bash
#
# What can be typed is asked of the program itself, wherever it was built. Where nothing is
# known of a word the shell completes the name of a file.

# The options in the help text $1, in their long form.
_bench_options() {
    grep -oE '^ +(-[a-zA-Z], )?--[a-z-]+' <<<"$1" | grep -oE '[-][-][a-z-]+'
}

# Whether the option $2 of the help text $1 takes a value.
_bench_takes_value() {
    grep -qE -- "^ +(-[a-zA-Z], )?$2 (<|[A-Z])" <<<"$1"
}

# The first words of the indented lines below the heading $2 of the help text $1.
_bench_names() {
    awk -v heading="$2" '
        index($0, heading) == 1 { inside = 1; next }
        inside && /^$/ { exit }
        inside && /^  [a-z]/ { print $1 }' <<<"$1"
}

# What can follow $3 where $2 was begun on a line of the command $1; $4 is its help text.
_bench_words() {
    if [ "$3" = --fault ]; then
        _bench_names "$4" Faults:
    elif [ "$3" = replay ] || { [ "${3:0:2}" = -- ] && _bench_takes_value "$4" "$3"; }; then
        return
    elif [ "${2:0:1}" = - ]; then
        _bench_options "$4"
    elif [ "$1" = records ] && [ "$COMP_CWORD" -eq 2 ]; then
        _bench_names "$4" Actions:
    elif [ "$1" = station ] && [ "$COMP_CWORD" -gt 2 ]; then
        _bench_names "$4" Requests
        _bench_names "$4" "Other commands:"
    fi
}

_bench() {
    local program=${1/#\~/$HOME} command=${COMP_WORDS[1]} words
    if [ "$COMP_CWORD" -eq 1 ]; then
        words="$(_bench_names "$("$program" --help 2>/dev/null)" Commands:) --help --version"
    elif [ "$command" = help ]; then
        words=$(_bench_names "$("$program" --help 2>/dev/null)" Commands:)
    else
        words=$(_bench_words "$command" "$2" "$3" "$("$program" help "$command" 2>/dev/null)")
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$2")
}

complete -o default -F _bench bench
