# bash completion of pvzan. Options and charsets are asked of the tool itself, so they are never stale.
_pvzan_charsets() {
    pvzan list --json 2>/dev/null |
        sed 's/.*"charset":\("[^"]*"\).*"aliases":\[\([^]]*\)\].*/\1,\2/' | tr , '\n' | tr -d '"'
}

_pvzan() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} verb= names= words
    case ${COMP_WORDS[1]} in check | detect | list | repair) verb=${COMP_WORDS[1]} ;; esac
    case $before in
    -f | --from | -t | --to)
        [[ $word != *,* ]] || names=${word%,*}, # those already there
        COMPREPLY=($(compgen -P "$names" -W "$(_pvzan_charsets)" -- "${word##*,}")) ;;
    -e | --on-error) COMPREPLY=($(compgen -W "stop subst ref hex skip" -- "$word")) ;;
    --eol | --bom | --color)
        words=$(pvzan --help | sed -n "s/^ *$before \([a-z|]*\).*/\1/p" | tr '|' ' ')
        COMPREPLY=($(compgen -W "$words" -- "$word")) ;;
    -j | --jobs | --max-errors) COMPREPLY=() ;;
    *)
        if [[ $word == -* ]]; then
            COMPREPLY=($(compgen -W "$(pvzan $verb --help | grep -oE '^ +-.*' |
                grep -oE '(^| )--?[a-z][a-z-]*')" -- "$word"))
        elif [[ $verb == list ]]; then
            COMPREPLY=($(compgen -W "$(_pvzan_charsets)" -- "$word"))
        else
            COMPREPLY=($(compgen -f -- "$word"))
            ((COMP_CWORD > 1)) || COMPREPLY+=($(compgen -W "check convert detect help list repair" -- "$word"))
        fi ;;
    esac
}
complete -o filenames -F _pvzan pvzan
