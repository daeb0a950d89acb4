#!/usr/bin/env bash
# usage: run.sh BUILD_DIRECTORY [WORK...]
#
# How fast the service does its work, as ratios: to the least that the same work can cost (gather_limit.cpp),
# and to what somebody would write instead (user.py). Prints a table and leaves it as JSON in
# BUILD_DIRECTORY/bench/gather.json. Needs 10 GB of disk for a while.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(realpath "$1")
shift

tree=$build/bench/tessel
rm -rf "$tree"
mkdir -p "$tree"
cmake --install "$build" --prefix "$tree" >/dev/null
cp "$build/bench/gather/gather_bench" "$build/bench/gather/gather_limit" "$tree/corvane/bin"
"$here/../../embedded_host/sandbox" "$tree" /usr/bin/python3 -B "$here/bench.py" "$@"
mv "$tree/gather.json" "$build/bench/gather.json"
rm -rf "$tree"
