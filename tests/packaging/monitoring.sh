#!/usr/bin/env bash
# usage: monitoring.sh
#
# The alert rules do what alerts_test.yml says, each of them is in there, and the dashboard's expressions are
# ones of PromQL. Exits with 77 (skipped) without promtool; in CI that is a failure.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../../packaging/monitoring"

if ! command -v promtool >/dev/null; then
  echo "monitoring.sh: no promtool; ./dev test brings it" >&2
  if [ "${CI:-}" = true ]; then exit 1; fi
  exit 77
fi

promtool check rules alerts.yml
promtool test rules alerts_test.yml

mapfile -t alerts < <(sed -n 's/^ *- alert: //p' alerts.yml)
[ ${#alerts[@]} -gt 10 ]
for alert in "${alerts[@]}"; do
  grep -qx " *alertname: $alert" alerts_test.yml || { echo "$alert is not tested" >&2 && exit 1; }
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
python3 - >"$scratch/dashboard.yml" <<'PYTHON'
import json
panels = json.load(open("dashboard.json"))["panels"]
expressions = [target["expr"] for panel in panels for target in panel["targets"]]
rules = [{"record": f"dashboard:{i}", "expr": expr} for i, expr in enumerate(expressions)]
print(json.dumps({"groups": [{"name": "dashboard", "rules": rules}]}))
PYTHON
promtool check rules "$scratch/dashboard.yml"
