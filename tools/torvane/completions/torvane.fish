# fish completion for torvane(1)

function __torvane_columns
    torvane list --list-columns --noheadings --raw 2>/dev/null | string split -f1 ' '
end

function __torvane_devices
    torvane list --noheadings --raw --nodeps --output NAME 2>/dev/null
end

set -l tables list raid usb
set -l json $tables show mount tray watch
set -l timed list show raid usb mount umount tray wait firmware

complete -c torvane -f
complete -c torvane -n __fish_use_subcommand -s V -l version -d 'Print the version'
complete -c torvane -s h -l help -d 'Print help'
complete -c torvane -n __fish_use_subcommand -a list -d 'List the drives'
complete -c torvane -n __fish_use_subcommand -a show -d 'Show one drive'
complete -c torvane -n __fish_use_subcommand -a raid -d 'Show RAID controllers'
complete -c torvane -n __fish_use_subcommand -a usb -d 'Show or change USB storage'
complete -c torvane -n __fish_use_subcommand -a mount -d 'Mount a USB stick read-only'
complete -c torvane -n __fish_use_subcommand -a umount -d 'Unmount it again'
complete -c torvane -n __fish_use_subcommand -a tray -d 'Tell the state of an optical drive'
complete -c torvane -n __fish_use_subcommand -a wait -d 'Wait for files'
complete -c torvane -n __fish_use_subcommand -a watch -d 'Watch a directory'
complete -c torvane -n __fish_use_subcommand -a firmware -d 'Write a firmware image'

complete -c torvane -n "__fish_seen_subcommand_from $json" -s J -l json -d 'Print JSON'
complete -c torvane -n "__fish_seen_subcommand_from $tables" -s r -l raw -d 'Print lines that are easy to split'
complete -c torvane -n "__fish_seen_subcommand_from $tables" -s P -l pairs -d 'Print KEY="value" pairs'
complete -c torvane -n "__fish_seen_subcommand_from $tables" -s b -l bytes -d 'Print sizes in bytes'
complete -c torvane -n "__fish_seen_subcommand_from $tables" -s n -l noheadings -d 'Print no headings'
complete -c torvane -n "__fish_seen_subcommand_from $tables" -s p -l paths -d 'Print whole device paths'
complete -c torvane -n "__fish_seen_subcommand_from $timed" -x -l timeout -d 'Give up after this many seconds'

complete -c torvane -n '__fish_seen_subcommand_from list' -x -s o -l output -a '(__torvane_columns)' -d 'Columns'
complete -c torvane -n '__fish_seen_subcommand_from list' -s O -l output-all -d 'All columns'
complete -c torvane -n '__fish_seen_subcommand_from list' -s H -l list-columns -d 'List the columns'
complete -c torvane -n '__fish_seen_subcommand_from list' -s d -l nodeps -d 'Leave out partitions'
complete -c torvane -n '__fish_seen_subcommand_from list' -l defects -d 'Read the defect lists'
complete -c torvane -n '__fish_seen_subcommand_from list' -l state -d 'Read the permission level'
complete -c torvane -n '__fish_seen_subcommand_from list' -l raid -d 'Show RAID member drives'
complete -c torvane -n '__fish_seen_subcommand_from list' -l usb -d 'Complete and add USB drives'
complete -c torvane -n '__fish_seen_subcommand_from list show tray firmware' -a '(__torvane_devices)'

complete -c torvane -n '__fish_seen_subcommand_from usb' -a 'state bind unbind'
complete -c torvane -n '__fish_seen_subcommand_from state' -a 'unbound bound node'
complete -c torvane -n '__fish_seen_subcommand_from bind unbind' -l wait -d 'Wait until it is seen in /dev'
complete -c torvane -n '__fish_seen_subcommand_from state unbind firmware' -l force -d 'Go on all the same'
complete -c torvane -n '__fish_seen_subcommand_from wait' -a 'created deleted'
complete -c torvane -n '__fish_seen_subcommand_from wait watch umount' -F
complete -c torvane -n '__fish_seen_subcommand_from firmware' -r -s o -l output -d 'The file to write'
