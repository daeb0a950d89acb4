"""Whatever happens to the database, what the server still has comes back."""

import contextlib
import os
import random
import shutil
import signal
import sqlite3

import machine as host
from conftest import BEGIN
from gathering import backup, load
from healing import AFTER_STARTS, DAY, MINUTE, Attacks, acts, critical, gathered, heal, keys, stored
from machine import SERVICE, process_ids, wait_until
from service_runs import configure, history_gathered_before, integrity, next_gather, start_with_history


def test_a_database_that_is_replaced_by_an_older_copy(make_machine):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * 5 * MINUTE) for n in range(12)]
    load(machine, backups)
    machine.start_web_service()
    start_with_history(machine)
    gathered(machine, 2)
    machine.stop_service()
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db:
        copy = db.serialize()
    start_with_history(machine)
    gathered(machine, 2)
    machine.stop_service()
    for file in host.DATABASE_DIR.glob(host.DATABASE.name + "*"):
        file.unlink()
    host.DATABASE.write_bytes(copy)
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db, db:
        db.execute("UPDATE LAST_BACKUP_DATA_CAPTURE SET LAST_BACKUP_TIME = ?", (int(machine.clock.now()),))
    start_with_history(machine)
    gathered(machine, 2)
    machine.stop_service()
    assert any("missing backup" in act for act in acts())
    assert stored(machine) == keys(backups)


def test_a_database_that_is_removed_under_the_running_service(make_machine):
    machine = make_machine(stepped=True, begin=AFTER_STARTS)
    configure(machine)
    history_gathered_before(AFTER_STARTS)
    backups = [backup(1 + n, AFTER_STARTS + 60 + n * 5 * MINUTE) for n in range(12)]
    load(machine, backups)
    machine.start_web_service()
    start_with_history(machine)
    gathered(machine)
    copy = host.DATABASE_DIR / "copy"
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db:
        copy.write_bytes(db.serialize())
    for file in host.DATABASE_DIR.glob(host.DATABASE.name + "*"):
        file.unlink()
    assert machine.run("cvanomalyctl", "check", check=False).returncode == 2
    gathered(machine)
    shutil.move(copy, host.DATABASE)
    assert "database_replaced" in critical(machine)
    gathered(machine)
    machine.stop_service()
    start_with_history(machine)
    gathered(machine, 3)
    machine.stop_service()
    assert "database_replaced" not in critical(machine)
    assert stored(machine) == keys(backups)


def restart_without_gather_time(machine):
    """As after a kill between the two commits with which it is stored: the history is gathered again."""
    machine.stop_service()
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=30)) as db, db:
        db.execute("DELETE FROM LAST_BACKUP_DATA_CAPTURE")
    said = (2, SERVICE, "Historical gather is not done.")
    before = machine.log_records().count(said)
    machine.start_service()
    machine.await_log(*said, count=before + 1)


def test_a_history_that_is_gathered_again_teaches_nothing_that_was_held_out(make_machine):
    """The service was killed between the two commits of the gather's time."""
    machine = make_machine(stepped=True)
    configure(machine, detection=0)
    history_gathered_before(BEGIN)
    attacks = Attacks(machine, BEGIN, nights=3)
    load(machine, attacks.nights[0])
    machine.start_web_service()
    start_with_history(machine)
    attacks.learn_the_usual()
    next_gather(machine)
    wait_until(lambda: attacks.found(0) == 20, 30, "the detection finds the first night")
    restart_without_gather_time(machine)
    machine.clock.advance(15 * MINUTE)
    heal(machine)
    assert "\nLast gather   none yet: the history has not been gathered\n" in machine.run("cvanomalyctl", "status").stdout
    wait_until(machine.last_gather_time, 300, "the history is over")
    machine.clock.advance(DAY - 30 * MINUTE)
    load(machine, attacks.nights[1])
    next_gather(machine)
    wait_until(lambda: attacks.found(1) == 20, 60, "the detection finds the second night")
    heal(machine)
    # The third night comes with the history, which the detection learns.
    machine.clock.advance(DAY)
    load(machine, attacks.nights[2])
    restart_without_gather_time(machine)
    machine.clock.advance(15 * MINUTE)
    wait_until(lambda: attacks.learnt(2) == 20, 300, "the history has the third night")
    wait_until(machine.last_gather_time, 300, "the history is over")
    gathered(machine, 2)
    wait_until(lambda: attacks.found(2) == 20, 60, "the detection finds the third night")
    machine.stop_service()


def test_a_write_ahead_log_that_is_cut_anywhere(make_machine):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * MINUTE) for n in range(40)]
    load(machine, backups)
    machine.start_web_service()
    daemon = start_with_history(machine)
    with contextlib.closing(sqlite3.connect(host.DATABASE)) as db:
        db.execute("PRAGMA wal_checkpoint")  # the tables are not to be cut away
    gathered(machine, 4)
    assert stored(machine) == keys(backups)
    os.kill(daemon, signal.SIGKILL)
    wait_until(lambda: not process_ids(SERVICE), 10, "the service is gone")
    log = host.DATABASE.with_name(host.DATABASE.name + "-wal")
    database, written = host.DATABASE.read_bytes(), log.read_bytes()
    assert len(written) > 100_000
    cut = random.Random(1)
    for _ in range(300):
        for file in host.DATABASE_DIR.glob(host.DATABASE.name + "*"):
            file.unlink()
        host.DATABASE.write_bytes(database)
        log.write_bytes(written[:cut.randrange(len(written))])
        heal(machine)
        assert stored(machine) == keys(backups)
        assert integrity(machine) == [("ok",)]
