# SPDX-License-Identifier: MIT
# bash completion for vornfh                                                 -*- shell-script -*-
# The tool itself knows the candidates: "vornfh __complete WORD..." first prints which paths the shell is to offer
# (files, directories or none), and then a line "CANDIDATE<tab>DESCRIPTION" for each candidate.

_vornfh()
{
    local current=${COMP_WORDS[COMP_CWORD]} paths='' word
    local -a words=() candidates=()

    # bash splits --sd=DIR into three words.
    [[ $current != = ]] || current=''
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}" "$current"; do
        [[ $word == = ]] || words+=("${word//[\"\'\\]/}")
    done
    {
        read -r paths
        while IFS=$'\t' read -r word _; do
            candidates+=("$word")
        done
    } < <("${COMP_WORDS[0]/#\~/$HOME}" __complete "${words[@]}" 2>/dev/null)

    case $paths in
        files) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
        directories) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
        *)
            COMPREPLY=()
            # Names may contain spaces. After an opening quotation mark, these need no escape.
            if [[ $current != [\"\']* && ${#candidates[@]} -gt 0 ]]; then
                mapfile -t candidates < <(printf '%q\n' "${candidates[@]}")
            fi
            ;;
    esac
    # With this option, bash itself quotes names. Outside a completion, as in the tests, compopt fails.
    [[ $paths == none ]] || compopt -o filenames 2>/dev/null
    compopt -o nosort 2>/dev/null
    COMPREPLY=("${candidates[@]}" "${COMPREPLY[@]}")
} &&
    complete -F _vornfh vornfh
