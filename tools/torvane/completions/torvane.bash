# bash completion for torvane(1): the tool itself knows what may follow.

_torvane() {
    local line=${COMP_LINE:0:COMP_POINT} words current head word
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=('')
    current=${words[-1]}
    # Readline replaces what stands behind the last of its own separators only.
    head=${current%"${current##*["=:"]}"}
    [[ $COMP_WORDBREAKS == *=* ]] || head=
    COMPREPLY=()
    while IFS=$'\t' read -r word _; do
        if [[ $word == :files ]]; then
            compopt -o filenames
            while read -r word; do COMPREPLY+=("$word"); done < <(compgen -f -- "${current#"$head"}")
        else
            COMPREPLY+=("${word#"$head"}")
        fi
    done < <("${words[0]}" complete "${words[@]:1}" 2>/dev/null)
} && complete -F _torvane torvane
