#!/usr/bin/python3
"""How long the detection takes with many streams: speed.py PATH_OF_cvanomalydetect [STREAMS [RECORDS]]

CV_ANOMALY_SCHEMA has to be set as anomaly_db.py says; run.sh does.

Fills a database with STREAMS (10,000) streams of RECORDS (365) daily backups each and a new backup for every
stream, then runs cvanomalydetect -once, which reads the history and makes one pass, and once more with the new
backups gone, which only reads. Prints seconds of processor time and the highest memory use; fails above the
limits of 20 s, 10 s and 128 MiB that hold for 10,000 streams of 365 records on one core of its own.
"""

import os
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import anomaly_db  # noqa: E402

FILL = """
WITH RECURSIVE days(d) AS (SELECT {first} UNION ALL SELECT d + 1 FROM days WHERE d < {last}),
streams(s) AS (SELECT 0 UNION ALL SELECT s + 1 FROM streams WHERE s < {streams} - 1)
INSERT INTO {table} SELECT
  printf('client%05d_%d', s, 1700000000 + d * 86400), 1700000000 + d * 86400 + s, printf('client%05d', s),
  'policy', 'STANDARD', 'FULL', 'daily', 'FILE_SYSTEM',
  1000 + s + d + abs(random()) % 10, 500000 + 100 * d + abs(random()) % 5000, s * 1000 + d, s * 1000 + d,
  5000 + abs(random()) % 9000, 0, 0, 100 + abs(random()) % 50, 40 + abs(random()) % 20, 1, {mark},
  'disk-pool01', 1, 'NA', printf('data_%d_client%05d', s * 1000 + d, s)
FROM days, streams
"""


def fill(directory, **what):
    """In a process of its own: a child's peak memory counts from its parent's at the fork."""
    if os.fork() == 0:
        path = f"{directory}/CV_Anomaly.db"
        db = sqlite3.connect(path) if os.path.exists(path) else anomaly_db.create(path)
        db.execute("PRAGMA synchronous=OFF")
        db.execute("PRAGMA cache_size=-400000")
        with db:
            db.execute(FILL.format(**what))
        db.close()
        os._exit(0)
    if os.wait()[1]:
        raise SystemExit("the database could not be filled")


def timed(program, directory):
    begin = time.monotonic()
    process = subprocess.Popen(
        [program, "-database_location", directory, "-config_file", f"{directory}/none.conf", "-once"],
        stdout=subprocess.PIPE, text=True)
    text = process.stdout.read()
    _, status, usage = os.wait4(process.pid, 0)
    if status:
        raise SystemExit(f"{program}: {status}")
    return usage.ru_utime + usage.ru_stime, time.monotonic() - begin, usage.ru_maxrss / 1024, text.strip()


def main():
    program = sys.argv[1]
    streams = int(sys.argv[2]) if len(sys.argv) > 2 else 10000
    records = int(sys.argv[3]) if len(sys.argv) > 3 else 365
    directory = tempfile.mkdtemp(prefix="detect-speed-")
    try:
        fill(directory, first=0, last=records - 1, streams=streams, table="HIST_DATA", mark=-1)
        read_cpu, read_wall, _, _ = timed(program, directory)
        fill(directory, first=records, last=records, streams=streams, table="DATA_TO_PROCESS", mark=0)
        both_cpu, both_wall, memory, said = timed(program, directory)
    finally:
        shutil.rmtree(directory)
    print(f"{streams} streams of {records} records")
    print(f"history read   {read_cpu:6.1f} s of processor time, {read_wall:6.1f} s by the clock")
    print(f"a pass         {both_cpu - read_cpu:6.1f} s of processor time, {both_wall - read_wall:6.1f} s by the clock"
          f"  ({said})")
    print(f"memory         {memory:6.1f} MiB")
    if streams <= 10000 and records <= 365:
        sys.exit(read_cpu > 20 or both_cpu - read_cpu > 10 or memory > 128)


if __name__ == "__main__":
    main()
