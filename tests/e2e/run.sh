#!/usr/bin/env bash
# usage: run.sh BUILD_DIRECTORY TEST_FILE
#
# Runs one file of end-to-end tests against what BUILD_DIRECTORY installs, on a machine of its own. Exits
# with 77 (skipped, the reason is printed) where no such machine can be made; in CI that is a failure.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$1
file=$2
name=$(basename "$file" .py)

tree=$build/e2e/$name/tessel
rm -rf "$tree"
mkdir -p "$tree"
cmake --install "$build" --prefix "$tree" >/dev/null
# The service has no standard error; what a sanitizer finds in it goes to a file.
for sanitizer in ASAN UBSAN TSAN; do
  options=${sanitizer}_OPTIONS
  export "$options=${!options:-}:log_path=/usr/tessel/sanitizer"
done
# libfaketime allocates when it is first asked for the time. The allocator must not ask it, with its locks held.
export ASAN_OPTIONS="$ASAN_OPTIONS:allocator_release_to_os_interval_ms=-1"
CV_ANOMALY_SCHEMA=$(realpath "$build/anomaly_database/schema.sql")
export CV_ANOMALY_SCHEMA
status=0
"$here/../../embedded_host/sandbox" "$tree" \
  /usr/bin/python3 -B -m pytest -q -rs -p no:cacheprovider --color=no -x "$here/$file" || status=$?
if [ "$status" -eq 77 ] && [ "${CI:-}" = true ]; then exit 1; fi
if cat "$tree"/sanitizer.* 2>/dev/null; then status=1; fi
if [ "$status" -eq 0 ]; then rm -rf "$build/e2e/$name"; fi # what failed stays to be looked at
exit "$status"
