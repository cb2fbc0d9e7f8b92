# bash completion for corvana-cli
_corvana_cli()
{
    local cur prev words cword
    _init_completion || return

    local commands="info tracks playlists show load history select browse summary locations
        playlist-groups span restore update-dependent locate helper"
    local options="--library --search --search-fields --span-filter --media --location --playlist --json
        --field --column --sort-field --title --to --anyway --yes --dry-run --allow-root --windows-names
        --help"

    case $prev in
        --library)
            _filedir xml
            return ;;
        --to)
            _filedir -d
            return ;;
        --media)
            COMPREPLY=($(compgen -W "All Music Movies 'TV Shows' Podcasts 'iTunes U' Books" -- "$cur"))
            return ;;
        --span-filter)
            local IFS=$'\n'
            COMPREPLY=($(compgen -W $'All Tracks\nAll Spanned\nDependently Spanned\nFully Spanned\nNot Spanned\nAll Restored\nDependently Restored\nFully Restored\nNever Spanned' -- "$cur"))
            return ;;
        --windows-names)
            COMPREPLY=($(compgen -W "auto always never" -- "$cur"))
            return ;;
        --search|--search-fields|--location|--playlist|--field|--column|--sort-field|--title)
            return ;;
        helper)
            COMPREPLY=($(compgen -W "status install launch quit repair login-item" -- "$cur"))
            return ;;
        login-item)
            COMPREPLY=($(compgen -W "on off" -- "$cur"))
            return ;;
    esac

    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        return
    fi
    local i
    for ((i = 1; i < cword; i++)); do
        [[ " $commands " == *" ${words[i]} "* ]] && return
    done
    COMPREPLY=($(compgen -W "$commands" -- "$cur"))
} && complete -F _corvana_cli corvana-cli
