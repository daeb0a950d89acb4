#!/usr/bin/env bash
# usage: report_picture.sh [BUILD_DIRECTORY [DEMO_DIRECTORY]]
#
# Makes docs/report.png: the report of what ./dev demo has left, a few minutes after its last gather, in Chromium.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:-build/dev}
demo=${2:-build/demo}/tessel
database=$demo/var/global/anomaly_detection/CV_Anomaly.db
export TZ=UTC
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

gathered=$(sqlite3 "$database" "SELECT datetime(max(LAST_BACKUP_TIME) + 495, 'unixepoch') FROM LAST_BACKUP_DATA_CAPTURE")
faketime "$gathered" "$build/operator_tool/cvanomalyctl" report --html "$work/report.html" --days 90 \
  --database "$database" --logs "$demo/corvane/logs"
chromium --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --hide-scrollbars \
  --user-data-dir="$work/browser" --virtual-time-budget=5000 --window-size=1200,820 \
  --screenshot="$work/report.png" "file://$work/report.html" 2>"$work/said" || {
  cat "$work/said" >&2
  exit 1
}
mv "$work/report.png" docs/report.png
