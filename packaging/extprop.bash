# bash completion for extprop; loaded by bash-completion when extprop is first completed.

_extprop_steps() {
    local -A arguments=(
        [sim]="simSwitchCurrent simSwitchFirst updateDataCommonProp emptyAppchannelProp
            switchCarrierChannel regionSwitch triggerLogoCopyFromCompanyBoot
            triggerLogoCopyFromCompany"
        [cota-service]="check_mount mount_and_check_load mount_must_load bind_basic_point
            update_cota_info module_bind_single"
    )
    local steps="early early: persist cota duskrider sim sim: cota-service: media: set: write: reboot"
    local word=${cur%%:*}
    [[ $cur == *:* ]] && steps=$(compgen -P "$word:" -W "${arguments[$word]-}")
    mapfile -t COMPREPLY < <(compgen -W "$steps" -- "$cur")
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *: ]] && compopt -o nospace
    # A colon begins a new word for readline.
    __ltrim_colon_completions "$cur"
}

_extprop() {
    # shellcheck disable=SC2034
    local cur prev words cword split
    _init_completion -s -n : || return

    if ((cword == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "boot explain diff compare matrix check lint --help --version" -- "$cur")
        return
    fi
    case $prev in
        --props | --phone | --html | --sarif | --merge | --junit | --markdown | --image | --code-quality | --baseline | --write-baseline)
            _filedir
            return
            ;;
        --request)
            local requests="boot_mount module_bind_single_boot bind_basic_point_boot"
            mapfile -t COMPREPLY < <(compgen -W "$requests" -- "$cur")
            return
            ;;
        --slot)
            mapfile -t COMPREPLY < <(compgen -W "a b" -- "$cur")
            return
            ;;
        --over)
            mapfile -t COMPREPLY < <(compgen -W "brand region nv sim-first sim-current channel region-key" -- "$cur")
            return
            ;;
        --source-root)
            _filedir -d
            return
            ;;
        --explain)
            mapfile -t COMPREPLY < <(compgen -W "all $(extprop lint --explain all | sed -n 's/^## //p')" -- "$cur")
            return
            ;;
        --category | --set | --brand | --region | --nv | --sim-first | --sim-current | --channel | --region-key | --edit | --delete | --value | --timeout | --only | --except | --jobs | --shard)
            return
            ;;
    esac

    local boot="--set --props --brand --region --nv --sim-first --sim-current --channel --region-key --edit --delete --slot --image --request --no-complete"
    boot+=" --any-word --timeout"
    local -A options=(
        [boot]="$boot --json --quiet --verbose --html --help"
        [explain]="$boot --all --value --json --verbose --html --help"
        [diff]="$boot --json --a --b --help"
        [compare]="$boot --json --verbose --html --help"
        [matrix]="$boot --over --only --except --jobs --list --value --shard --merge --json --html --markdown --help"
        [check]="$boot --jobs --record --force --phone --json --junit --markdown --help"
        [lint]="--slot --image --json --sarif --category --code-quality --source-root --baseline --write-baseline
            --explain --help"
    )
    local command=${words[1]}
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${options[$command]-}" -- "$cur")
        return
    fi

    local operand=1 i
    for ((i = 2; i < cword; ++i)); do
        case ${words[i]} in
            --set | --props | --phone | --brand | --region | --nv | --sim-first | --sim-current | --channel | --region-key | --edit | --delete | --value | --slot | --image | --request | --timeout | --html | --sarif | \
                --over | --only | --except | --jobs | --shard | --merge | --junit | --markdown | --category | --code-quality | \
                --source-root | --baseline | --write-baseline | --explain)
                ((++i))
                ;;
            -*) ;;
            *) ((++operand)) ;;
        esac
    done
    case $command:$operand in
        boot:1 | explain:1 | diff:1 | compare:1 | matrix:1 | check:1 | lint:1) _filedir ;;
        boot:* | explain:*) _extprop_steps ;;
        check:* | compare:*)
            ((operand == 2)) && _filedir
            [[ ${#COMPREPLY[@]} -eq 0 ]] && _extprop_steps
            ;;
        diff:* | matrix:*)
            ((operand == 2)) && _filedir
            [[ ${#COMPREPLY[@]} -eq 0 ]] && _extprop_steps
            ;;
    esac
} && complete -F _extprop extprop
