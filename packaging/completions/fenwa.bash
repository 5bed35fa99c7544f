# Completion of fenwa and fenwa-camera for bash, with the helpers of the package bash-completion.
# Commands, options and their values come from the programs' own --help.

_fenwa_commands() {
    "$1" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\{1,\}\) .*/\1/p'
}

# The options of the command $2, or of the program. Wrapped lines of the help may begin like one.
_fenwa_options() {
    "$1" ${2:+"$2"} --help 2>/dev/null | grep '^  -' | _parse_help -
}

# What the option $3 of the command $2 takes: "FILE", "text|json"; nothing for a flag.
_fenwa_taken() {
    "$1" "$2" --help 2>/dev/null | sed -n "s/^  \(-[a-z], \)\{0,1\}$3 \([^ ]\{1,\}\).*/\2/p"
}

_fenwa_services() {
    "$1" run --help 2>/dev/null | tr '\n' ' ' | sed -n 's/.*Services: \([^.]*\)\..*/\1/p' | tr -d ,
}

_fenwa() {
    local cur prev words cword split i program=${1##*/}
    if [[ $program == fenwa-camera && ${COMP_WORDS[1]-} == run ]]; then
        for ((i = COMP_CWORD - 1; i > 1; --i)); do
            if [[ ${COMP_WORDS[i]} == -- ]]; then
                _command_offset $((i + 1))
                return
            fi
        done
    fi
    _init_completion -s || return

    local command=${words[1]}
    if ((cword == 1)); then
        COMPREPLY=($(compgen -W '$(_fenwa_commands "$1") $(_fenwa_options "$1")' -- "$cur"))
        return
    fi
    if [[ $prev == --private-bus ]] && $split; then
        _filedir
        return
    fi
    if [[ $prev == --* ]]; then
        local taken
        taken=$(_fenwa_taken "$1" "$command" "$prev")
        case $prev$taken in
            *'|'*) COMPREPLY=($(compgen -W '${taken//|/ }' -- "$cur")) ;;
            *ADDRESS) COMPREPLY=($(compgen -W 'system session' -- "$cur")) ;;
            *SERVICE...) COMPREPLY=($(compgen -W '$(_fenwa_services "$1")' -- "$cur")) ;;
            *DIR) _filedir -d ;;
            --reportFILE) _filedir xml ;;
            --outputFILE) if [[ $command == graph ]]; then _filedir '@(svg|png)'; else _filedir toml; fi ;;
            *FILE) _filedir toml ;;
        esac
        [[ -n $taken ]] && return
    fi
    $split && return
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W '$(_fenwa_options "$1" "$command")' -- "$cur"))
        return
    fi
    case $program/$command in
        fenwa/run | fenwa/check | fenwa/graph) _filedir toml ;;
        fenwa/inspect) _filedir so ;;
        fenwa/new) ((cword == 2)) && COMPREPLY=($(compgen -W 'plugin block' -- "$cur")) ;;
        fenwa-camera/start | fenwa-camera/stop | fenwa-camera/restart)
            COMPREPLY=($(compgen -W '$(_fenwa_services "$1")' -- "$cur"))
            ;;
    esac
} &&
    complete -F _fenwa fenwa fenwa-camera
