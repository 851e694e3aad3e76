# bash completion for ngi-catalogue: commands, their options, files and
# folders where a command takes them, and restore point ids and machine
# names read from the catalogue (the --db given on the line, else the default).

_ngi_catalogue_db_words() {  # points|machines
    local db=() i
    for ((i = 1; i < ${#COMP_WORDS[@]} - 1; i++)); do
        [[ ${COMP_WORDS[i]} == --db ]] && db=(--db "${COMP_WORDS[i + 1]}")
    done
    if [[ $1 == points ]]; then
        ngi-catalogue points "${db[@]}" 2>/dev/null | awk '{print $1}'
    else
        ngi-catalogue machines "${db[@]}" 2>/dev/null | awk '{print $1}'
    fi
}

_ngi_catalogue() {
    local cur prev command
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD - 1]}
    command=${COMP_WORDS[1]}
    local commands="check ls tree find export diff summary ingest search versions changes machines points forget serve"
    if ((COMP_CWORD == 1)); then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi
    case $prev in
        --db | --token-file | --tls-cert | --tls-key) COMPREPLY=($(compgen -f -- "$cur")); return ;;
        --at | --from | --to) COMPREPLY=($(compgen -W "$(_ngi_catalogue_db_words points)" -- "$cur")); return ;;
        --machine) COMPREPLY=($(compgen -W "$(_ngi_catalogue_db_words machines)" -- "$cur")); return ;;
        --type) COMPREPLY=($(compgen -W "f d l" -- "$cur")); return ;;
        --format) COMPREPLY=($(compgen -W "csv jsonl" -- "$cur")); return ;;
        --volume | --owner | --taken | --taken-after | --taken-before | --newer | --older | --min-size | --max-size | --depth | --listen)
            return ;;
    esac
    local options="--help"
    case $command in
        ls) options="--at --volume --json --db --help" ;;
        tree) options="--depth --help" ;;
        find) options="--type --min-size --max-size --newer --older --help" ;;
        export) options="--format --help" ;;
        ingest) options="--machine --taken --db --help" ;;
        search | versions)
            options="--machine --volume --type --owner --at --from --to --taken-after --taken-before"
            options+=" --min-size --max-size --newer --older --json --db --help" ;;
        changes) options="--from --to --json --db --help" ;;
        machines) options="--json --db --help" ;;
        points) options="--machine --json --db --help" ;;
        forget) options="--db --help" ;;
        serve) options="--db --listen --token-file --tls-cert --tls-key --help" ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        return
    fi
    case $command in
        check | ls | tree | find | export | diff) COMPREPLY=($(compgen -f -X '!*.ifd' -- "$cur") $(compgen -d -- "$cur")) ;;
        summary | ingest) COMPREPLY=($(compgen -d -- "$cur")) ;;
        forget) COMPREPLY=($(compgen -W "$(_ngi_catalogue_db_words points)" -- "$cur")) ;;
    esac
}
complete -F _ngi_catalogue ngi-catalogue
