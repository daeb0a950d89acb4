#!/usr/bin/env bash
# usage: run.sh BUILD_DIRECTORY [MINUTES]     default: 60; the figures go to BUILD_DIRECTORY/soak/soak.json
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(realpath "$1")
tree=$build/soak/tessel
rm -rf "$tree"
mkdir -p "$tree"
cmake --install "$build" --prefix "$tree" >/dev/null
export CV_ANOMALY_SCHEMA=$build/anomaly_database/schema.sql
"$here/../../embedded_host/sandbox" "$tree" \
  /usr/bin/python3 -B "$here/soak.py" "${2:-60}" /usr/tessel/soak.json
mv "$tree/soak.json" "$build/soak/soak.json"
