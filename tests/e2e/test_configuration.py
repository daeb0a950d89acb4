"""The configuration file, edited before and while the service runs."""

import contextlib
import sqlite3

import pytest

import machine as host
import stand_ins
from conftest import BEGIN
from gathering import backup, load
from machine import SERVICE, process_ids, wait_until
from service_runs import (
    GATHERED, KEEPING, await_end, configure, history_gathered_before, integrity, live_row, next_gather, rows_of,
    start_with_history)
from stand_ins import ALERT, DETECT

FLAG = "ValidateConfigStateFlags"
DAY = 86400
MONTH = 30 * DAY


@pytest.fixture
def machine(make_machine):
    """History until BEGIN, stand-ins for the companions, the web service up."""
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    stand_ins.install()
    load(machine, [backup(601, BEGIN + 60)])
    machine.start_web_service()
    yield machine
    machine.service("-terminate")
    stand_ins.remove()


@contextlib.contextmanager
def flags_taken(machine, management, detection, alert):
    """What is done inside makes the service act on these flags, which is awaited."""
    changes = machine.logged("Disable Alert:[")
    yield
    wait_until(lambda: machine.logged("Disable Alert:[") > changes, 60, "the service acts on the flags")
    shown = [text for _, _, text in machine.log_records(2) if text.startswith("Disable ")]
    assert shown[3 * changes:] == [
        f"Disable Mgmt:[{management}]", f"Disable Detection:[{detection}]", f"Disable Alert:[{alert}]"]


def running():
    return [name for name in host.COMPANIONS if process_ids(name)]


def await_running(*names):
    wait_until(lambda: running() == list(names), 30, f"just {names} running")


def await_a_pass(machine):
    """Waits until the main loop has looked at the file: it complains of invalid flags on every pass."""
    passes = machine.log_records().count(KEEPING)
    machine.await_log(*KEEPING, count=passes + 2)


def test_the_interval_is_read_again_after_every_gather(machine):
    configure(machine, minutes=15)
    start_with_history(machine)
    configure(machine, minutes=30, alert=2)  # the bad flag makes every pass show
    end = next_gather(machine, minutes=15)[1]
    machine.await_log(2, SERVICE, "Using gather frequency as 30 mins")

    machine.clock.advance(28 * 60)
    await_a_pass(machine)
    assert machine.logged(GATHERED) == 1
    machine.clock.advance(2 * 60)
    machine.await_log(2, SERVICE, "Using gather frequency as 30 mins", count=2)
    assert machine.last_gather_time() >= end + 30 * 60

    for text, minutes in (("5", 15), ("abc", 15), ("", 15), ("16 or so", 16), ("4294967316", 20)):
        configure(machine, minutes=text)
        gathers = machine.logged(GATHERED)
        next_gather(machine, minutes=30)
        texts = [text for _, _, text in machine.log_records(2) if text.startswith(GATHERED)]
        assert texts[gathers:] == [f"Using gather frequency as {minutes} mins"]


def test_flags_start_and_stop_the_companions(machine):
    configure(machine, detection=1, alert=1)
    start_with_history(machine)
    for management, detection, alert, expected in (
            (0, 0, 1, [DETECT]), (0, 0, 0, [DETECT, ALERT]), (0, 0, 1, [DETECT]), (0, 1, 0, []),
            (0, 0, 0, [DETECT, ALERT]), (0, 1, 1, [])):
        with flags_taken(machine, management, detection, alert):
            configure(machine, management=management, detection=detection, alert=alert)
        await_running(*expected)


def test_the_management_flag_ends_the_service_and_its_companions(machine):
    configure(machine, detection=0, alert=0)
    start_with_history(machine)
    await_running(DETECT, ALERT)
    configure(machine, management=1, detection=0, alert=0)
    await_end()
    assert running() == []
    texts = [text for _, _, text in machine.log_records(4)]
    assert texts.count("Detection has been disabled. Exiting") == 1
    assert [event["who"] for event in stand_ins.events("asked to end")] == [ALERT, DETECT]

    machine.service("-start")
    await_end()
    assert (16, SERVICE, "cvanomalymgmt service state is disabled. Exiting") in machine.log_records()
    assert machine.logged("Detection has been disabled. Exiting") == 1


