# Completion of qvres for bash: commands and options come from its help, ids from its listings.

# A word as qvres would get it. Neither a backslash nor a double quote can be part of an id.
_qvres_plain()
{
    local word=${1#\'}
    word=${word//[\\\"]/}
    printf %s "${word//\$HOME/$HOME}"
}

# The names in a section of a help text: what its entries begin with.
_qvres_names()
{
    sed -n "/^$1:/,/^\$/s/^  \\([^ ]\\)/\\1/p" | sed -e 's/  .*//' -e 's/,/\n/g' | sed 's/ .*//'
}

# The values of an option that its entry in a help text has in braces.
_qvres_values()
{
    sed -n "s/^  .*$1 [A-Z]*:{\([^}]*\)}.*/\1/p" | tr , ' '
}

# Ids that begin like the word, without names that are no valid ids (a tab follows them); `tree` is the call of qvres with the options that say which tree is meant.
_qvres_ids()
{
    local plain folder
    plain=$(_qvres_plain "$cur")
    folder=${plain%"${plain##*/}"}
    mapfile -t COMPREPLY < <("${tree[@]}" ls "${folder:-/}" 2>/dev/null | awk -v typed="$plain" 'index($0, typed) == 1 && !/\t/')
    compopt -o filenames # readline quotes the ids
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace
}

_qvres()
{
    local cur prev words cword i arguments=0
    local -a command=() tree=(qvres)
    _init_completion -n =: || return
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
            --var | --mount) tree+=("${words[i]}" "$(_qvres_plain "${words[++i]}")") ;;
            --var=* | --mount=*) tree+=("$(_qvres_plain "${words[i]}")") ;;
            --mask | --kind | --sort | --keep | --repository | --progress) ((++i)) ;;
            -*) ;;
            *)
                case ${#command[@]},${command[0]-} in
                    0,* | 1,profile | 1,journal | 1,xini | 1,id) command+=("${words[i]}") ;;
                    *) ((++arguments)) ;;
                esac
                ;;
        esac
    done

    case $prev in
        --var | --repository)
            _filedir -d
            return
            ;;
        --mount)
            [[ $cur == *=* ]] && cur=${cur#*=} && _filedir -d
            return
            ;;
        --sort | --kind | --progress)
            COMPREPLY=($(compgen -W "$({ qvres --help; qvres "${command[@]}" --help; } | _qvres_values "$prev")" -- "$cur"))
            return
            ;;
        --mask | --keep) return ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$({ qvres --help; qvres "${command[@]}" --help; } | _qvres_names Options)" -- "$cur"))
        return
    fi
    case ${command[*]},$arguments in
        ,* | profile,* | journal,* | xini,* | id,*)
            COMPREPLY=($(compgen -W "$(qvres "${command[@]}" --help | _qvres_names Subcommands)" -- "$cur"))
            ;;
        help,*) COMPREPLY=($(compgen -W "$(qvres --help | _qvres_names Subcommands)" -- "$cur")) ;;
        setup,0 | mount,1 | 'profile add',1 | journal\ *,0 | serve,1) _filedir -d ;;
        put,1) _filedir ;;
        done,1) COMPREPLY=($(compgen -W "ok fail" -- "$cur")) ;;
        serve,0) # with or without an ID
            _qvres_ids
            _filedir -d
            ;;
        profile\ *) ;;
        *) _qvres_ids ;;
    esac
} && complete -F _qvres qvres
