# Completion of velmorra in bash. The program itself says what may stand where.

_velmorra() {
    local line=${COMP_LINE:0:COMP_POINT}
    COMPREPLY=()
    # Inside of quotes bash counts words differently.
    local quotes=${line//[^\'\"]/}
    ((${#quotes} % 2 == 0)) || return 0

    local -a words answer
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=("")
    local current=${words[-1]}
    mapfile -t answer < <("${words[0]/#\~/$HOME}" complete -- "${words[@]:1}" 2>/dev/null)

    # Bash replaces only what stands behind the last of its word breaks.
    local breaks= kept=
    [[ $COMP_WORDBREAKS == *=* ]] && breaks+='='
    [[ $COMP_WORDBREAKS == *:* ]] && breaks+=':'
    [[ -n $breaks && $current == *["$breaks"]* ]] && kept=${current%"${current##*["$breaks"]}"}

    local candidate
    for candidate in "${answer[@]}"; do
        case $candidate in
        :files*)
            local -a found
            local begun=${current##*=}
            if [[ $candidate == *vgraph ]]; then
                mapfile -t found < <(compgen -f -X '!*.vgraph' -- "$begun"; compgen -d -- "$begun")
            else
                mapfile -t found < <(compgen -f -- "$begun")
            fi
            compopt -o filenames 2>/dev/null
            COMPREPLY+=("${found[@]}")
            ;;
        *)
            COMPREPLY+=("${candidate#"$kept"}")
            ;;
        esac
    done
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
    return 0
}

complete -F _velmorra velmorra
