"""What others on the machine, and the files that the service reads, cannot make of it."""

import stat

import machine as host
from conftest import BEGIN
from machine import COMPANIONS, SERVICE, process_ids, wait_until
from service_runs import await_end, configure, history_gathered_before, start_with_history

HOSTILE_NAMES = ["$(touch /tmp/smuggled)", "`touch /tmp/smuggled`", "a;touch /tmp/smuggled", "a|b", "a&b", "-c",
                 "a'b", 'a"b', "a\\b", "../../a"]


def made_by_the_service():
    made = [path for path in host.DATABASE_DIR.rglob("*") if path != host.CONFIG]
    return [host.DATABASE_DIR, host.LOGS / SERVICE, *made]


def test_what_it_makes_can_be_written_by_its_own_account_alone(machine):
    machine.service("-start", umask=0)  # as careless as a caller can be
    wait_until(host.DATABASE.exists, 30, "the database is there")
    made = made_by_the_service()
    assert host.DATABASE in made
    for path in made:
        assert stat.S_IMODE(path.stat().st_mode) & 0o022 == 0, path
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
