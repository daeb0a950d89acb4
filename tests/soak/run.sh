#!/usr/bin/env bash
# usage: run.sh BUILD_DIRECTORY soak|chaos ARGUMENT...     the figures go to BUILD_DIRECTORY/soak/NAME.json
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(realpath "$1")
name=$2
shift 2
tree=$build/$name/tessel
rm -rf "$tree"
mkdir -p "$tree" "$build/soak"
cmake --install "$build" --prefix "$tree" >/dev/null
export CV_ANOMALY_SCHEMA=$build/anomaly_database/schema.sql
status=0
"$here/../../embedded_host/sandbox" "$tree" /usr/bin/python3 -B "$here/$name.py" "$@" "/usr/tessel/$name.json" || status=$?
mv "$tree/$name.json" "$build/soak/$name.json"
exit "$status"
