# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# fish completion for drivectl(8), helmsman(8) and snapwheel(8): the candidates for the word at the cursor, each with its
# description behind a tab. They are read from the programs' own help, so nothing here can fall behind it.

function __halyard_help --description 'What the help says: KIND PROGRAM [COMMAND]'
    command $argv[2..-1] --help 2>/dev/null | awk -v kind=$argv[1] '
        function flush() { if (word != "" && kind == "options") print word "\t" text; word = "" }
        /^[^ ]/ { flush(); part = $1; next }
        part == "Subcommands:" && kind == "subcommands" && /^  [a-z]/ { print $1 "\t" substr($0, 31) }
        part == "Positionals:" && kind == "takes" && /^  [A-Z]/ { print "- " $1 }
        # Beside a long option the text stands on a line of its own.
        /^          / { text = substr($0, 31) }
        part == "Options:" && /^  -/ && match($0, /--[a-z][a-z-]*/) {
          flush()
          word = substr($0, RSTART, RLENGTH)
          rest = substr($0, RSTART + RLENGTH)
          text = substr($0, 31)
          if (kind == "takes" && match(rest, /^ [A-Z][A-Z:]*( |$)/)) print word " " substr(rest, 2, RLENGTH - 1)
        }
        END { flush() }'
end

function __halyard_values --description 'The values of a type, as the help names it: TYPE PROGRAM'
    switch $argv[1]
        case 'SERVICE*'
            Halyard -cmd services 2>/dev/null
        case 'SNAPSHOT*'
            set -l lister snapshots
            test $argv[2] = snapwheel; and set lister list
            echo latest
            command $argv[2] --quiet $lister 2>/dev/null | sed -n '2,$s/ .*//p'
        case 'DIR*'
            __fish_complete_directories (commandline -ct)
        case 'FILE*' 'PATH*'
            __fish_complete_path (commandline -ct)
    end
end

function __halyard_complete
    set -l before (commandline -opc)
    set -l program $before[1]
    set -l subcommands (__halyard_help subcommands $program)
    set -l chosen
    for word in $before[2..-1]
        if string match -q -- "$word"\t'*' $subcommands
            set chosen $word
            break
        end
    end
    set -l takes (__halyard_help takes $program $chosen)

    # A value for the option before; its type stands behind it in the help.
    if string match -q -- '--*' $before[-1]
        set -l taken (string match -- "$before[-1] *" $takes)
        if test -n "$taken"
            __halyard_values (string split ' ' -- $taken[1])[2] $program
            return
        end
    end
    __halyard_help options $program $chosen
    if test -z "$chosen"
        string join \n -- $subcommands
    else
        set -l taken (string match -- '- *' $takes)
        test -n "$taken"; and __halyard_values (string split ' ' -- $taken[1])[2] $program
    end
end