def test_invalid_flags_change_nothing(machine):
    configure(machine, detection=0, alert=1)
    start_with_history(machine)
    await_running(DETECT)
    configure(machine, management=2, detection=-1, alert=7)
    await_a_pass(machine)
    for text in ("DISABLE_ANOMALY_DETECTION:[2]", "DISABLE_DETECTION_SERVICE:[-1]", "DISABLE_ALERT_SERVICE:[7]"):
        assert (8, FLAG, "Invalid value received for configuration key " + text) in machine.log_records()
    assert running() == [DETECT]
    next_gather(machine)
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(backup(601, BEGIN + 60))]
    with flags_taken(machine, 0, 0, 0):
        configure(machine, detection=0, alert=0)
    await_running(DETECT, ALERT)


def test_invalid_flags_at_the_start_are_the_end(machine):
    configure(machine, alert=2)
    machine.service("-start")
    await_end()
    assert (8, SERVICE, "Invalid state flags in config file. Exiting") in machine.log_records()
    assert machine.logged("Historical") == 0


def test_a_broken_file_counts_as_none(machine):
    configure(machine, detection=0, alert=1, minutes=45)
    start_with_history(machine)
    await_running(DETECT)
    whole = host.CONFIG.read_text()
    with flags_taken(machine, 0, 1, 1):  # the built-in flags
        host.CONFIG.write_text(whole + "no assignment\n")
    await_running()
    next_gather(machine, minutes=45)
    machine.await_log(2, SERVICE, "Using gather frequency as 15 mins")
    assert rows_of(machine, "HIST_DATA") == [live_row(backup(601, BEGIN + 60), status=-1)]

    with flags_taken(machine, 0, 0, 1):
        host.CONFIG.write_text(whole)
    await_running(DETECT)
    with flags_taken(machine, 0, 1, 1):
        host.CONFIG.unlink()
    await_running()
    next_gather(machine)


def test_flags_without_a_value(machine):
    machine.configure(ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ANOMALY_DETECTION="",
                      ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_DETECTION_SERVICE="",
                      ANOMALY_DETECTION_FUNCTIONALITY__DISABLE_ALERT_SERVICE="",
                      DATA_GATHER_SETTINGS__LIVE_DATA_GATHER_FREQUENCY_IN_MIN="",
                      DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS="")
    start_with_history(machine)
    begin = "Failed to read config value for Detection process state. "
    assert [r for r in machine.log_records(8)][:3] == [
        (8, SERVICE, begin + "Assinging default value."), (8, SERVICE, begin + "Assining default value."),
        (8, SERVICE, begin + "Assining default value.")]
    assert machine.log_records(16) == [
        (16, SERVICE, "Failed to get fetch interval value from configuration. Assigning default value"),
        (16, SERVICE, "Failed to get purge interval value from configuration. Assigning default value")]
    next_gather(machine)
    assert machine.log_records()[-1] == (2, SERVICE, "Using gather frequency as 15 mins")
    assert running() == []


@pytest.mark.parametrize("months, kept_months", [(1, 1), (24, 12)])
def test_old_rows_are_purged_after_a_live_gather(machine, months, kept_months):
    configure(machine, DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS=months)
    start_with_history(machine)
    limit = BEGIN + 15 * 60 - kept_months * MONTH
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=10)) as db, db:
        for table in ("HIST_DATA", "DATA_TO_PROCESS"):
            for job, at, cluster in ((1, limit - DAY, -1), (2, limit - DAY, 5), (3, limit + DAY, -1)):
                row = (f"b{job}", at, "c", "p", "STANDARD", "FULL", "s", "NONE", 1, 1, job, 0, 0, 0, 0, 0, 1, 0,
                       cluster, "NA", 1, "NA", f"data_{job}_b{job}")
                db.execute(f"INSERT INTO {table} VALUES ({','.join('?' * 23)})", row)
        for name, at in (("old", limit - DAY), ("new", limit + DAY)):
            db.execute("INSERT INTO ANOMALY_DATA VALUES (?,'{}',0,'k','c',?)", (name, at))
            db.execute("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES (?,1,?)", (name, at))
    # The purge interval is the one of the start.
    configure(machine, DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS=0)
    window = next_gather(machine)
    begin = "Cleaning records before "
    cut_off = [int(text.removeprefix(begin)) for _, _, text in machine.log_records(2) if text.startswith(begin)]
    assert len(cut_off) == 1
    assert 0 <= cut_off[0] + kept_months * MONTH - window[1] <= 60
    live = 601  # joined the history a moment ago
    assert [row[10] for row in rows_of(machine, "HIST_DATA")] == [2, 3, live]
    assert [row[10] for row in rows_of(machine, "DATA_TO_PROCESS")] == [3]
    for table in ("ANOMALY_DATA", "ANOMALY_DATA_FEEDBACK"):
        assert machine.query(f"SELECT ANOMALY_UNIQUE_ID FROM {table}") == [("new",)]
    assert integrity(machine) == [("ok",)]
