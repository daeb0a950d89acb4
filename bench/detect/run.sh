#!/usr/bin/env bash
# usage: run.sh BUILD_DIRECTORY
#
# What the detection finds on the labelled backups beside simple rules, its DBSCAN beside scikit-learn's, and
# how long it takes with many streams. Needs python3-sklearn and a build with cvanomalydetect and dbscan_bench.
# Fails, once all is printed, when one of them does.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
detect=$(find "$1" -name cvanomalydetect -type f -perm -u+x | head -1)
dbscan=$(find "$1" -name dbscan_bench -type f -perm -u+x | head -1)
CV_ANOMALY_SCHEMA=$(realpath "$1/anomaly_database/schema.sql")
export CV_ANOMALY_SCHEMA
status=0
/usr/bin/python3 "$here/quality.py" "$detect" || status=1
echo
/usr/bin/python3 "$here/dbscan_bench.py" "$dbscan" || status=1
echo
/usr/bin/python3 "$here/speed.py" "$detect" || status=1
exit "$status"
