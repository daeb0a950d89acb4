"""Whatever empties the database, what was reported is not learnt when it comes back, and what people called a
false positive stays one."""

import contextlib
import sqlite3

import machine as host
from conftest import BEGIN
from gathering import backup, load, rows
from healing import DAY, MINUTE, gathered, heal, keys
from machine import SERVICE, process_ids, wait_until
from service_runs import (CAPTURED_EARLIER, configure, history_gathered_before, live_row, next_gather,
                          start_with_history)

OWN = host.DATABASE_DIR / "CV_Anomaly_Detection.db"
EVERY = {"daily": DAY, "weekly": 7 * DAY}
KNOWN = 40  # backups of each stream before the test


def stream(schedule, client):
    """The usual backups, and that of the test: nothing can be deduplicated any more."""
    first = 1000 * (1 + sorted(EVERY).index(schedule)) + (500 if client == "forgiven" else 0)

    def made(number, transferred):
        at = BEGIN + 60 - number * EVERY[schedule]
        name = f"{client}_{schedule}"
        return backup(first + number, at, clientName=name, scheduleName=schedule, backupId=f"{name}_{at}",
                      numFiles=1000 + number * 7 % 11, kbytes=1_000_000 + number * 7 % 11 * 100,
                      kilobytesTransferred=transferred, dedupRatio=1_000_000 / transferred)

    return [made(number, 20_000 + number * 7 % 11 * 300) for number in range(1, KNOWN + 1)], made(0, 990_000)


class HeldOut:
    """A stream of each kind with a reported backup, and one with a false positive."""

    def __init__(self, machine):
        self.machine = machine
        self.usual, self.reported, self.forgiven = {}, {}, {}
        for schedule in EVERY:
            usual, self.reported[schedule] = stream(schedule, "attacked")
            self.usual[schedule] = usual
            forgiven, self.forgiven[schedule] = stream(schedule, "forgiven")
            self.usual[schedule] += forgiven
        self.held = keys(self.reported.values())
        self.false_positives = keys(self.forgiven.values())

    def catalog(self):
        return [b for usual in self.usual.values() for b in usual] + [*self.reported.values(), *self.forgiven.values()]

    def of(self, table, column, names):
        """The column in each of these rows; None: no such row."""
        marks = ", ".join("?" * len(names))
        sql = f"SELECT UNIQUE_KEY, {column} FROM {table} WHERE UNIQUE_KEY IN ({marks})"
        found = dict(rows(host.DATABASE, sql, *names))
        return [found.get(name) for name in names]

    def anomalies(self):
        found = rows(host.DATABASE, "SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA")
        return {name.removeprefix("anomaly_") for (name,) in found}

    def clusters(self):
        return self.of("HIST_DATA", "USER_IDENTIFIED_CLUSTER", self.false_positives)

    def verdicts(self):
        return {key: verdict for key, *verdict in rows(OWN, "SELECT UNIQUE_KEY, VERDICT, CLUSTER FROM verdict")}

    def begin(self):
        """Starts the service, and detects all four. Returns a copy of the database from before."""
        machine = self.machine
        configure(machine, detection=0)
        history_gathered_before(BEGIN)
        load(machine, self.catalog())
        machine.start_web_service()
        start_with_history(machine)
        columns = ", ".join("?" * len(live_row(self.reported["daily"])))
        with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=30)) as db, db:
            db.executemany(f"INSERT INTO HIST_DATA VALUES ({columns})",
                           [live_row(b, -1) for usual in self.usual.values() for b in usual])
        with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=30)) as db:
            copy = db.serialize()
        gathered(machine)
        wait_until(lambda: self.anomalies() == {*self.held, *self.false_positives}, 30, "all four are reported")
        with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=30)) as db, db:
            db.executemany("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES (?, 1, ?)",
                           [(f"anomaly_{key}", int(machine.clock.now())) for key in self.false_positives])
        wait_until(lambda: self.clusters() == [1, 1], 30, "two are false positives")
        self.assert_verdicts()
        return copy

    def assert_verdicts(self):
        verdicts = self.verdicts()
        assert [verdicts[key] for key in self.held] == [[2, -1], [2, -1]]
        assert [verdicts[key] for key in self.false_positives] == [[2, 1], [2, 1]]

    def judged(self):
        """Waits until nothing waits for the detection."""
        waiting = "SELECT COUNT(*) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = 0"
        wait_until(lambda: rows(host.DATABASE, waiting) == [(0,)], 30, "all rows are judged")

    def assert_held_out(self):
        """Those that lost their anomaly are reported again: all that they were compared with is back."""
        self.judged()
        assert self.anomalies() == {*keys(self.reported.values())}
        assert self.clusters() == [1, 1]
        assert self.of("DATA_TO_PROCESS", "PROCESSED_STATUS", self.held) == [2, 2]
        assert self.of("HIST_DATA", "MODE", self.held) == [None, None]
        self.assert_verdicts()

    def assert_the_next_ones_are_compared_with_usual_ones(self):
        """The same happens again, to all four."""
        machine = self.machine
        at = int(machine.clock.now()) + MINUTE
        following = {b["clientName"]: {**b, "jobId": b["jobId"] + 5000, "backupId": f"{b['clientName']}_{at}",
                                       **{name: backup(1, at)[name] for name in ("startTime", "endTime")}}
                     for b in [*self.reported.values(), *self.forgiven.values()]}
        load(machine, following.values())
        next_gather(machine)
        self.judged()
        assert self.of("DATA_TO_PROCESS", "PROCESSED_STATUS", keys([following["attacked_daily"]])) == [2]
        assert self.of("DATA_TO_PROCESS", "PROCESSED_STATUS", keys([following["forgiven_daily"]])) == [1]
        (key,) = keys([following["attacked_weekly"]])
        usual = [name for name in keys(self.usual["weekly"]) if "attacked" in name]
        known = sum(mark is not None for mark in self.of("HIST_DATA", "MODE", usual))
        if known < 30:
            said = [text for _, _, text in machine.log_records(2, program=host.COMPANIONS[0])]
            assert any("attacked_weekly" in text and text.endswith(f": learning {known} of 30") for text in said), said
        else:
            assert key in self.anomalies()
        machine.stop_service()


