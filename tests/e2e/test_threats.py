"""What others on the machine, and the files that the service reads, cannot make of it."""

import contextlib
import shutil
import sqlite3
import stat
import subprocess
import tempfile

import machine as host
import pytest
from conftest import BEGIN
from gathering import backup, load
from machine import COMPANIONS, SERVICE, process_ids, wait_until
from service_runs import (await_end, configure, history_gathered_before, live_row, next_gather, rows_of,
                          start_with_history)

HOSTILE_NAMES = ["$(touch /tmp/smuggled)", "`touch /tmp/smuggled`", "a;touch /tmp/smuggled", "a|b", "a&b", "-c",
                 "a'b", 'a"b', "a\\b", "../../a"]


def modes_of_what_was_made():
    """{file name: mode} of what the service and its companions have made."""
    made = [host.DATABASE_DIR, *host.LOGS.iterdir(), *host.DATABASE_DIR.rglob("*")]
    return {path.name: stat.S_IMODE(path.stat().st_mode) for path in made if path != host.CONFIG}


def test_what_it_makes_can_be_written_by_its_own_account_alone(make_machine):
    machine = make_machine(stepped=True)
    machine.service("-start", umask=0)  # as careless as a caller can be
    wait_until(host.DATABASE.exists, 30, "the database is there")
    machine.service("-terminate")
    assert modes_of_what_was_made() == {"anomaly_detection": 0o755, "CV_Anomaly.db": 0o644, SERVICE: 0o644}

    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db, db:
        db.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (?)", (BEGIN,))
    configure(machine, detection=0, alert=0)
    load(machine, [backup(1, BEGIN + 1)])
    machine.start_web_service()
    machine.service("-start", umask=0)
    wait_until(lambda: all(process_ids(companion) for companion in COMPANIONS), 30, "both companions run")
    next_gather(machine)
    wait_until((host.DATABASE_DIR / "CV_Anomaly_Alerts.db").exists, 30, "the alerts have their database")
    modes = modes_of_what_was_made()
    assert modes.keys() >= {"CV_Anomaly.db", "CV_Anomaly_Alerts.db", SERVICE, *COMPANIONS}
    for name, mode in modes.items():
        assert mode & 0o022 == 0, name
    for name in ("CV_Anomaly_Alerts.db", "CV_Anomaly_Detection.db"):
        assert modes[name] == 0o640
    machine.service("-terminate")


def test_hostile_texts_of_the_web_service_are_data(make_machine):
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    configure(machine)
    forged = "a\n2026-11-16T20:00:00.000Z 1 16 cvanomalymgmt: forged"
    hostile = [backup(number, BEGIN + number, clientName=text, policyName=text, scheduleName=text)
               for number, text in enumerate(["'); DROP TABLE HIST_DATA; --", forged, "%s%n", "\u202e"], 1)]
    load(machine, hostile)
    machine.start_web_service()
    start_with_history(machine)
    next_gather(machine)
    assert rows_of(machine, "HIST_DATA") == [live_row(b, -1) for b in hostile]
    assert machine.log_records(16) == []
    machine.service("-terminate")


def test_the_masters_name_is_no_way_to_a_shell(machine):
    settings = host.TREE / "corvane/corvane.conf"
    sound = settings.read_text()
    for name in HOSTILE_NAMES:
        settings.write_text(sound.replace(f"servers={host.MASTER}", f"servers={name}"))
        before = len(machine.log_records())
        machine.service("-start")
        await_end()
        assert (16, SERVICE, "Failed to populate config parameters") in machine.log_records()[before:], name
        for companion in COMPANIONS:
            assert process_ids(companion) == []
    assert not host.Path("/tmp/smuggled").exists()


def test_a_hostile_name_that_comes_while_it_runs_starts_nothing(machine):
    history_gathered_before(BEGIN)
    configure(machine)
    start_with_history(machine)
    settings = host.TREE / "corvane/corvane.conf"
    settings.write_text(settings.read_text().replace(f"servers={host.MASTER}", f"servers={HOSTILE_NAMES[0]}"))
    configure(machine, detection=0, alert=0)
    machine.await_log(16, SERVICE, "fetching master name failed, it is empty", count=2)
    for companion in COMPANIONS:
        assert process_ids(companion) == []
    assert not host.Path("/tmp/smuggled").exists()
    machine.service("-terminate")


NOBODY = {"user": 65534, "group": 65534, "extra_groups": []}


def test_another_users_process(machine):
    try:
        subprocess.run(["true"], check=True, **NOBODY)
    except (OSError, subprocess.SubprocessError) as error:
        pytest.skip(f"there is no other user here: {error}")
    daemon = machine.start_service()
    for option in ("-stop", "-terminate"):
        machine.service(option, **NOBODY)
        assert process_ids(SERVICE) == [daemon]
    machine.service("-terminate")
    await_end()
    directory = host.Path(tempfile.mkdtemp())
    directory.chmod(0o755)
    shutil.copy(shutil.which("sleep"), directory / SERVICE)
    impostor = subprocess.Popen([directory / SERVICE, "600"], **NOBODY)
    try:
        wait_until(lambda: process_ids(SERVICE) == [impostor.pid], 10, "it has the daemon's name")
        assert f"{SERVICE} service is already running" in machine.service("-start").stdout
        wait_until(lambda: process_ids(SERVICE) == [impostor.pid], 10, "the one that was to be started is gone")
    finally:
        impostor.kill()
        impostor.wait()
        shutil.rmtree(directory)
