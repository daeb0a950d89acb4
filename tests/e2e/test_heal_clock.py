"""A clock that is ahead, and a purge setting that deletes everything: what they delete comes back."""

import pytest
from conftest import BEGIN
from gathering import backup, load
from healing import DAY, MINUTE, critical, gathered, heal, keys, stored
from machine import SERVICE, process_ids, wait_until
from service_runs import configure, history_gathered_before, next_gather, start_with_history


@pytest.mark.parametrize("ahead", [DAY, 400 * DAY])  # the second one purges the whole database
def test_a_clock_that_is_ahead_for_one_gather(make_machine, ahead):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * 5 * MINUTE) for n in range(24)]
    load(machine, backups)
    machine.start_web_service()
    daemon = start_with_history(machine)
    gathered(machine)
    machine.clock.advance(ahead)
    next_gather(machine)
    machine.clock.advance(-ahead - 15 * MINUTE)
    assert "marker_in_future" in critical(machine)
    heal(machine)  # restarts the service, whose clock would let it wait for a day
    wait_until(lambda: process_ids(SERVICE) not in ([], [daemon]), 60, "another service")
    machine.await_log(2, SERVICE, "Historical data captured earlier.", count=2)
    heal(machine)
    gathered(machine, 10)
    machine.stop_service()
    assert stored(machine) == keys(backups)
    assert len(process_ids(SERVICE)) == 0


@pytest.mark.parametrize("months", ["0", "-1", "twelve"])
def test_a_purge_setting_that_deletes_everything(make_machine, months):
    machine = make_machine(stepped=True)
    configure(machine)
    history_gathered_before(BEGIN)
    backups = [backup(1 + n, BEGIN + 60 + n * MINUTE) for n in range(10)]
    load(machine, backups)
    machine.start_web_service()
    start_with_history(machine)
    gathered(machine)
    assert stored(machine) == keys(backups)
    configure(machine, DATABASE_SETTINGS__PURGE_DATA_INTERVAL_IN_MONTHS=months)
    assert "purge_setting" in critical(machine)
    machine.stop_service()
    start_with_history(machine)
    gathered(machine)
    assert stored(machine) == []
    configure(machine)
    machine.stop_service()
    start_with_history(machine)
    gathered(machine)
    machine.stop_service()
    assert stored(machine) == keys(backups)
