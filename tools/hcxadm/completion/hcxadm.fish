# SPDX-License-Identifier: BSD-3-Clause
# fish completion for hcxadm(8). The words come from the tool itself ("hcxadm words"), board numbers from
# "hcxadm --output json list", so that this file knows no nouns.

function __hcxadm_words
    set -l given (commandline -opc)
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
            __fish_complete_directories
            return
    end
    set -l offered ($tool words $path 2>/dev/null)
    # "VALUE --option word": what an option may be.
    set -l values (string replace -f -r -- "^VALUE $previous " '' $offered)
    if string match -q -- '--*' $previous; and test (count $values) -gt 0
        printf '%s\n' $values
        return
    end
    # Names in capitals stand for something to fill in.
    string match -v -r '^[A-Z]' -- $offered
    if contains BOARD $offered
        $tool $machine --output json list 2>/dev/null | string replace -f -r '^ *"board": (\d+),$' '$1'
        $tool $machine --output json list 2>/dev/null | string replace -f -r '^ *"host": "(host\d+)",$' '$1'
    end
end

complete -c hcxadm -f -a '(__hcxadm_words)'
