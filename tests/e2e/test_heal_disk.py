"""A disk that is full while cvanomalyheal works: nothing is lost, and it is healed when there is room."""

import resource

import machine as host
from conftest import BEGIN
from disks import fill
from gathering import backup, load, rows
from healing import LEDGER, MINUTE, acts, gathered, heal, holes, keys, problems, stored
from service_runs import configure, history_gathered_before, integrity, next_gather, start_with_history


def lose_a_gather(machine):
    """100 backups that are stored, and 300 of which the next gather gets none. Returns the keys of both."""
    history_gathered_before(BEGIN)
    first = [backup(1 + n, BEGIN + 60 + n) for n in range(100)]
    lost = [backup(101 + n, BEGIN + 60 + 15 * MINUTE + n) for n in range(300)]
    load(machine, first)
    machine.start_web_service()
    start_with_history(machine)
    gathered(machine)
    load(machine, lost)
    machine.misbehave("corvane/admin/jobs status 503")
    next_gather(machine)
    machine.misbehave()
    assert stored(machine) == keys(first)
    return keys(first), keys(first + lost)


def assert_healed(machine, all_of_them):
    machine.clock.advance(5 * MINUTE)
    heal(machine)
    assert stored(machine) == all_of_them
    assert holes() == []
    assert acts()[0].startswith("300 backups gathered again: ")
    assert "holes" not in problems(machine)
    machine.stop_service()
    assert integrity(machine) == [("ok",)]


def test_no_room_at_all(disk):
    """The ledger cannot be written either."""
    machine = disk
    first, all_of_them = lose_a_gather(machine)
    fill(machine)
    looked = machine.run("cvanomalyheal", check=False)
    assert looked.returncode == 1
    assert looked.stderr in ("cvanomalyheal: Query failed: database or disk is full\n",
                             "cvanomalyheal: Query failed: disk I/O error\n")  # no room for shared memory
    assert problems(machine)["disk"] == "critical"
    assert stored(machine) == first
    machine.filler.unlink()
    assert_healed(machine, all_of_them)


def test_no_room_for_the_anomaly_database(make_machine):
    machine = make_machine(stepped=True)
    configure(machine)
    first, all_of_them = lose_a_gather(machine)
    most = 500_000
    assert host.DATABASE.with_name(host.DATABASE.name + "-wal").stat().st_size > most
    for _ in range(3):
        machine.run("cvanomalyheal", restore_signals=False,  # so that the limit is an error, and no signal
                    preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most)))
        assert stored(machine) == first
        assert rows(LEDGER, "SELECT attempts, reason FROM hole") == [(0, "Query failed: disk I/O error")]
        assert problems(machine)["holes"] == "warning"
        machine.clock.advance(5 * MINUTE)
    check = machine.run("cvanomalyctl", "check", check=False).stdout
    assert "; 15 min were not gathered, the first from 2026-11-16 20:15 UTC: Query failed: disk I/O error" in check
    assert_healed(machine, all_of_them)
