#compdef pvzan
# zsh completion of pvzan. Options and charsets are asked of the tool itself, so they are never stale.
_pvzan_charsets() {
    local -a names=(${(f)"$(pvzan list --json 2>/dev/null |
        sed 's/.*"charset":\("[^"]*"\).*"aliases":\[\([^]]*\)\].*/\1,\2/' | tr , '\n' | tr -d '"')"})
    compadd "$@" -a names
}

_pvzan_operands() {
    ((CURRENT > 2)) || compadd check convert detect help list repair
    _files
}

_pvzan() {
    local verb line action text
    local -a arguments names match mbegin mend
    case $words[2] in check | detect | list | repair) verb=$words[2] ;; esac
    for line in ${(f)"$(pvzan $verb --help 2>/dev/null)"}; do
        [[ $line =~ '^  +((-[a-z]), )?(--[a-z-]+)( ([^ ]+))?  +(.*)$' ]] || continue
        names=($match[2] $match[3])
        case $match[5] in
        '') action= ;;
        NAME\[*) action=':charsets:_sequence _pvzan_charsets' ;;
        NAME) action=':charset:_pvzan_charsets' ;;
        *\|*) action=":one of:(${match[5]//|/ })" ;;
        HOW) action=':policy:(stop subst ref hex skip)' ;;
        PATH) action=':path:_files' ;;
        DIR) action=':directory:_files -/' ;;
        *) action=':number:' ;;
        esac
        text=${${match[6]//\[/\\[}//\]/\\]}
        arguments+=("($names)"${^names}"[$text]$action")
    done
    if [[ $verb == list ]]; then
        arguments+=('*:charset:_pvzan_charsets')
    else
        arguments+=('*:file:_pvzan_operands')
    fi
    _arguments -s $arguments
}

_pvzan "$@"
