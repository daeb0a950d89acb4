"""The detection companion: started by the service, killed at any moment, while others write."""

import contextlib
import json
import queue
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import threading
import time
from pathlib import Path

import machine as host
import pytest
from machine import process_ids, wait_until
from service_runs import history_gathered_before
from disks import small_disk

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench/detect"))
import anomaly_db  # noqa: E402

DETECT = "cvanomalydetect"
FIRST = 1700000000
DAY = 86400
INTO_HISTORY = anomaly_db.insert_into("HIST_DATA")
INTO_WAITING = anomaly_db.insert_into("DATA_TO_PROCESS")


def daily(client, day, mark, files=1000, kb=1000000, transferred=20000):
    wave = day * 7 % 11 - 5
    time_of_backup = FIRST + day * DAY
    return anomaly_db.row(f"{client}_{time_of_backup}", time_of_backup, client, "FULL", "daily", files + wave,
                          kb + 100 * wave, 1000 + day, transferred + 300 * wave, 60,
                          round(kb / transferred, 4), mark)


def encrypted(client, day, mark=0):
    return daily(client, day, mark, transferred=990000)


def key(row):
    return row.UNIQUE_KEY


class World:
    """A database in a directory of its own, and the program on it."""

    def __init__(self, directory):
        self.directory = Path(directory)
        self.db = anomaly_db.create(self.directory / "CV_Anomaly.db")
        # The commits of the tests need not survive a power failure.
        self.db.execute("PRAGMA synchronous=OFF")

    def insert(self, statement, rows):
        with self.db:
            self.db.executemany(statement, rows)

    def configure(self, least, sensitivity):
        """In one step, as an editor does."""
        fresh = self.directory / "fresh.conf"
        fresh.write_text(f"[ANOMALY_DETECTION_SENSITIVITY]\nSENSITIVITY_PERCENTAGE={sensitivity}\n"
                         f"[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING={least}\n"
                         "MAX_OBSERVATIONS_FOR_TRAINING=3000\nDAYS_FOR_LAST_BACKUP_TO_IGNORE_ANOMALY=365\n"
                         "[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=12\n")
        fresh.rename(self.directory / "anomaly_config.conf")

    def command(self, *more):
        return [str(host.BIN / DETECT), "-database_location", str(self.directory), "-database_file_name",
                "CV_Anomaly.db", "-eps", "2.5", "-min_samples", "3", "-config_file",
                str(self.directory / "anomaly_config.conf"), *more]

    def run(self, *more, check=True):
        return subprocess.run(self.command(*more), check=check, capture_output=True, text=True, timeout=120)

    @contextlib.contextmanager
    def daemon(self):
        process = subprocess.Popen(self.command())
        try:
            yield process
        finally:
            if process.poll() is None:
                process.kill()
            process.wait()

    def query(self, sql, *parameters):
        return self.db.execute(sql, parameters).fetchall()

    def one(self, sql, *parameters):
        return self.query(sql, *parameters)[0][0]

    def waiting(self):
        return self.one("SELECT count(*) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = 0")

    def status(self, row):
        return self.one("SELECT PROCESSED_STATUS FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = ?", key(row))

    def feedback(self, row, value):
        self.insert("INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES (?, ?, 1)",
                    [("anomaly_" + key(row), value)])


@pytest.fixture
def world(tmp_path):
    made = World(tmp_path)
    yield made
    made.db.close()


def test_normal_and_anomalous(world):
    world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)])
    good, bad = daily("a", 40, 0), encrypted("a", 41)
    world.insert(INTO_WAITING, [good, bad])
    assert world.run("-once").stdout == "1 normal, 0 learning, 1 anomalous\n"
    assert (world.status(good), world.status(bad)) == (1, 2)
    assert world.query("SELECT * FROM HIST_DATA WHERE UNIQUE_KEY = ?", key(good)) == [good[:18] + (-1,) + good[19:]]
    assert world.query("SELECT * FROM HIST_DATA WHERE UNIQUE_KEY = ?", key(bad)) == []
    [(name, text, processed, _, client, _)] = world.query("SELECT * FROM ANOMALY_DATA")
    assert (name, processed, client) == ("anomaly_" + key(bad), 0, "a")
    details = json.loads(text)
    assert details["causes"][0]["id"] == "encryption"
    assert details["severity"] == 3
    assert details["last_good"] == {"backup_id": good[0], "time": good[1]}
    explained = json.loads(world.run("-explain", key(bad)).stdout)
    assert explained["state"] == "anomalous"


