# bash completion for torvane(1)

_torvane_columns() {
    torvane list --list-columns --noheadings --raw 2>/dev/null | cut -d' ' -f1
}

_torvane_devices() {
    torvane list --noheadings --raw --nodeps --output NAME 2>/dev/null
}

_torvane() {
    local cur prev words cword
    _init_completion || return

    local -A options=(
        [list]='-J --json -r --raw -P --pairs -b --bytes -n --noheadings -p --paths -o --output -O --output-all
            -H --list-columns -d --nodeps --defects --state --raid --usb --timeout -h --help'
        [show]='-J --json --timeout -h --help'
        [raid]='-J --json -r --raw -P --pairs -b --bytes -n --noheadings -p --paths --timeout -h --help'
        [usb]='-J --json -r --raw -P --pairs -b --bytes -n --noheadings -p --paths --timeout -h --help
            --wait --force state bind unbind'
        [mount]='-J --json --timeout -h --help'
        [umount]='--timeout -h --help'
        [tray]='-J --json --timeout -h --help'
        [wait]='--timeout -h --help created deleted'
        [watch]='-J --json -h --help'
        [firmware]='-o --output --force --timeout -h --help'
    )
    local command=${words[1]}
    case $prev in
    --timeout) return ;;
    -o | --output)
        if [[ $command == firmware ]]; then _filedir; else COMPREPLY=($(compgen -W "$(_torvane_columns)" -- "${cur^^}")); fi
        return
        ;;
    esac
    if ((cword == 1)); then
        COMPREPLY=($(compgen -W "${!options[*]} -h --help -V --version" -- "$cur"))
        return
    fi
    if [[ $cur == -* || $command == usb ]] || [[ $command == wait && $cword -eq 2 ]]; then
        COMPREPLY=($(compgen -W "${options[$command]}" -- "$cur"))
        return
    fi
    case $command in
    list | show | tray | firmware) COMPREPLY=($(compgen -W "$(_torvane_devices)" -- "$cur")) ;;
    umount | watch) _filedir -d ;;
    wait) _filedir ;;
    esac
} && complete -F _torvane torvane
