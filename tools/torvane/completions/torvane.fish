# fish completion for torvane(1): the tool itself knows what may follow.

function __torvane_candidates
    set -l words (commandline -opc) (commandline -ct)
    $words[1] complete $words[2..-1] 2>/dev/null | string match -v ':files*'
end

function __torvane_wants_files
    set -l words (commandline -opc) (commandline -ct)
    $words[1] complete $words[2..-1] 2>/dev/null | string match -q ':files*'
end

complete -c torvane -f -a '(__torvane_candidates)'
complete -c torvane -n __torvane_wants_files -F
