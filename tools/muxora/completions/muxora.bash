# Completion of muxora for bash. What there is to complete comes from the tool's own help, so it is never out of step.

# The names of the subcommands, or the options of one.
_muxora_subcommands() {
    "$1" --help 2>/dev/null | awk '/^Subcommands:/ { on = 1; next } on && NF == 0 { exit } on && /^  [a-z]/ { print $1 }'
}
_muxora_options() {
    "$1" "$2" --help 2>/dev/null | grep -oE '^ +(-[a-zA-Z],)?--[a-z][a-z0-9-]*' | grep -oE -- '--[a-z][a-z0-9-]*'
}
_muxora_formats() {
    "$1" formats 2>/dev/null | awk 'NR > 1 && NF == 0 { exit } NR > 1 { print $2 }'
}

_muxora() {
    local tool=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local IFS=$'\n'
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "$(_muxora_subcommands "$tool")"$'\n--help\n--version' -- "$word"))
        return
    fi
    case $before in
    -f | --format) COMPREPLY=($(compgen -W "$(_muxora_formats "$tool")" -- "$word")) ;;
    *)
        if [[ $word == -* ]]; then
            COMPREPLY=($(compgen -W "$(_muxora_options "$tool" "${COMP_WORDS[1]}")" -- "$word"))
        else
            compopt -o filenames 2>/dev/null
            COMPREPLY=($(compgen -f -- "$word"))
        fi
        ;;
    esac
}

complete -F _muxora muxora
