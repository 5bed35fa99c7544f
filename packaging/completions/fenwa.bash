# Completion of fenwa and fenwa-camera for bash.
#
# Commands, options and their values are read from the programs' own --help, so that there is no
# second list of them. It needs nothing of the package bash-completion, and neither changes an
# option of the shell nor minds one: it works with nounset, and without extglob. Words that come
# from a program are compared and quoted only, never expanded.

# Runs a program for what it prints; whatever goes wrong with it, there is nothing to offer.
_fenwa_ask() {
    timeout 2 "$@" </dev/null 2>/dev/null || return 0
}

# Sets words and cword: readline takes words apart at = and : (where COMP_WORDBREAKS has them), and
# here they are put together again. The word to complete is the last one.
_fenwa_join_words() {
    local i word joins=''
    words=()
    for ((i = 0; i <= COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]-}
        if [[ -n $word && -z ${word//[=:]/} && $i -gt 1 ]]; then
            words[${#words[@]} - 1]+=$word
            joins=yes
        elif [[ -n $joins ]]; then
            words[${#words[@]} - 1]+=$word
            joins=
        else
            words[${#words[@]}]=$word
        fi
    done
    cword=$((${#words[@]} - 1))
}

# Reads a --help: commands, options (each with what it takes in takes[], where that is something)
# and positionals, the arguments in their order.
_fenwa_read_help() {
    local line entry name section=''
    commands=() options=() takes=() positionals=()
    while IFS= read -r line; do
        case $line in
            'Usage: '*) read -ra positionals <<<"${line#*\[OPTIONS\]}" ;;
            '   '* | '') ;;
            '  '*)
                entry=${line#  }
                entry=${entry%%  *}
                if [[ $section == Subcommands: ]]; then
                    commands[${#commands[@]}]=$entry
                elif [[ $section == Options: ]]; then
                    if [[ $entry == -?', '* ]]; then
                        options[${#options[@]}]=${entry%%,*}
                        takes[${#takes[@]}]=
                        entry=${entry#*, }
                    fi
                    name=${entry%%[ \[]*}
                    options[${#options[@]}]=$name
                    takes[${#takes[@]}]=${entry#"$name"}
                    takes[${#takes[@]} - 1]=${takes[${#takes[@]} - 1]# }
                fi
                ;;
            *:) section=$line ;;
        esac
    done <<<"$1"
}

# Sets taken to what the option $1 takes: "FILE", "[=NAME]", "SERVICE..."; empty for nothing.
_fenwa_taken_by() {
    local i
    taken=
    for ((i = 0; i < ${#options[@]}; ++i)); do
        if [[ ${options[i]} == "$1" ]]; then
            taken=${takes[i]}
        fi
    done
}

# Offers those of the lines $3 that begin with $2, each behind $1 and before $4.
_fenwa_offer() {
    local word
    while IFS= read -r word; do
        if [[ -n $word && $word == "$2"* ]]; then
            COMPREPLY[${#COMPREPLY[@]}]=$1$word${4-}
        fi
    done <<<"$3"
}

# The same for names that somebody else has given: quoted for the shell.
_fenwa_offer_names() {
    local name quoted=''
    while IFS= read -r name; do
        if [[ -n $name ]]; then
            printf -v name %q "$name"
            quoted+=$name$'\n'
        fi
    done <<<"$3"
    _fenwa_offer "$1" "$2" "$quoted" "${4-}"
}

# Offers folders, and files that match one of the patterns behind $2.
_fenwa_offer_files() {
    local before=$1 begun=$2 pattern
    shift 2
    compopt -o filenames 2>/dev/null || :
    _fenwa_offer "$before" '' "$(compgen -d -- "$begun")"
    for pattern in "$@"; do
        _fenwa_offer "$before" '' "$(compgen -f -X "!$pattern" -- "$begun")"
    done
}

# Offers values of the kind $1 ("FILE", "text|json") that begin with $3, behind $2; $4 is the option.
_fenwa_offer_values() {
    local kind=$1 before=$2 begun=$3 option=${4-}
    kind=${kind#\[}
    kind=${kind#=}
    kind=${kind%\]}
    kind=${kind%...}
    case $program/$command/$kind in
        */*/*'|'*) _fenwa_offer "$before" "$begun" "${kind//|/$'\n'}" ;;
        */*/ADDRESS) _fenwa_offer "$before" "$begun" $'system\nsession' ;;
        */*/DIR) _fenwa_offer_files "$before" "$begun" ;;
        */*/SOCKET) _fenwa_offer_files "$before" "$begun" '*' ;;
        */*/GRAPH) _fenwa_offer_files "$before" "$begun" '*.toml' ;;
        */*/PLUGIN) _fenwa_offer_files "$before" "$begun" '*.so' ;;
        */*/FILE)
            if [[ $option == --output ]]; then
                _fenwa_offer_files "$before" "$begun" '*.svg' '*.png'
            else
                _fenwa_offer_files "$before" "$begun" '*.toml'
            fi
            ;;
        */*/SERVICE)
            _fenwa_offer "$before" "$begun" "$(_fenwa_ask "$program" names services)"
            ;;
        */*/MEMBER)
            _fenwa_offer "$before" "$begun" "$(_fenwa_ask "$program" names members)"
            ;;
        *camera/set/NAME)
            _fenwa_offer_names "$before" "$begun" \
                "$(_fenwa_ask "$program" names values ${target[@]+"${target[@]}"})"
            ;;
        */write/PORT)
            _fenwa_offer_names "$before" "$begun" \
                "$(_fenwa_ask "$program" names inputs ${target[@]+"${target[@]}"})"
            ;;
        */*/PORT)
            _fenwa_offer_names "$before" "$begun" \
                "$(_fenwa_ask "$program" names ports ${target[@]+"${target[@]}"})"
            ;;
        */*/BLOCK)
            _fenwa_offer_names "$before" "$begun" \
                "$(_fenwa_ask "$program" names blocks ${target[@]+"${target[@]}"})"
            ;;
        */*/KEY=VALUE)
            compopt -o nospace 2>/dev/null || :
            _fenwa_offer_names "$before" "$begun" "$(_fenwa_ask "$program" names settings \
                "$first" ${target[@]+"${target[@]}"})" =
            ;;
    esac
}

# Completes what stands behind a command.
_fenwa_complete_command() {
    local taken='' i word count=0 first='' dashes='' wanted='' option=''
    local -a target=()
    for ((i = 2; i < cword; ++i)); do
        word=${words[i]}
        if [[ -n $wanted && ( $word != -* || $wanted != *... ) ]]; then
            if [[ $option == --bus || $option == --control ]]; then
                target[${#target[@]}]=$option=$word
            fi
            if [[ $wanted != *... ]]; then
                wanted=
            fi
            continue
        fi
        wanted=
        if [[ -n $dashes || $word != -* ]]; then
            if [[ $count -eq 0 ]]; then
                first=$word
            fi
            count=$((count + 1))
        elif [[ $word == -- ]]; then
            dashes=yes
        elif [[ $word == --bus=* || $word == --control=* ]]; then
            target[${#target[@]}]=$word
        elif [[ $word != *=* ]]; then
            option=$word
            _fenwa_taken_by "$option"
            if [[ $taken != '['* ]]; then
                wanted=$taken
            fi
        fi
    done

    if [[ -n $wanted && ( $cur != -* || $wanted != *... ) ]]; then
        _fenwa_offer_values "$wanted" '' "$cur" "$option"
    elif [[ -z $dashes && $cur == --*=* ]]; then
        _fenwa_taken_by "${cur%%=*}"
        _fenwa_offer_values "$taken" "${cur%%=*}=" "${cur#*=}" "${cur%%=*}"
    elif [[ -z $dashes && ( $cur == -* || ${#positionals[@]} -eq 0 ) ]]; then
        for word in ${options[@]+"${options[@]}"}; do
            _fenwa_offer '' "$cur" "$word"
        done
    else
        if [[ $count -ge ${#positionals[@]} && ${#positionals[@]} -gt 0 ]]; then
            word=${positionals[${#positionals[@]} - 1]}
            if [[ ${word%]} != *... ]]; then
                return 0
            fi
        else
            word=${positionals[count]-}
        fi
        word=${word#\[}
        _fenwa_offer_values "${word%\]}" '' "$cur"
    fi
}

# Completes the command line of the program behind a -- of fenwa-camera run.
_fenwa_complete_guest() {
    local -a COMP_WORDS=("$@")
    local COMP_CWORD=$(($# - 1))
    case ${1##*/} in
        fenwa | fenwa-camera) _fenwa ;;
        *) _fenwa_offer_files '' "${COMP_WORDS[COMP_CWORD]}" '*' ;;
    esac
}

_fenwa() {
    local IFS=$' \t\n'
    local -a words=() commands=() options=() takes=() positionals=()
    local cword=0 cur program command='' i guest=0 breaks='' keep
    COMPREPLY=()
    program=${COMP_WORDS[0]/#\~\//${HOME-}/}
    for ((i = 2; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} == -- ]]; then
            guest=$((i + 1))
        fi
    done
    if [[ $guest -gt 0 && ${program##*/} == fenwa-camera && ${COMP_WORDS[1]} == run ]]; then
        if [[ $guest -eq $COMP_CWORD ]]; then
            _fenwa_offer '' '' "$(compgen -c -- "${COMP_WORDS[COMP_CWORD]-}")"
        else
            _fenwa_complete_guest "${COMP_WORDS[@]:guest:COMP_CWORD - guest + 1}"
        fi
        return 0
    fi

    _fenwa_join_words
    cur=${words[cword]}
    if [[ $cword -eq 1 ]]; then
        _fenwa_read_help "$(_fenwa_ask "$program" --help)"
        for i in ${commands[@]+"${commands[@]}"} ${options[@]+"${options[@]}"}; do
            _fenwa_offer '' "$cur" "$i"
        done
    elif [[ ${words[1]} != -* ]]; then
        command=${words[1]}
        _fenwa_read_help "$(_fenwa_ask "$program" "$command" --help)"
        _fenwa_complete_command
    fi

    # Readline replaces what stands behind the last = or : only.
    for i in = :; do
        if [[ ${COMP_WORDBREAKS-} == *$i* ]]; then
            breaks+=$i
        fi
    done
    if [[ -n $breaks ]]; then
        keep=${cur%"${cur##*["$breaks"]}"}
        for ((i = 0; i < ${#COMPREPLY[@]}; ++i)); do
            COMPREPLY[i]=${COMPREPLY[i]#"$keep"}
        done
    fi
    return 0
}

complete -F _fenwa fenwa fenwa-camera
