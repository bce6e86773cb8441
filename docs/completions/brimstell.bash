# bash completion for brimstell
_brimstell() {
    local cur=${COMP_WORDS[COMP_CWORD]} first=${COMP_WORDS[1]} second=${COMP_WORDS[2]}
    local commands="agent settings size trash history restore trash-bin junk clean autoclean apps updates leftovers cloud startup dev slow versions health demo helper"
    if ((COMP_CWORD == 1)); then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi
    local words=""
    case $first in
        agent) ((COMP_CWORD == 2)) && words="run status on off" || words="--json --cron" ;;
        settings) ((COMP_CWORD == 2)) && words="list get set remove" || words="--json --all --type --force" ;;
        autoclean) ((COMP_CWORD == 2)) && words="status on off run preview" || words="--json --frequency --trash-days --downloads-days" ;;
        helper) ((COMP_CWORD == 2)) && words="status install uninstall" || words="--json" ;;
        junk) words="--json --items" ;;
        apps) words="--json --apple" ;;
        updates) words="--json --explain" ;;
        leftovers) ((COMP_CWORD == 2)) && words="clean --json" || words="--dry-run --yes --json" ;;
        cloud) ((COMP_CWORD == 2)) && words="release --json" || words="--yes --json" ;;
        startup) ((COMP_CWORD == 2)) && words="disable enable remove --json" || words="--yes --json" ;;
        dev) ((COMP_CWORD == 2)) && words="clean-all prune upgrade uninstall simulators runtimes --json" || words="containers images build-cache volumes delete unavailable --dry-run --yes" ;;
        slow) ((COMP_CWORD == 2)) && words="quit --json" || words="--yes --json" ;;
        versions) ((COMP_CWORD == 2)) && words="compare" || words="--json -" ;;
        clean) words="--category --dry-run --yes --json" ;;
        trash-bin) words="--empty-older-than --yes --json" ;;
        restore) words="--session --json" ;;
        history) words="--json" ;;
        health) words="--json --history" ;;
        demo) words="--user --json" ;;
        size|trash)
            COMPREPLY=($(compgen -f -- "$cur") $(compgen -W "--json --bytes" -- "$cur"))
            return ;;
    esac
    if [[ $first == settings && ($second == get || $second == set || $second == remove) && COMP_CWORD -eq 3 ]]; then
        words=$(brimstell settings list --all 2>/dev/null | awk '{print $1}')
    fi
    if [[ $first == autoclean && ${COMP_WORDS[COMP_CWORD-1]} == --frequency ]]; then
        words="daily weekly monthly"
    fi
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
}
complete -F _brimstell brimstell