def test_gathered_again_changes_nothing(world):
    world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)])
    rows = [daily("a", 40, 0), encrypted("a", 41)]
    world.insert(INTO_WAITING, rows)
    world.run("-once")
    world.insert("UPDATE ANOMALY_DATA SET PROCESSED = ?", [(1,)])
    before = [world.query(f"SELECT * FROM {table} ORDER BY 1") for table in ("HIST_DATA", "ANOMALY_DATA")]
    world.insert(INTO_WAITING, rows)
    world.run("-once")
    assert [world.status(row) for row in rows] == [1, 2]
    assert before == [world.query(f"SELECT * FROM {table} ORDER BY 1") for table in ("HIST_DATA", "ANOMALY_DATA")]


def test_feedback_silences_the_same_and_can_be_undone(world):
    world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)])
    first = encrypted("a", 40)
    world.insert(INTO_WAITING, [first])
    with world.daemon():
        wait_until(lambda: world.waiting() == 0, 20, "the first is judged")
        world.feedback(first, 1)
        wait_until(lambda: world.query("SELECT USER_IDENTIFIED_CLUSTER FROM HIST_DATA WHERE UNIQUE_KEY = ?",
                                       key(first)) == [(1,)], 20, "the false positive is in the history")
        again, deleted = encrypted("a", 41), daily("a", 42, 0, files=400, kb=400000)
        world.insert(INTO_WAITING, [again, deleted])
        wait_until(lambda: world.waiting() == 0, 20, "the next are judged")
        assert (world.status(again), world.status(deleted)) == (1, 2)
        # Taken back: only what came in between stays accepted.
        world.feedback(first, 0)
        wait_until(lambda: world.query("SELECT 1 FROM HIST_DATA WHERE UNIQUE_KEY = ?", key(first)) == [], 20,
                   "the row leaves the history")
        more = encrypted("a", 43)
        world.insert(INTO_WAITING, [more])
        wait_until(lambda: world.waiting() == 0, 20, "the last is judged")
        assert world.status(more) == 2


def test_ends_on_sigterm_within_a_second(world):
    world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)])
    world.insert(INTO_WAITING, [daily("a", 40, 0)])
    with world.daemon() as process:
        wait_until(lambda: world.waiting() == 0, 20, "the first pass")
        begin = time.monotonic()
        process.send_signal(signal.SIGTERM)
        assert process.wait(timeout=10) == 0
        assert time.monotonic() - begin < 1 * host.patience


def test_survives_a_missing_locked_and_damaged_database(tmp_path):
    host.LOGS.mkdir(parents=True, exist_ok=True)
    log = host.LOGS / DETECT
    log.unlink(missing_ok=True)
    complaints = lambda: [line for line in log.read_text().splitlines() if "Cannot use the database" in line]  # noqa: E731
    usable_again = lambda: log.read_text().count("The database can be used again")  # noqa: E731
    database = tmp_path / "CV_Anomaly.db"
    (tmp_path / "damaged").write_bytes(b"this is no database" * 1000)
    command = [str(host.BIN / DETECT), "-database_location", str(tmp_path)]
    process = subprocess.Popen(command)
    try:
        wait_until(lambda: log.exists() and len(complaints()) == 1, 20, "the missing database is mentioned")
        (tmp_path / "damaged").rename(database)
        wait_until(lambda: len(complaints()) == 2, 20, "the damaged database is mentioned")
        database.unlink()
        wait_until(lambda: len(complaints()) == 3, 20, "it is missing again")
        world = World(tmp_path)
        world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)])
        world.insert(INTO_WAITING, [daily("a", 40, 0)])
        wait_until(lambda: world.waiting() == 0, 30, "a good database is used")
        wait_until(lambda: usable_again() == 1, 30, "which is said")

        before_the_lock = len(complaints())
        late = encrypted("a", 41)
        process.send_signal(signal.SIGSTOP)  # so that it cannot judge the row before the lock is there
        world.insert(INTO_WAITING, [late])
        other = sqlite3.connect(database, timeout=10, isolation_level=None)
        other.execute("BEGIN IMMEDIATE")
        process.send_signal(signal.SIGCONT)
        wait_until(lambda: len(complaints()) > before_the_lock, 30, "the lock is mentioned")
        assert "trying again: Query failed: database is locked" in complaints()[-1]
        assert world.status(late) == 0
        other.execute("ROLLBACK")
        other.close()
        wait_until(lambda: world.status(late) == 2, 30, "the row is judged once the lock is gone")
        wait_until(lambda: usable_again() == 2, 30, "which is said, too")
        assert len(complaints()) == before_the_lock + 1  # one lock is said once
        world.db.close()
        process.send_signal(signal.SIGTERM)
        assert process.wait(timeout=10) == 0
    finally:
        process.kill()
        process.wait()


