# fish completion for torvane(1): the tool itself knows what may follow.

function __torvane_candidates
    set -l words (commandline -opc) (commandline -ct)
    torvane complete $words[2..-1] 2>/dev/null
end

complete -c torvane -f -a '(__torvane_candidates)'
complete -c torvane -n '__fish_seen_subcommand_from umount watch wait firmware diff check' -F
