"""An anomaly database for benchmarks and tests, with the service's own schema.

CV_ANOMALY_SCHEMA names the schema's file, BUILD_DIRECTORY/anomaly_database/schema.sql, which the build makes.
"""

import collections
import contextlib
import functools
import os
import sqlite3
from pathlib import Path


@functools.cache
def schema():
    name = os.environ.get("CV_ANOMALY_SCHEMA")
    if not name:
        raise SystemExit("CV_ANOMALY_SCHEMA has to name BUILD_DIRECTORY/anomaly_database/schema.sql")
    return Path(name).read_text()


def create(path):
    db = sqlite3.connect(path, timeout=30)
    db.execute("PRAGMA journal_mode=WAL")
    db.executescript(schema())
    return db


@functools.cache
def row_type():
    """A row of HIST_DATA with its columns as members; of DATA_TO_PROCESS as well, which calls one of them
    PROCESSED_STATUS instead."""
    with contextlib.closing(sqlite3.connect(":memory:")) as db:
        db.executescript(schema())
        columns = [name for _, name, *_ in db.execute("PRAGMA table_info(HIST_DATA)")]
    return collections.namedtuple("Row", columns)


def insert_into(table):
    return f"INSERT OR REPLACE INTO {table} VALUES ({', '.join('?' * len(row_type()._fields))})"


def row(backup_id, time, client, schedule_type, schedule, files, kb, job, transferred, seconds, ratio, mark,
        policy="policy", policy_type="STANDARD", app="FILE_SYSTEM", destination="disk-pool01"):
    return row_type()(
        BACKUP_ID=backup_id, BACKUP_TIME=time, CLIENT=client, POLICY=policy, POLICY_TYPE=policy_type,
        SCHEDULE_TYPE=schedule_type, SCHEDULE_NAME=schedule, APP_TYPE=app, NUM_FILES=files, IMAGE_SIZE=kb,
        JOB_ID=job, PARENT_JOB_ID=job, KB_TRANSFERRED=transferred, START_TIME=time, END_TIME=time + seconds,
        TOTAL_TIME=seconds, DEDUP_RATE=ratio, MODE=1, USER_IDENTIFIED_CLUSTER=mark,
        DESTINATION_STORAGE_NAME=destination, STREAM_NUMBER=1, ASSET_ID="NA", UNIQUE_KEY=f"data_{job}_{backup_id}")
