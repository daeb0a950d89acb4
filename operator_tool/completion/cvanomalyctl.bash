# bash completion for cvanomalyctl                        -*- shell-script -*-
# shellcheck shell=bash

# Ids of the anomalies in the database that the command line names. Only letters, digits and a few signs are
# allowed: the shell must not run or expand anything that comes from the name of a backup.
_cvanomalyctl_ids() {
  local program=$1 database=$2 name
  local arguments=(anomalies --json)
  [ -z "$database" ] || arguments+=(--database "$database")
  while IFS= read -r name; do
    [[ $name =~ ^[A-Za-z0-9_.@+-]+$ ]] && [[ $name == "$3"* ]] && COMPREPLY+=("$name")
  done < <("$program" "${arguments[@]}" 2>/dev/null | sed -n 's/^   "id": "\(.*\)",$/\1/p')
}

_cvanomalyctl() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local commands="status streams anomalies show explain backtest check metrics report heal gather"
  local options="--json --utc --no-color --database --config --logs --help"
  local command="" database="" i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --database)
        database=${COMP_WORDS[i + 1]:-}
        i=$((i + 1))
        ;;
      --config | --logs | --client | --severity | --days | --state | --output | --html | --from | --to) i=$((i + 1)) ;;
      -*) ;;
      *) [ -n "$command" ] || command=${COMP_WORDS[i]} ;;
    esac
  done
  case $before in
    --database | --config | --output | --html)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --logs)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      return
      ;;
    --severity)
      mapfile -t COMPREPLY < <(compgen -W "1 2 3" -- "$word")
      return
      ;;
    --state)
      mapfile -t COMPREPLY < <(compgen -W "learning judged dormant" -- "$word")
      return
      ;;
    --client | --days | --from | --to | --gather-* | --alerts-* | --disk-*) return ;;
  esac
  case $command in
    "") options="$commands $options" ;;
    status) options+=" --exit-code" ;;
    streams) options+=" --client --state" ;;
    anomalies) options+=" --client --severity --days --not-reviewed --reviewed --ongoing --resolved" ;;
    check)
      options+=" --gather-warning --gather-critical --alerts-warning --alerts-critical"
      options+=" --disk-warning --disk-critical --heartbeat"
      ;;
    metrics) options+=" --output" ;;
    report) options+=" --html --days" ;;
    gather) options+=" --from --to" ;;
    show)
      if [[ $word != -* ]]; then
        _cvanomalyctl_ids "${COMP_WORDS[0]}" "$database" "$word"
        return
      fi
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}

complete -F _cvanomalyctl cvanomalyctl
