# bash completion for torvane(1): the tool itself knows what may follow.

_torvane() {
    local cur prev words cword
    _init_completion || return
    local command=${words[1]}
    case $prev in
    --timeout | --filter) return ;;
    esac
    if [[ $command == firmware && $prev == -o ]] || [[ $command == firmware && $prev == --output ]]; then
        _filedir
        return
    fi
    # Of a list of columns the last one is being typed; the others stay as they are.
    local list=''
    if [[ $prev == -o || $prev == --output ]]; then
        list=${cur%"${cur##*[,+]}"}
        cur=${cur##*[,+]}
        cur=${cur^^}
    fi
    local IFS=$'\n'
    COMPREPLY=($(compgen -P "$list" -W "$(torvane complete "${words[@]:1:cword}" 2>/dev/null)" -- "$cur"))
    case $command in
    umount | watch | wait | diff | check) ((${#COMPREPLY[@]})) || _filedir ;;
    esac
} && complete -F _torvane torvane
