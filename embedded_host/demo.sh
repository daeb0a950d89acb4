#!/usr/bin/env bash
# usage: demo.sh BUILD_DIRECTORY DIRECTORY [STARTED]
#
# Makes a fresh installation in DIRECTORY and runs embedded_host/demo.py on it in the sandbox. STARTED is when the
# demo was started, in seconds since the epoch; default: now.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=$1
directory=$2
started=${3:-$EPOCHSECONDS}

rm -rf "$directory"
mkdir -p "$directory/tessel"
cmake --install "$build" --prefix "$directory/tessel" >/dev/null
embedded_host/sandbox "$directory/tessel" /usr/bin/python3 embedded_host/demo.py "$started"
echo "
The installation, with database and log, remains in $directory/tessel:
  sqlite3 $directory/tessel/var/global/anomaly_detection/CV_Anomaly.db
  less $directory/tessel/corvane/logs/cvanomalymgmt
To see what was found, as the operator does:
  embedded_host/sandbox $directory/tessel /usr/tessel/corvane/bin/cvanomalyctl anomalies"
