# Completion of qvres for fish: commands and options come from its help, ids from its listings.

# The words before the cursor: the command and its sub-command, how many arguments follow, the call of qvres for the tree.
function __qvres_words
    set -g __qvres_command
    set -g __qvres_arguments 0
    set -g __qvres_tree qvres
    set -l words (commandline -opc)[2..-1]
    while set -q words[1]
        switch $words[1]
            case --var --mount
                set -a __qvres_tree $words[1] (string replace '$HOME' $HOME -- $words[2])
                set -e words[1]
            case '--var=*' '--mount=*'
                set -a __qvres_tree (string replace '$HOME' $HOME -- $words[1])
            case --mask --kind --sort --keep --repository --progress
                set -e words[1]
            case '-*'
            case '*'
                if not set -q __qvres_command[1]
                    set __qvres_command $words[1]
                else if test (count $__qvres_command) = 1; and contains -- $__qvres_command profile journal xini id
                    set -a __qvres_command $words[1]
                else
                    set __qvres_arguments (math $__qvres_arguments + 1)
                end
        end
        set -q words[1]; and set -e words[1]
    end
end

# The entries of a section of a help text: name, tab, first line of the text.
function __qvres_names -a section
    sed -n "/^$section:/,/^\$/s/^  \\([^ ]\\)/\\1/p" |
        sed -E -e 's/^(-[^ ,]*),/\1 /' -e 's/^([^ ]+)( .*)?( {2,}.*)$/\1\3/' -e 's/ {2,}/\t/' -e '/^-[^\t]* /s/ .*//'
end

function __qvres_complete
    __qvres_words
    set -l typed (commandline -ct)
    switch "$__qvres_command,$__qvres_arguments"
        case ',*' 'profile,*' 'journal,*' 'xini,*' 'id,*'
            qvres $__qvres_command --help | __qvres_names Subcommands
        case 'help,*'
            qvres --help | __qvres_names Subcommands
        case setup,0 mount,1 'profile add,1' 'journal *,0' serve,1
            __fish_complete_directories $typed
        case put,1
            __fish_complete_path $typed
        case done,1
            printf '%s\n' ok fail
        case 'profile *'
        case '*'
            set -l plain (string unescape -- $typed | string collect)
            $__qvres_tree ls (string match -r '.*/' -- "$plain"; or echo /) 2>/dev/null | string match -v "*"\t"*" # not a valid id
            if test "$__qvres_command" = serve # with or without an ID
                __fish_complete_directories $typed
            end
    end
end

function __qvres_options
    __qvres_words
    begin; qvres --help; qvres $__qvres_command --help; end | sed -n '/^Options:/,/^$/s/^  \(-[^ ]*\).*/\1/p' | string split ,
end

complete -c qvres -f -a '(__qvres_complete)'
complete -c qvres -n 'string match -q -- "-*" (commandline -ct)' -f -a '(__qvres_options)'
complete -c qvres -l var -x -a '(__fish_complete_directories)' -d 'The VAR folder'
complete -c qvres -l sort -x -a 'name size time' -d 'The order'
complete -c qvres -l kind -x -a 'resource folder' -d 'Only entries of one kind'
complete -c qvres -l progress -x -a 'bar json none' -d 'How progress is shown'
complete -c qvres -l mount -x -d 'Mount DIR at ID for this call'
