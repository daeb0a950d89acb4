"""What the gathers lose, cvanomalyheal brings back."""

import os
import signal

import pytest
from conftest import BEGIN
from gathering import backup, load
from healing import HOUR, MINUTE, acts, critical, gathered, heal, holes, keys, problems, stored
from machine import HISTORY_SECONDS, SERVICE, process_ids, wait_until
from service_runs import configure, history_gathered_before, live_row, next_gather, start_with_history


def test_a_first_start_without_the_web_service(make_machine):
    machine = make_machine(stepped=True)
    configure(machine, detection=0)
    backups = [backup(1 + n, BEGIN - HISTORY_SECONDS + 2 * HOUR + n * 6 * HOUR) for n in range(350)]
    load(machine, backups)
    machine.start_service()
    machine.await_log(2, SERVICE, "Historical gather is not done.")
    machine.clock.advance(15 * MINUTE)
    wait_until(machine.last_gather_time, 300, "the history is over")
    assert stored(machine) == []
    heal(machine)  # without an answer it has nothing
    assert problems(machine)["holes"] == "warning"
    check = machine.run("cvanomalyctl", "check", check=False)
    assert check.returncode == 1
    assert "; 91 d were not gathered, the first from 2026-08-17 20:15 UTC: " in check.stdout
    assert stored(machine) == []
    assert len(holes()) == 1
    for _ in range(5):
        next_gather(machine)
    heal(machine)
    assert {"gathers_failed", "holes"} <= critical(machine)

    machine.start_web_service()
    next_gather(machine)
    heal(machine)
    machine.stop_service()
    assert stored(machine) == keys(backups)
    assert holes() == []
    last = machine.query("SELECT * FROM DATA_TO_PROCESS WHERE JOB_ID = 350")
    assert last in ([live_row(backups[-1], status=0)], [live_row(backups[-1], status=1)])


def test_a_web_service_that_is_away_for_hours(make_machine):
    machine = make_machine(stepped=True)
    configure(machine, detection=0)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + n * 5 * MINUTE, seconds=10 + 40 * n) for n in range(77)]
    load(machine, backups)
    start_with_history(machine)
    for _ in range(24):
        next_gather(machine)
    heal(machine)
    assert "gathers_failed" in critical(machine)
    machine.start_web_service()
    next_gather(machine)
    heal(machine)
    for _ in range(8):
        next_gather(machine)
    heal(machine)
    machine.stop_service()
    assert stored(machine) == keys(backups)
    assert [hole for hole in holes() if hole[1] > BEGIN] == []


def test_failed_gathers_while_backups_run(make_machine):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    # One that lasts two hours begins every five minutes.
    backups = [backup(1 + n, BEGIN + 60 + n * 5 * MINUTE, seconds=2 * HOUR) for n in range(60)]
    load(machine, backups)
    machine.start_web_service()
    start_with_history(machine)
    for gather in range(24):
        fails = gather % 6 == 3
        machine.misbehave(*(["corvane/admin/jobs status 503"] if fails else []))
        gathered(machine)
        assert problems(machine).get("holes") == ("warning" if fails else None)
    machine.misbehave()
    gathered(machine, 6)
    machine.stop_service()
    assert any("missing backup" in act for act in acts())
    assert stored(machine) == keys(backups)
    assert [hole for hole in holes() if hole[1] > BEGIN] == []


def test_a_service_that_is_killed_while_it_gathers(make_machine):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * 5 * MINUTE, seconds=HOUR) for n in range(24)]
    load(machine, backups)
    machine.start_web_service()
    daemon = start_with_history(machine)
    next_gather(machine)
    for _ in range(4):
        machine.misbehave("corvane/catalog/images hang 60 count 1")
        begun = machine.logged("Capturing data between ")
        machine.clock.advance(15 * MINUTE)
        wait_until(lambda: machine.logged("Capturing data between ") > begun, 60, "a gather")
        os.kill(daemon, signal.SIGKILL)
        wait_until(lambda: not process_ids(SERVICE), 10, "the service is gone")
        machine.misbehave()
        heal(machine)
        assert "program_absent" in critical(machine)
        daemon = start_with_history(machine)
        gathered(machine)
    gathered(machine, 6)
    machine.stop_service()
    assert stored(machine) == keys(backups)


@pytest.mark.parametrize("oddity", ["surrogate", "nul", "latin1"])
def test_a_name_that_cannot_be_read(make_machine, oddity):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + n) for n in range(151)]
    load(machine, backups)
    machine.start_web_service()
    machine.misbehave(f"corvane/admin/jobs {oddity} 60", f"corvane/catalog/images {oddity} 60")
    start_with_history(machine)
    next_gather(machine)
    assert stored(machine) == []
    heal(machine)
    # Healed within the look, it is no problem any more, but can be seen.
    said = machine.run("cvanomalyctl", "status").stdout
    assert "\nGathers       1 gather since 2026-11-16 20:15, 1 failed, the last at 2026-11-16 20:15\n" in said
    assert "2026-11-16 20:15 151 backups gathered again: " in said
    assert "holes" not in problems(machine)
    assert acts()[0].startswith("151 backups gathered again")
    machine.stop_service()
    assert stored(machine) == keys(backups)
    odd = [name for (name,) in machine.query("SELECT CLIENT FROM HIST_DATA WHERE CLIENT != 'web01'")]
    assert odd != [] and set(odd) == {"\N{REPLACEMENT CHARACTER}web01"}
