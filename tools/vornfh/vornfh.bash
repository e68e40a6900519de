# SPDX-License-Identifier: MIT
# bash completion for vornfh                                                 -*- shell-script -*-

# Runs compgen and stores its output in COMPREPLY. File names may contain spaces.
_vornfh_reply()
{
    if [[ $1 == -o ]]; then
        compopt -o filenames 2>/dev/null # fails outside a completion, as in the tests
        shift 2
    fi
    mapfile -t COMPREPLY < <(compgen "$@")
}

# Completes the value of option $1; fails if it takes none.
_vornfh_values()
{
    case $1 in
        --config | --output | -o | --input | --files-from) _vornfh_reply -o filenames -f -- "$2" ;;
        --mmc | --sd | --usb) _vornfh_reply -o filenames -d -- "$2" ;;
        --mmc-block | --sd-block | --usb-block)
            _vornfh_reply -W "$(awk 'NR > 2 { print $4 }' /proc/partitions)" -- "$2"
            ;;
        --type)
            if [[ " ${COMP_WORDS[*]} " == *' offload '* ]]; then
                _vornfh_reply -W 'images videos audio' -- "$2"
            else
                _vornfh_reply -W 'avi mkv jpg png wav' -- "$2"
            fi
            ;;
        --filter) _vornfh_reply -W 'dcim other all' -- "$2" ;;
        --suffix | --count | --duration | --segment | --input-format | --size | --rate | --timeout | \
            --page-size | --keep-free | --max-size | --keep-last | --keep-within | --since | --folder)
            COMPREPLY=()
            ;;
        *) return 1 ;;
    esac
}

# Prints the options specific to a command.
_vornfh_options()
{
    case $1 in
        record) echo '--type --count --duration --segment --loop --keep-free --input --input-format --size --rate
                     --timeout --dry-run' ;;
        folders) echo '--filter --json' ;;
        list) echo '--images --videos --audio --thumbs --filter --json' ;;
        count) echo '--json' ;;
        info) echo '--files-from --null --json' ;;
        comment | mkdir) echo '--dry-run' ;;
        status) echo '--json --verbose' ;;
        repair | protect | unprotect) echo '--files-from --null --dry-run' ;;
        check) echo '--names --read-all --dcf --json' ;;
        gallery) echo '--output --page-size --force --probe --dry-run' ;;
        copy) echo '--only --files-from --null --dry-run' ;;
        move) echo '--only --force --files-from --null --dry-run' ;;
        offload) echo '--move --since --folder --type --dry-run' ;;
        delete) echo '--only --force --files-from --null --dry-run' ;;
        rmdir | wipe) echo '--yes --force --dry-run' ;;
        prune) echo '--keep-free --max-size --keep-last --keep-within --json --dry-run' ;;
    esac
}

# Completes argument $2 of command $1, counted from 0.
_vornfh_arguments()
{
    local storages='mmc sd usb'
    case $1 in
        info | comment | delete | protect | unprotect) _vornfh_reply -o filenames -f -- "$3" ;;
        repair) _vornfh_reply -o filenames -f -W "$storages" -- "$3" ;;
        offload)
            (($2 == 0)) && _vornfh_reply -W "$storages" -- "$3"
            (($2 == 1)) && _vornfh_reply -o filenames -d -- "$3"
            ;;
        copy | move) _vornfh_reply -o filenames -f -W "$((( $2 > 0 )) && echo $storages)" -- "$3" ;;
        next)
            (($2 == 0)) && _vornfh_reply -W "$storages" -- "$3"
            (($2 == 1)) && _vornfh_reply -W 'avi mkv jpg png wav thumb' -- "$3"
            ;;
        *) (($2 == 0)) && _vornfh_reply -W "$storages" -- "$3" ;;
    esac
}

_vornfh()
{
    local IFS=$' \t\n'
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands='next record folders list count info comment status check gallery copy move
                    offload delete mkdir rmdir wipe prune protect unprotect repair'
    local common='--help --version --config --suffix --mmc --mmc-block --sd --sd-block --usb --usb-block'
    local command='' word i arguments=0 isValue=''
    COMPREPLY=()

    # bash splits --sd=DIR into three words.
    if [[ $current == = ]]; then
        current=''
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    _vornfh_values "$previous" "$current" && return

    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        case $word in
            --config | --output | -o | --input | --files-from | --mmc | --sd | --usb | --*-block | --type | --filter | \
                --suffix | --count | --duration | --segment | --input-format | --size | --rate | --timeout | \
                --page-size | --keep-free | --max-size | --keep-last | --keep-within | --since | --folder)
                isValue=yes
                continue
                ;;
            =) continue ;;
        esac
        if [[ $isValue ]]; then
            isValue=''
        elif [[ $word == -* ]]; then
            continue
        elif [[ ! $command ]]; then
            command=$word
        else
            ((++arguments))
        fi
    done

    if [[ $current == -* ]]; then
        _vornfh_reply -W "$common $(_vornfh_options "$command")" -- "$current"
    elif [[ $command ]]; then
        _vornfh_arguments "$command" "$arguments" "$current"
    else
        _vornfh_reply -W "$commands" -- "$current"
    fi
} &&
    complete -F _vornfh vornfh
