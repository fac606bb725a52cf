# Completion of hbsctl for bash; the words come from hbsctl itself, the clients from the live table.
_hbsctl()
{
    # A MAC is one word here, although bash takes it apart at its colons.
    local line=${COMP_LINE:0:COMP_POINT} words
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=("")
    local begun=${words[-1]}
    mapfile -t COMPREPLY < <("${words[0]}" --complete "${words[@]:1}" 2>/dev/null)
    if [[ $begun == *:* && $COMP_WORDBREAKS == *:* ]]; then
        COMPREPLY=("${COMPREPLY[@]#"${begun%"${begun##*:}"}"}")
    fi
}
complete -F _hbsctl hbsctl
