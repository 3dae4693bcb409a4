# Completion of qxmigrate, qxctl, mkqxfs, qxpkg and qxquota for bash, with bash-completion.
# shellcheck shell=bash
# What the programs know is asked of them: their help is the list of commands and options.

# _qx_options PROGRAM [COMMAND]
_qx_options() {
    # The help of qxmigrate itself is a short one.
    { "$@" --help-all || "$@" --help; } 2>/dev/null | sed -nE 's/^ +(-[a-zA-Z],)?(--[a-z][a-z-]*).*/\2/p'
}

# _qx_commands PROGRAM
_qx_commands() {
    "$1" --help 2>/dev/null | sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) .*/\1/p'
}

_qx_containers() { qxctl list -a 2>/dev/null | awk 'NR > 1 { print $1 }'; }

_qx_migrations() { qxmigrate list 2>/dev/null | awk 'NR > 1 { print $1; sub(/-.*/, "", $1); print $1 }' | sort -u; }

# The first id from 101 on that no container has.
_qx_new_container() {
    local taken id=101
    taken=" $(_qx_containers | tr '\n' ' ')"
    while [[ $taken == *" $id "* ]]; do ((id += 1)); done
    echo "$id"
}

_qx_distributions() {
    local file
    for file in /etc/sysconfig/qx-scripts/dists/*.conf; do
        [[ ! -e $file ]] || basename "$file" .conf
    done
}

_qx_templates() {
    local name
    for name in /var/lib/qx/template/*; do
        [[ -e $name ]] || continue
        name=${name##*/}
        case $name in
            *.tar | *.tgz) echo "${name%.*}" ;;
            *.tar.*) echo "${name%.tar.*}" ;;
            *) echo "$name" ;;
        esac
    done
}

# _qx_reply WORD...: those that begin as what is being typed.
_qx_reply() { mapfile -t COMPREPLY < <(compgen -W "$*" -- "$cur"); }

# The words before the one that is typed that are no options, nor their values: the command
# in command, and how many follow it in count.
_qx_look_back() {
    local i word
    command='' count=0
    for ((i = 1; i < cword; ++i)); do
        word=${words[i]}
        case $word in
            --ssh-option | --library | --ctid | --distribution | --hostname | --ip | --nameserver | \
                --searchdomain | --ostemplate | --diskspace | --diskinodes | --config | --exclude | \
                --stop-service | --duration | --interval | --proc-scale | --disk-scale | --output | --html | \
                --timeout | --color | --log-file | --lines | -n)
                ((i += 1))
                ;;
            -*) ;;
            *)
                if [[ -z $command && " $1 " == *" $word "* ]]; then
                    command=$word
                else
                    ((count += 1))
                fi
                ;;
        esac
    done
}

# A server: what ssh knows, or the socket of an agent.
_qx_servers() {
    if [[ $cur == unix:* ]]; then
        cur=${cur#unix:}
        _filedir
    else
        _known_hosts_real -a -- "$cur"
    fi
}

_qxmigrate() {
    local cur prev words cword command count commands
    _init_completion -n : || return
    case $prev in
        --ctid) _qx_reply "$(_qx_new_container)" && return ;;
        --distribution)
            # A version belongs to it.
            _qx_reply "$(_qx_distributions | sed 's/$/-/')"
            compopt -o nospace
            return
            ;;
        --ostemplate) _qx_reply "$(_qx_templates)" && return ;;
        --config | --html | --output | --library | --log-file) _filedir && return ;;
        --color) _qx_reply auto always never && return ;;
        --ip) _qx_reply auto dhcp && return ;;
        --ssh-option | --hostname | --nameserver | --searchdomain | --diskspace | --diskinodes | \
            --exclude | --stop-service | --duration | --interval | --proc-scale | --disk-scale)
            return
            ;;
    esac
    commands=$(_qx_commands "$1" | tr '\n' ' ')
    _qx_look_back "$commands"
    if [[ $cur == -* ]]; then
        # shellcheck disable=SC2086
        _qx_reply "$(_qx_options "$1" $command)"
        return
    fi
    case $command:$count in
        :0)
            _qx_servers
            mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W "$commands" -- "$cur")
            ;;
        plan:0 | measure:0 | verify:1) _qx_servers ;;
        verify:0) _qx_reply "$(_qx_containers)" ;;
        show:0 | clean:0) _qx_reply "$(_qx_migrations)" ;;
    esac
}

_qxctl() {
    local cur prev words cword command count commands
    _init_completion || return
    [[ $prev != --timeout && $prev != --lines && $prev != -n ]] || return 0
    commands=$(_qx_commands "$1" | tr '\n' ' ')
    _qx_look_back "$commands"
    if [[ $command = exec && $count -ge 1 ]]; then
        _filedir
    elif [[ $cur == -* ]]; then
        # shellcheck disable=SC2086
        _qx_reply "$(_qx_options "$1" $command)"
    else
        case $command:$count in
            :0) _qx_reply "$commands" ;;
            list:*) ;;
            runscript:1) _filedir ;;
            *:0) _qx_reply "$(_qx_containers)" ;;
        esac
    fi
}

_mkqxfs() {
    local cur prev words cword
    _init_completion || return
    _filedir -d
}

# They have one list of words each: PROGRAM WORDS.
_qx_verb_and_id() {
    local cur prev words cword
    _init_completion || return
    case $cword in
        1) _qx_reply "$1" ;;
        2) _qx_reply "$(_qx_containers)" ;;
        3) [[ ${words[1]} != setlimit2 ]] || _qx_reply -u -g -tu -tg ;;
    esac
}
_qxpkg() { _qx_verb_and_id sync_qxpackages; }
_qxquota() { _qx_verb_and_id 'stat setlimit2'; }

# With it, bash would take "@" for the end of a word.
shopt -u hostcomplete
complete -F _qxmigrate qxmigrate
complete -F _qxctl qxctl
complete -F _mkqxfs mkqxfs
complete -F _qxpkg qxpkg
complete -F _qxquota qxquota
