"""Days of the whole system in minutes, while everything fails that can fail; then it is left in peace.

usage, inside embedded_host/sandbox:  chaos.py MINUTES SEED RESULT_FILE

A turn is 15 minutes in less than a second: something drawn goes wrong or ends, the clock is set a gather interval ahead,
the service gathers, cvanomalyheal looks. What the units would do is done here: a service that was killed is started
again, and cvanomalyheal is called.

What must hold in the end: the database has every backup of the catalog once, each has its right verdict (one backup of
each client is encrypted, all others are as usual), people were notified of every encrypted one, and `cvanomalyctl check`
finds nothing that is critical. On the way `check` must tell at once what is wrong, where that does not need time to show.
"""

import contextlib
import fcntl
import json
import os
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(PROJECT / room) for room in ("embedded_host", "tests/e2e", "bench/detect")]
import anomaly_db  # noqa: E402
import machine as host  # noqa: E402
from gathering import backup, load, rows  # noqa: E402
from service_runs import GATHERED, configure, instant  # noqa: E402

MINUTE, HOUR, DAY = 60, 3600, 86400
# Later than the start of any process: that is told by the kernel, which has another clock.
BEGIN = (int(time.time()) // DAY + 2) * DAY
INTERVAL = 15 * MINUTE
EARLIER = 30 * DAY  # of backups that are in the database when it begins
BETWEEN = 5 * MINUTE  # two backups
CLIENTS = 20
TURN_SECONDS = 0.9
QUIET_TURNS = 60  # with a gather
SETTLES_WITHIN = 1500  # seconds
FAULTS = ("status 401", "status 500", "status 503", "garbage", "truncate", "cut", "hang 3")
ODDITIES = ("surrogate", "nul", "latin1")
TOLD = host.TREE / "var/global/told"
COPY = host.TREE / "var/global/copy_of_the_database"
LOCK = host.DATABASE_DIR / "CV_Anomaly_Alerts.lock"


def key(one):
    return f"data_{one['jobId']}_{one['backupId']}"


class Catalog:
    """Each client has a backup every CLIENTS * BETWEEN seconds; one of them, after a third of the time, is encrypted."""

    def __init__(self, seconds, seed):
        figures = random.Random(seed)
        self.backups, self.encrypted = [], []
        starts = range(BEGIN - EARLIER, BEGIN + seconds, BETWEEN)
        attacked = {client: figures.randrange(BEGIN + seconds // 3, BEGIN + seconds // 2) for client in range(CLIENTS)}
        for job, start in enumerate(starts, 1):
            client = job % CLIENTS
            is_encrypted = attacked.get(client, start) < start
            if is_encrypted:
                attacked[client] = BEGIN + 2 * seconds  # never again
            name = f"client{client:02}.example.com"
            one = backup(job, start, seconds=figures.randint(60, 4000 if job % 7 == 0 else 1500), clientName=name,
                         backupId=f"{name}_{start}", kbytes=figures.randint(990_000, 1_010_000),
                         kilobytesTransferred=990_000 if is_encrypted else figures.randint(9_000, 11_000),
                         dedupRatio=1 if is_encrypted else 100, numFiles=figures.randint(9_900, 10_100))
            self.backups.append(one)
            if is_encrypted:
                self.encrypted.append(one)

    def is_calm(self, now):
        """No encrypted backup is being judged then, so that the verdicts do not depend on what goes wrong."""
        return all(not -3 * HOUR < instant(one["endTime"]) - now < 6 * HOUR for one in self.encrypted)


def gathered_before(backups):
    """Leaves the database of a service that has stored these."""
    host.DATABASE_DIR.mkdir(parents=True, exist_ok=True)
    with contextlib.closing(anomaly_db.create(host.DATABASE)) as db, db:
        for one in backups:
            start, end = instant(one["startTime"]), instant(one["endTime"])
            for table, mark in (("HIST_DATA", -1), ("DATA_TO_PROCESS", 1)):
                db.execute(anomaly_db.insert_into(table), anomaly_db.row(
                    one["backupId"], start, one["clientName"], "FULL", "daily", one["numFiles"], one["kbytes"], one["jobId"],
                    one["kilobytesTransferred"], end - start, one["dedupRatio"], mark, policy="nightly", app="",
                    destination="disk01"))
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (BEGIN,))


class Chaos:
    def __init__(self, machine, catalog, seed):
        self.machine = machine
        self.catalog = catalog
        self.draw = random.Random(seed)
        self.ends = []  # (turn, what ends something)
        self.turn = 0
        self.done = {}  # how often each went wrong
        self.healer = None
        self.held = None  # the alerts' lock
        self.unsaid = []  # what `check` did not tell

    # --- What goes wrong ---

    def later(self, end, turns=4):
        self.ends.append((self.turn + self.draw.randint(1, turns), end))

    def server_misbehaves(self):
        self.machine.misbehave(self.draw.choice(FAULTS))
        self.later(self.machine.misbehave)

    def names_are_odd(self):
        oddity, element = self.draw.choice(ODDITIES), self.draw.randint(0, 3)
        self.machine.misbehave(*(f"corvane/{path} {oddity} {element}" for path in ("admin/jobs", "catalog/images")))
        self.later(self.machine.misbehave)

    def server_is_away(self):
        self.machine.stop_web_service()
        self.later(self.machine.start_web_service, turns=12)

    def kill(self, name, how=signal.SIGKILL):
        """Returns the processes that it was done to."""
        processes = host.process_ids(name)
        for process in processes:
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, how)
        return processes

    def must_say(self, name):
        """`check` tells it at once. Without a database there is nothing else that it could tell."""
        said = json.loads(self.machine.run("cvanomalyctl", "check", "--json", check=False).stdout)
        critical = [one["name"] for one in said["problem_list"] if one["level"] == "critical"]
        if name not in critical and (host.DATABASE.exists() or "database_missing" not in critical):
            self.unsaid.append(f"turn {self.turn}: {name}, but {critical or said['status']}")

    def service_is_killed(self):
        time.sleep(self.draw.random())
        if self.kill(host.SERVICE):
            self.must_say("program_absent")

    def companion_is_killed(self):
        name = self.draw.choice(host.COMPANIONS)
        if self.kill(name):
            self.must_say("program_absent")

    def companion_hangs(self):
        name = self.draw.choice(host.COMPANIONS)
        if self.kill(name, signal.SIGSTOP):
            self.must_say("program_hung")
        self.later(lambda: self.kill(name, signal.SIGCONT), turns=20)

    def healer_is_killed(self):
        """Also as at the end of its unit: the look and what it has started are asked to end."""
        time.sleep(0.2 * self.draw.random())
        self.kill("cvanomalyheal", self.draw.choice([signal.SIGKILL, signal.SIGTERM]))

    def lock_is_held(self):
        if self.held is not None:
            return
        self.kill(host.COMPANIONS[1])
        self.held = LOCK.open("a")
        with contextlib.suppress(BlockingIOError):
            fcntl.flock(self.held, fcntl.LOCK_EX | fcntl.LOCK_NB)
        self.later(self.let_go, turns=8)

    def let_go(self):
        self.held.close()
        self.held = None

    def clock_is_ahead(self):
        ahead = self.draw.choice([2 * MINUTE, 5 * MINUTE, HOUR, DAY, 400 * DAY])
        if ahead > DAY and not self.catalog.is_calm(self.machine.clock.now()):
            return
        gathers = self.machine.last_gather_time()
        self.machine.clock.advance(ahead)
        time.sleep(2 * TURN_SECONDS)
        self.machine.clock.advance(-ahead)
        if self.machine.last_gather_time() not in (gathers, None) and self.machine.last_gather_time() > self.machine.clock.now() + MINUTE:
            self.must_say("marker_in_future")

    def configuration_is_malformed(self):
        if not self.catalog.is_calm(self.machine.clock.now()):
            return
        host.CONFIG.write_text(host.CONFIG.read_text() + "a line without an equals sign\n")
        self.must_say("configuration")
        self.later(self.configure, turns=2)

    def everything_is_purged(self):
        if not self.catalog.is_calm(self.machine.clock.now()):
            return
        self.configure(DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS=self.draw.choice(["0", "-1", "twelve"]))
        self.must_say("purge_setting")
        self.restart()
        self.later(lambda: (self.configure(), self.restart()), turns=2)

    def log_is_rotated(self):
        log = host.LOGS / host.SERVICE
        former = log.with_suffix(".1")
        if former.exists():
            former.rename(log.with_suffix(".2"))
        shutil.copy(log, former)
        os.truncate(log, 0)

    def database_is_an_older_copy(self):
        if not self.catalog.is_calm(self.machine.clock.now()):
            return
        with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=30)) as db:
            COPY.write_bytes(db.serialize())
        self.later(self.put_back)

    def put_back(self):
        under_the_running_service = self.draw.random() < 0.5
        if not under_the_running_service:
            self.stop()
        self.remove_database()
        shutil.copy(COPY, host.DATABASE)
        if under_the_running_service:
            if host.process_ids(host.SERVICE):
                self.must_say("database_replaced")
            self.later(self.restart, turns=3)
        else:
            self.start()

    def remove_database(self):
        for file in host.DATABASE_DIR.glob(host.DATABASE.name + "*"):
            file.unlink()

    def database_is_removed(self):
        if self.catalog.is_calm(self.machine.clock.now()):
            self.remove_database()
            self.must_say("database_missing")
            self.later(self.restart, turns=3)

    def gather_time_is_lost(self):
        """As by a kill between the two commits with which it is stored: the history is gathered again."""
        self.stop()
        with contextlib.suppress(sqlite3.OperationalError), contextlib.closing(sqlite3.connect(host.DATABASE, timeout=30)) as db, db:
            db.execute("DELETE FROM LAST_BACKUP_DATA_CAPTURE")
        self.start()

    # --- What the units do, and what people do ---

    def configure(self, **more):
        configure(self.machine, detection=0, alert=0, ALERT_SETTINGS__COMMAND=f"/usr/bin/tee -a {TOLD}", **more)

    def stop(self):
        self.machine.service("-stop")
        deadline = time.monotonic() + 30
        while host.process_ids(host.SERVICE) and time.monotonic() < deadline:
            time.sleep(0.05)
        self.machine.service("-terminate")

    def start(self):
        if not host.process_ids(host.SERVICE):
            self.machine.service("-start")

    def restart(self):
        self.stop()
        self.start()

    def look(self):
        if self.healer is not None and self.healer.poll() is None:
            return
        self.healer = subprocess.Popen([str(host.BIN / "cvanomalyheal")], env=self.machine.clock.environment,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def take_turn(self, wrong):
        self.turn += 1
        for one in [one for one in self.ends if one[0] <= self.turn]:
            self.ends.remove(one)
            one[1]()
        if wrong is not None:
            self.done[wrong.__name__] = self.done.get(wrong.__name__, 0) + 1
            wrong()
        self.machine.clock.advance(INTERVAL)
        time.sleep(TURN_SECONDS)
        self.start()
        self.look()

    def run(self, minutes):
        wrongs = [self.server_misbehaves, self.names_are_odd, self.server_is_away, self.service_is_killed,
                  self.companion_is_killed, self.companion_hangs, self.healer_is_killed, self.lock_is_held,
                  self.clock_is_ahead, self.configuration_is_malformed, self.everything_is_purged,
                  self.log_is_rotated, self.database_is_an_older_copy, self.database_is_removed, self.gather_time_is_lost]
        end = time.monotonic() + minutes * 60
        while time.monotonic() < end:
            self.take_turn(self.draw.choice(wrongs) if self.draw.random() < 0.3 else None)
        while self.ends:
            self.take_turn(None)
        self.machine.misbehave()
        self.settle()

    def settle(self):
        """The service may gather the whole history first, which takes minutes where syncs are slow."""
        gathers, quiet = self.machine.logged(GATHERED), 0
        deadline = time.monotonic() + SETTLES_WITHIN
        while quiet < QUIET_TURNS and time.monotonic() < deadline:
            self.take_turn(None)
            now = self.machine.logged(GATHERED)
            quiet += now > gathers
            gathers = now
        self.healer.wait(300)
        self.machine.run("cvanomalyheal", timeout=300)
        host.wait_until(lambda: not self.waiting(), 300, "all backups are judged")
        time.sleep(10)  # the companions look around

    def waiting(self):
        return rows(host.DATABASE, "SELECT count(*) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = 0")[0][0]

    # --- What came of it ---

    def wrong(self):
        """Whatever does not hold, as texts."""
        last = self.machine.last_gather_time()
        wanted = {key(one) for one in self.catalog.backups if instant(one["endTime"]) < last - HOUR}
        encrypted = {key(one) for one in self.catalog.encrypted} & wanted
        present = set()
        for table in ("HIST_DATA", "DATA_TO_PROCESS"):
            found = rows(host.DATABASE, f"SELECT BACKUP_ID, UNIQUE_KEY FROM {table}")
            present |= {unique for _, unique in found}
            if len(found) != len({backup_id for backup_id, _ in found}):
                yield f"{len(found) - len({backup_id for backup_id, _ in found})} backups twice in {table}"
        missing = sorted(wanted - present)
        if missing:
            yield f"{len(missing)} of {len(wanted)} backups missing, such as {missing[:5]}"
        verdicts = dict(rows(host.DATABASE_DIR / "CV_Anomaly_Detection.db", "SELECT UNIQUE_KEY, VERDICT FROM verdict"))
        for name, found in (("unnoticed", sorted(one for one in encrypted if verdicts.get(one) != 2)),
                            ("false", sorted(one for one, verdict in verdicts.items()
                                             if verdict == 2 and one in wanted - encrypted))):
            if found:
                yield f"{len(found)} of {len(encrypted)} verdicts {name}: {found[:5]}"
        told = TOLD.read_text() if TOLD.exists() else ""
        untold = sorted(one["clientName"] for one in self.catalog.encrypted if key(one) in encrypted and one["clientName"] not in told)
        if untold:
            yield f"nobody was notified of {untold}"
        said = json.loads(self.machine.run("cvanomalyctl", "status", "--json").stdout)
        problems = [one for one in said["problem_list"] if one["level"] == "critical"]
        if problems:
            yield f"check: {problems}"
        if self.unsaid:
            yield f"check did not tell {self.unsaid}"


def main():
    minutes, seed, result_file = float(sys.argv[1]), sys.argv[2], Path(sys.argv[3])
    clock = host.SteppedClock(BEGIN)
    slow_sync = os.environ.get("CV_SLOW_SYNC")
    if slow_sync:
        clock.environment["LD_PRELOAD"] += ":" + slow_sync
    with contextlib.closing(host.Machine(clock)) as machine:
        machine.lay_out()
        turns = minutes * 60 / TURN_SECONDS
        catalog = Catalog(int(turns * INTERVAL), seed)
        load(machine, catalog.backups)
        gathered_before([one for one in catalog.backups if instant(one["endTime"]) <= BEGIN])
        chaos = Chaos(machine, catalog, seed)
        chaos.configure()
        machine.start_web_service()
        machine.start_service()
        chaos.run(minutes)
        wrong = list(chaos.wrong())
        machine.stop_service()
    result = {"seed": seed, "simulated_days": round((clock.now() - BEGIN) / DAY, 1), "turns": chaos.turn,
              "backups": len(catalog.backups), "encrypted": len(catalog.encrypted), "went_wrong": chaos.done, "wrong": wrong}
    result_file.write_text(json.dumps(result, indent=1) + "\n")
    print(json.dumps(result, indent=1))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
