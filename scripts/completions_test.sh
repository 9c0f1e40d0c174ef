#!/usr/bin/env bash
# The shells complete what the tool's help says: completions_test.sh TOOL FOLDER_OF_COMPLETIONS. A shell that is not on
# the machine is left out, and named.
set -eu
tool=$1
folder=$(cd "$2" && pwd)
PATH=$(cd "$(dirname "$tool")" && pwd):$PATH
export PATH

# expect SHELL LINE WANTED...: each word is among the completions, which come one a line on the standard input.
expect() {
    local shell=$1 line=$2 got wanted
    shift 2
    got=$(cat)
    for wanted; do
        grep -qx -- "$wanted" <<<"$got" || {
            echo "$shell: '$line' does not complete to $wanted, but to: $got"
            exit 1
        }
    done
    echo "$shell: $line<tab>: $(tr '\n' ' ' <<<"$got" | cut -c1-100)"
}

in_bash() {
    bash --norc -c '
        source "$1"
        read -ra COMP_WORDS <<<"$2"
        [[ $2 != *" " ]] || COMP_WORDS+=("")
        COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
        _muxora
        printf "%s\n" "${COMPREPLY[@]}"' bash "$folder/muxora.bash" "$1"
}
in_bash "muxora " | expect bash "muxora " pack repair --version
in_bash "muxora pa" | expect bash "muxora pa" pack
in_bash "muxora pack --ba" | expect bash "muxora pack --ba" --backup
in_bash "muxora pack -f mp" | expect bash "muxora pack -f mp" mp4 mp4noseek
[ "$(in_bash "muxora pa")" = pack ]

if command -v fish >/dev/null; then
    in_fish() { fish --no-config -c "source $folder/muxora.fish; complete -C '$1'" | cut -f1; }
    in_fish "muxora " | expect fish "muxora " pack repair
    in_fish "muxora pack --ba" | expect fish "muxora pack --ba" --backup
    in_fish "muxora pack -f mp" | expect fish "muxora pack -f mp" mp4 mp4noseek
else
    echo "fish is not here"
fi

if command -v zsh >/dev/null; then
    # The completion system works on a terminal only, so zsh gets one of its own, and is read until the words are there.
    in_zsh() {
        timeout 60 zsh -f -c '
            zmodload zsh/zpty
            zpty shell zsh -f -i
            zpty -w shell "PS1= PATH=$PATH; fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D; LISTMAX=10000; print -r -- ready-\$((1 + 1))"
            zpty -r -m shell line "*ready-2*"
            zpty -w -n shell "$2"$'"'\\t\\t'"'
            for wanted in "${@:3}"; do
                [[ $line == *$wanted* ]] && continue
                zpty -r -m shell more "*$wanted*"
                line+=$more
            done
            zpty -d shell' zsh "$folder" "$@" || {
            echo "zsh: '$1' does not complete to ${*:2}"
            exit 1
        }
        echo "zsh: $1<tab>: ${*:2}"
    }
    in_zsh "muxora " formats pack repair
    in_zsh "muxora pack --b" "pack --backup"
    in_zsh "muxora pack -f mp4" mp464 mp4noseek
else
    echo "zsh is not here"
fi