def replace_by(copy):
    """Nobody has the database open. Without a copy it is removed."""
    for file in (host.DATABASE, *host.DATABASE_DIR.glob(host.DATABASE.name + "-*")):
        file.unlink(missing_ok=True)
    if copy:
        host.DATABASE.write_bytes(copy)


def put_back_an_older_copy(world, copy):
    world.machine.stop_service()
    replace_by(copy)
    start_with_history(world.machine)
    gathered(world.machine, 2)


def let_the_clock_be_a_year_ahead(world):
    machine = world.machine
    (daemon,) = process_ids(SERVICE)
    starts = machine.log_records().count(CAPTURED_EARLIER)
    machine.clock.advance(400 * DAY)
    next_gather(machine)
    assert world.anomalies() == set()
    machine.clock.advance(-400 * DAY - 15 * MINUTE)
    heal(machine)
    wait_until(lambda: process_ids(SERVICE) not in ([], [daemon]), 60, "another service")
    machine.await_log(*CAPTURED_EARLIER, count=starts + 1)
    gathered(machine, 10)


def let_a_purge_setting_delete_everything(world):
    machine = world.machine
    machine.stop_service()
    configure(machine, detection=0, DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS="0")
    start_with_history(machine)
    gathered(machine)
    assert world.anomalies() == set()
    machine.stop_service()
    configure(machine, detection=0)
    start_with_history(machine)
    gathered(machine, 10)


def remove_the_database(world):
    """The service gathers its history again, and the reported backups with it."""
    machine = world.machine
    machine.stop_service()
    replace_by(None)
    machine.start_service()
    machine.await_log(2, SERVICE, "Historical gather is not done.")
    machine.clock.advance(15 * MINUTE)
    wait_until(machine.last_gather_time, 300, "the history is over")
    gathered(machine, 2)


# One test: the first look at three months takes a minute.
def test_what_was_reported_stays_held_out(make_machine):
    world = HeldOut(make_machine(stepped=True))
    copy = world.begin()
    put_back_an_older_copy(world, copy)
    world.assert_held_out()
    let_the_clock_be_a_year_ahead(world)
    world.assert_held_out()
    let_a_purge_setting_delete_everything(world)
    world.assert_held_out()
    remove_the_database(world)
    world.judged()
    assert world.of("HIST_DATA", "MODE", world.held) == [0, 0]
    assert world.clusters() == [1, 1]
    # They come again to be judged. Of the weekly stream too little is left to be compared with.
    assert world.of("DATA_TO_PROCESS", "PROCESSED_STATUS", world.held) == [2, 2]
    assert world.anomalies() == {*keys([world.reported["daily"]])}
    world.assert_verdicts()
    world.assert_the_next_ones_are_compared_with_usual_ones()
