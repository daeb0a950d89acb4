#!/usr/bin/env bash
# usage: run.sh BUILD_DIRECTORY TEST_FILE [boot]
#
# Runs one file of tests with the packages of BUILD_DIRECTORY in a scratch root, or on a machine that is booted
# for it. Exits with 77 (skipped, the reason is printed) where there can be none; in CI that is a failure for a
# scratch root.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
status=0
world=${3:-scratch_root}
CV_PACKAGES=$(realpath "$1")/packages "$here/$world" \
  /usr/bin/python3 -B -m pytest -q -rs -p no:cacheprovider --color=no -x "$here/$2" || status=$?
if [ "$status" -eq 77 ] && [ "${CI:-}" = true ] && [ "$world" = scratch_root ]; then exit 1; fi
exit "$status"