def test_reads_its_configuration_again(world):
    host.LOGS.mkdir(parents=True, exist_ok=True)
    log = host.LOGS / DETECT
    log.unlink(missing_ok=True)
    world.configure(least=100, sensitivity=0)
    world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)])
    first, second = encrypted("a", 40), encrypted("a", 41)
    with world.daemon():
        world.insert(INTO_WAITING, [first])
        wait_until(lambda: world.waiting() == 0, 20, "the first is judged")
        assert world.status(first) == 1  # 40 records are too few of 100
        assert world.query("SELECT EPS FROM DBSCAN_MODEL_PARAMS") == [(2.5,)]
        assert "Configuration reloaded" not in log.read_text()
        world.configure(least=30, sensitivity=100)
        wait_until(lambda: log.read_text().count("Configuration reloaded") == 1, 20, "the change is noticed")
        world.insert(INTO_WAITING, [second])
        wait_until(lambda: world.waiting() == 0, 20, "the second is judged")
        assert world.status(second) == 2
        assert world.query("SELECT EPS FROM DBSCAN_MODEL_PARAMS") == [(1.25,)]


def test_survives_a_full_disk():
    directory = small_disk() / "detection"
    directory.mkdir()
    filler = directory / "filler"
    log = host.LOGS / DETECT
    log.unlink(missing_ok=True)
    world = World(directory)
    try:
        world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)])
        rows = [daily("a", day, 0) for day in range(40, 60)] + [encrypted("a", 60)]
        world.insert(INTO_WAITING, rows)
        world.db.execute("PRAGMA wal_checkpoint(TRUNCATE)")
        with contextlib.suppress(OSError), filler.open("wb", buffering=0) as out:
            while out.write(bytes(4096)):
                pass
        with world.daemon():
            wait_until(lambda: log.exists() and "trying again: Query failed: database or disk is full" in log.read_text(),
                       20, "the full disk is mentioned")
            assert world.waiting() == len(rows)
            assert "Anomaly [" not in log.read_text()  # it would say so again each time
            filler.unlink()
            wait_until(lambda: world.waiting() == 0, 30, "all is judged")
        assert log.read_text().count("Anomaly [") == 1
        assert [world.status(row) for row in rows] == [1] * 20 + [2]
        assert world.one("SELECT count(*) FROM HIST_DATA") == 60
        assert world.query("SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA") == [("anomaly_" + key(rows[-1]),)]
    finally:
        world.db.close()
        shutil.rmtree(directory)


def test_options(world):
    assert world.run("-help").returncode == 0
    for wrong in (["-no_such_option"], ["-eps", "-1"], ["-backtest", "soon"], ["-explain"], ["-json"]):
        answer = world.run(*wrong, check=False)
        assert answer.returncode == 2, wrong
        assert "-database_location" in answer.stderr
        assert answer.stdout == ""
    assert world.run("-explain", "no such key", check=False).returncode == 1


def test_backtest_changes_nothing(world):
    world.insert(INTO_HISTORY, [daily("a", day, -1) for day in range(40)] + [encrypted("a", 40, -1)])
    before = (world.directory / "CV_Anomaly.db").read_bytes()
    document = json.loads(world.run("-backtest", "5", "-json").stdout)
    assert (document["judged"], len(document["anomalies"])) == (5, 1)
    assert document["anomalies"][0]["causes"][0]["id"] == "encryption"
    assert "encrypted" in world.run("-backtest", "5").stdout
    assert (world.directory / "CV_Anomaly.db").read_bytes() == before


