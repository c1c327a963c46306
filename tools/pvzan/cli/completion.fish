# fish completion of pvzan. Options and charsets are asked of the tool itself, so they are never stale.
function __pvzan_charsets
    pvzan list --json 2>/dev/null |
        string replace -rf '.*"charset":("[^"]*").*"aliases":\[([^]]*)\].*' '$1,$2' |
        string split -n , | string trim -c '"'
end

complete -c pvzan -n __fish_is_first_token -a 'check convert detect help list repair'
complete -c pvzan -n '__fish_seen_subcommand_from list' -f -a '(__pvzan_charsets)'
for verb in convert check detect repair list
    set -l when "__fish_seen_subcommand_from $verb"
    test $verb != convert; or set when 'not __fish_seen_subcommand_from check detect list repair'
    for line in (pvzan $verb --help 2>/dev/null)
        set -l part (string match -r '^  +(?:-(?=.,))?([a-z]|)(?:, )?--([a-z-]+) ?([^ ]*)  +(.*)$' -- $line)
        or continue
        set -l -- option -l $part[3] -d $part[5]
        test -z "$part[2]"; or set -a -- option -s $part[2]
        switch $part[4]
            case 'NAME[*'
                set -a -- option -x -a '(__fish_complete_list , __pvzan_charsets)'
            case NAME
                set -a -- option -x -a '(__pvzan_charsets)'
            case '*|*'
                set -a -- option -x -a (string replace -a '|' ' ' $part[4])
            case HOW
                set -a -- option -x -a 'stop subst ref hex skip'
            case PATH
                set -a -- option -r -F
            case DIR
                set -a -- option -x -a '(__fish_complete_directories)'
            case N
                set -a -- option -x
        end
        complete -c pvzan -n $when $option
    end
end
