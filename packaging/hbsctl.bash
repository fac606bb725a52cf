# Completion of hbsctl for bash; the words come from hbsctl itself, the clients from the live table.
_hbsctl()
{
    # A MAC is one word here, although bash takes it apart at its colons.
    local line=${COMP_LINE:0:COMP_POINT} words
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=("")
    local begun=${words[-1]}
    mapfile -t COMPREPLY < <("${words[0]}" --complete "${words[@]:1}" 2>/dev/null)
    # So does a value behind "=".
    local break
    for break in : =; do
        if [[ $begun == *"$break"* && $COMP_WORDBREAKS == *"$break"* ]]; then
            COMPREPLY=("${COMPREPLY[@]#"${begun%"${begun##*"$break"}"}"}")
            begun=${begun##*"$break"}
        fi
    done
}
complete -F _hbsctl hbsctl
