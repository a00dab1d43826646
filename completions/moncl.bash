# Completion of words for moncl, monsrv and moncl-exporter in bash. Options, commands and subjects come
# from the program's own --help, and names of devices from the server that the line asks.
#
# The functions share variables of the one that bash calls: `words`, those up to the cursor, the last
# under it and perhaps empty; `help`, the program's; `commands`, in one line.

# COMP_WORDS has HOST:PORT in three words, so the line is split again.
_moncl_split() {
    local line=${COMP_LINE:0:COMP_POINT}
    read -ra words <<<"$line"
    [[ $line != *[[:space:]] ]] || words+=("")
    help=$("${words[0]}" --help 2>/dev/null)
    commands=" $(_moncl_section Commands | tr '\n' ' ')"
    if ((${#words[@]} > 2)) && [[ ${words[0]##*/} == moncl && $commands == *" ${words[1]} "* ]]; then
        help+=$'\n'$("${words[0]}" "${words[1]}" --help 2>/dev/null)
    fi
}

# Reads possible words, one in each line, and keeps those that start with the word under the cursor.
# Readline replaces only what follows the last ':' or '=' of that word.
_moncl_reply() {
    local word=${words[-1]} each start
    start=${word%"${word##*[:=]}"}
    while IFS= read -r each; do
        [[ -n $each && $each == "$word"* ]] || continue
        printf -v each %q "${each#"$start"}"
        COMPREPLY+=("${each//\\,/,}")
    done
}

_moncl_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "${words[-1]}")
}

# The first word of each line in a section of the help, such as Commands.
_moncl_section() {
    sed -n "/^$1;/,/^\$/s/^  \([a-z]*\) .*/\1/p" <<<"$help"
}

_moncl_options() {
    sed -nE 's/^  (-[^ ]+).*/\1/p' <<<"$help" | tr , '\n' | sort -u
}

# What the help names as an option's value, such as FILE; nothing for an option without one.
_moncl_value_of() {
    sed -nE "s/^  (-.,)?$1(,--[^ ]*)? ([^ ]+)( .*)?\$/\3/p" <<<"$help" | grep -vE '^(Excludes|Needs):' |
        head -n 1
}

# Names of a subject's rows, from the server that the line asks. A server that is away costs a second.
_moncl_names() {
    local -a server=()
    local i
    for ((i = 1; i < ${#words[@]} - 1; ++i)); do
        case ${words[i]} in
        --*=*) server+=("${words[i]}") ;;
        --simulate-board) server+=("${words[i]}") ;;
        --connect | --root | --seed | --key | --server-key) server+=("${words[i]}" "${words[i + 1]}") ;;
        esac
    done
    "${words[0]}" names "$1" "${server[@]}" 2>/dev/null
}

# Sets `place` to the number of words before the cursor that are no options, less the file of a
# command, and `subject` to the first of them after that file.
_moncl_find_place() {
    local -i i=1 files=0
    place=0 subject=
    if ((${#words[@]} > 2)) && [[ $commands == *" ${words[1]} "* ]]; then
        i=2
        [[ ${words[1]} == names ]] || files=1
    fi
    for (( ; i < ${#words[@]} - 1; ++i)); do
        case ${words[i]} in
        -*=*) ;;
        -*) [[ -z $(_moncl_value_of "${words[i]}") ]] || i+=1 ;;
        *)
            [[ $place -ne files ]] || subject=${words[i]}
            place+=1
            ;;
        esac
    done
    place+=-files
}

# A word that is no option: the file of a command, subjects joined by commas, or the name of a row.
_moncl_word() {
    local subject listed=
    local -i place
    _moncl_find_place
    if ((place < 0)); then
        _moncl_files
    elif ((place == 0)); then
        [[ ${words[-1]} != *,* ]] || listed=${words[-1]%,*},
        _moncl_reply < <(
            [[ -n $listed ]] || ((${#words[@]} != 2)) || tr ' ' '\n' <<<"$commands"
            _moncl_section Subjects | sed "s/^/$listed/"
        )
    elif [[ -n $subject && $subject != *[!a-z]* ]]; then
        # A number would be taken for an interval; --only takes names that are numbers.
        _moncl_reply < <(_moncl_names "$subject" | grep -vE '^[0-9.]+$')
    fi
}

# The value of an option.
_moncl_value() {
    local subject
    local -i place
    case $1 in
    --color) _moncl_reply <<<$'auto\nalways\nnever' ;;
    --connect) _moncl_reply < <(compgen -A hostname) ;;
    -P | --cpu) _moncl_reply < <(printf 'all\nALL\n' && _moncl_names cpu) ;;
    -p | --pid) _moncl_reply < <(_moncl_names top) ;;
    --only)
        _moncl_find_place
        [[ -z $subject ]] || _moncl_reply < <(_moncl_names "$subject")
        ;;
    *)
        case $2 in
        {*) _moncl_reply < <(tr -d '{}' <<<"$2" | tr '|' '\n') ;;
        *FILE* | *FOLDER* | *DIR*) _moncl_files ;;
        [a-z]*) _moncl_reply <<<"$2" ;;
        esac
        ;;
    esac
}

_moncl() {
    local -a words
    local help commands option value
    COMPREPLY=()
    _moncl_split
    option=${words[-2]}
    if [[ ${words[-1]} == --*=* ]]; then # completed as the value of an option is
        option=${words[-1]%%=*}
        words[-1]=${words[-1]#*=}
    fi
    value=
    [[ $option != -* ]] || value=$(_moncl_value_of "$option")
    if [[ -n $value ]]; then
        _moncl_value "$option" "$value"
    elif [[ ${words[-1]} == -* ]]; then
        _moncl_reply < <(_moncl_options)
    elif [[ ${words[0]##*/} == moncl ]]; then
        _moncl_word
    fi
}

complete -F _moncl moncl monsrv moncl-exporter
