# bash completion of pvzan. Options and charsets are asked of the tool itself, so they are never stale.
# For zsh: autoload -U bashcompinit && bashcompinit, then source this file.
_pvzan() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} verb=
    case ${COMP_WORDS[1]} in check | detect | list) verb=${COMP_WORDS[1]} ;; esac
    case $before in
    -f | --from | -t | --to)
        COMPREPLY=($(compgen -W "$(pvzan list --json 2>/dev/null | tr '{}[],:' '\n' | tr -d '"' |
            grep -Evx 'charset|number|aliases|sets|[0-9]*')" -- "$word")) ;;
    -e | --on-error) COMPREPLY=($(compgen -W "stop subst ref hex skip" -- "$word")) ;;
    --eol) COMPREPLY=($(compgen -W "lf crlf cr keep" -- "$word")) ;;
    --bom) COMPREPLY=($(compgen -W "add drop keep" -- "$word")) ;;
    --color) COMPREPLY=($(compgen -W "auto always never" -- "$word")) ;;
    *)
        if [[ $word == -* ]]; then
            COMPREPLY=($(compgen -W "$(pvzan $verb --help | grep -oE '^ +-.*' |
                grep -oE '(^| )--?[a-z][a-z-]*')" -- "$word"))
        else
            COMPREPLY=($(compgen -f -- "$word"))
            ((COMP_CWORD > 1)) || COMPREPLY+=($(compgen -W "check convert detect list" -- "$word"))
        fi ;;
    esac
}
complete -o filenames -F _pvzan pvzan
