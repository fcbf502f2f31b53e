# SPDX-License-Identifier: BSD-3-Clause
# fish completion for hcxadm(8). The words come from the tool itself ("hcxadm words"), board numbers from
# "hcxadm --output json list", so that this file knows no nouns.

# __hcxadm_boards TOOL MACHINE_OPTION...
function __hcxadm_boards
    $argv --output json list 2>/dev/null |
        string replace -f -r '^ *"(?:board": (\d+)|host": "(host\d+)"),$' '$1$2'
end

function __hcxadm_words
    set -l given (commandline -opc)
    set -l current (commandline -ct)
    set -l tool $given[1]
    set -l path
    set -l machine
    set -l skip no
    for word in $given[2..-1]
        if test $skip = state
            set -a machine --state $word
            set skip no
        else if test $skip = yes
            set skip no
        else
            switch $word
                case '--simulate*'
                    set -a machine $word
                case --state
                    set skip state
                case --output -o
                    set skip yes
                case '-*'
                case '*'
                    set -a path $word
            end
        end
    end
    set -l previous $given[-1]
    switch $previous
        case --output -o
            printf 'table\njson\n'
            return
        case --state
            __fish_complete_directories $current
            return
        case --board
            __hcxadm_boards $tool $machine
            return
    end
    set -l offered ($tool words $path 2>/dev/null)
    # "VALUE --option word": what an option may be.
    set -l values (string replace -f -r -- "^VALUE $previous " '' $offered)
    if string match -q -- '--*' $previous; and test (count $values) -gt 0
        printf '%s\n' $values
        return
    end
    if string match -q -- '-*' $current
        string match -r '^-.*' -- $offered
        return
    end
    # Names in capitals stand for something to fill in.
    string match -v -r '^[-A-Z]' -- $offered
    # After the board has been given, nothing is offered for it again.
    if contains BOARD $offered; and not string match -q -r '^(host)?\d+$' -- $path[-1]
        __hcxadm_boards $tool $machine
    end
    if contains CATEGORY $offered
        $tool log 2>/dev/null | cut -f 1 | string match -v CATEGORY
    end
    # "auth VERB BOARD REMOTE DIRECTION"
    if test "$path[1]" = auth; and test (count $path) = 3; and contains REMOTE $offered
        echo fabric
        $tool $machine --output json auth list $path[3] 2>/dev/null |
            string replace -f -r '^ *"remote": "([0-9a-f:]+)",$' '$1' | string replace -a : ''
    else if test "$path[1]" = auth; and test (count $path) = 4
        string replace -f -r -- '^VALUE [A-Z]+ ' '' $offered
    end
end

complete -c hcxadm -f -a '(__hcxadm_words)'
