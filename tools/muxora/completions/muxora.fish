# Completion of muxora for fish. What there is to complete comes from the tool's own help, so it is never out of step.

function __muxora_subcommands
    muxora --help 2>/dev/null | awk '/^Subcommands:/ { on = 1; next } on && NF == 0 { exit } on && /^  [a-z]/ { name = $1; $1 = ""; print name "\t" substr($0, 2) }'
end

function __muxora_options
    set -l words (commandline -opc)
    muxora $words[2] --help 2>/dev/null | string match -rg '^ +(?:-[a-zA-Z],)?(--[a-z][a-z0-9-]*)'
end

function __muxora_formats
    muxora formats 2>/dev/null | awk 'NR > 1 && NF == 0 { exit } NR > 1 { print $2 }'
end

function __muxora_has_subcommand
    test (count (commandline -opc)) -ge 2
end

complete -c muxora -n 'not __muxora_has_subcommand' -f -a '(__muxora_subcommands)'
complete -c muxora -n 'not __muxora_has_subcommand' -l help -s h -d 'Print help and exit'
complete -c muxora -n 'not __muxora_has_subcommand' -l version -d 'Print the version and exit'
complete -c muxora -n '__muxora_has_subcommand; and string match -q -- "-*" (commandline -ct)' -a '(__muxora_options)'
complete -c muxora -n '__muxora_has_subcommand' -l format -s f -x -a '(__muxora_formats)' -d 'Format key'