def fill_for_kills(world, clients, days):
    """Every client has one anomaly in the middle; gives how all has to end."""
    rows, expected = [], {}
    for client in range(clients):
        name = f"c{client:03}"
        world.insert(INTO_HISTORY, [daily(name, day, -1) for day in range(35)])
        for day in range(35, 35 + days):
            bad = day == 35 + days // 2
            rows.append(encrypted(name, day) if bad else daily(name, day, 0))
            expected[key(rows[-1])] = 2 if bad else 1
    return rows, expected


KILLS = 200


class Batches:
    """Writes as the service does, beside the detection; waits 5 seconds for a lock. One batch for each call."""

    def __init__(self, world, rows, size):
        self.path, self.errors, self.asked = world.directory / "CV_Anomaly.db", [], queue.Queue()
        self.batches = [rows[at:at + size] for at in range(0, len(rows), size)]
        self.thread = threading.Thread(target=self.write)
        self.thread.start()

    def write(self):
        db = sqlite3.connect(self.path, timeout=5, isolation_level=None)
        db.execute("PRAGMA synchronous=OFF")
        try:
            for batch in self.batches:
                time.sleep(self.asked.get())
                db.execute("BEGIN IMMEDIATE")
                db.executemany(INTO_WAITING, batch)
                db.execute("COMMIT")
                self.asked.task_done()
        except sqlite3.Error as error:
            self.errors.append(error)
            self.asked.task_done()
        finally:
            db.close()


def kill_at_some_moment(world, rng, batches, in_a_pass):
    """At any moment while rows come in, or soon after the first row was seen judged. What became of the rows
    that waited when the process began: how many there were, and how many wait still."""
    batches.asked.put(0 if in_a_pass else rng.uniform(0, 0.1))
    if in_a_pass:
        batches.asked.join()
    known = world.one("SELECT ifnull(max(rowid), 0) FROM DATA_TO_PROCESS")
    of_these = "SELECT count(*) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = 0 AND rowid <= ?"
    at_first = world.one(of_these, known)
    process = subprocess.Popen(world.command(), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if in_a_pass:
        deadline = time.monotonic() + 20 * host.patience
        while world.one(of_these, known) == at_first and time.monotonic() < deadline:
            pass
        time.sleep(rng.uniform(0, 0.003))
    else:
        time.sleep(rng.uniform(0.005, 0.15))
    process.kill()
    assert process.wait() == -signal.SIGKILL
    if not in_a_pass:
        batches.asked.join()
    return at_first, world.one(of_these, known)


def test_killed_at_random_moments(world):
    rng = random.Random(6)
    rows, expected = fill_for_kills(world, clients=100, days=240)
    history = world.one("SELECT count(*) FROM HIST_DATA")
    batches = Batches(world, rows, len(rows) // KILLS)
    counts = [kill_at_some_moment(world, rng, batches, number % 2 == 1) for number in range(KILLS)]
    batches.thread.join()
    assert batches.errors == []
    interrupted = sum(0 < left < at_first for at_first, left in counts)
    assert interrupted >= KILLS / 5  # in the midst of a pass, not before the first row nor after the last
    world.run("-once")
    assert world.one("PRAGMA integrity_check") == "ok"
    assert dict(world.query("SELECT UNIQUE_KEY, PROCESSED_STATUS FROM DATA_TO_PROCESS")) == expected
    normal = [name for name, status in expected.items() if status == 1]
    assert world.one("SELECT count(*) FROM HIST_DATA") == history + len(normal)
    in_history = {name for (name,) in world.query("SELECT UNIQUE_KEY FROM HIST_DATA")}
    assert set(normal) <= in_history
    reported = [name for (name,) in world.query("SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA")]
    assert sorted(reported) == sorted("anomaly_" + name for name, status in expected.items() if status == 2)


def test_the_service_starts_and_stops_it(make_machine):
    machine = make_machine(real=True)
    history_gathered_before(int(time.time()) - 60)
    machine.configure(ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_DETECTION_SERVICE=0)
    machine.start_service()
    wait_until(lambda: process_ids(DETECT), 60, "the service starts the detection")
    wait_until(lambda: any(text == "Started" for _, _, text in machine.log_records(program=DETECT)), 60,
               "the detection has begun")
    machine.stop_service()
    wait_until(lambda: not process_ids(DETECT), 60, "the service stops the detection")
    assert machine.log_records(16, program=DETECT) == []
