# SPDX-License-Identifier: MIT
# fish completion for vornfh. The tool itself knows the candidates: "vornfh __complete WORD..." first prints which paths
# the shell is to offer (files, directories or none), and then a line "CANDIDATE<tab>DESCRIPTION" for each candidate.

function __vornfh_candidates
    set -l words (commandline -opc)
    set -l tool (string replace -r '^~' $HOME -- $words[1])
    set -e words[1]
    set -l token (commandline -ct)
    set -l current (string unescape -- "$token")
    set -l lines ($tool __complete $words "$current" 2>/dev/null)
    # The tool completes what is after "=".
    set -l option (string match -r -- '^--[^=]*=' "$current")
    set -l value (string replace -r -- '^--[^=]*=' '' "$current")
    for line in $lines[2..-1]
        echo "$option$line"
    end
    switch "$lines[1]"
        case files
            string join \n -- "$option"(__fish_complete_path "$value")
        case directories
            string join \n -- "$option"(__fish_complete_directories "$value")
    end
end

complete -c vornfh -f -k -a '(__vornfh_candidates)'
