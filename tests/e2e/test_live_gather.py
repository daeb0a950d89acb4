"""Live gathers: what has ended since the last one, what was still running, and what has to be fetched."""

import pytest

import stand_ins
from conftest import BEGIN
from gathering import backup, load
from machine import SERVICE
from service_runs import (
    configure, history_gathered_before, live_row, next_gather, queue, rows_of, start_with_history,
    windows)


@pytest.fixture
def machine(make_machine):
    """History until BEGIN, detection enabled, the web service up."""
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    configure(machine, detection=0)
    stand_ins.install()
    yield machine
    machine.stop_service()
    stand_ins.remove()


def start(machine, *options):
    machine.start_web_service(*options)
    start_with_history(machine)


def test_what_has_ended_waits_for_detection(machine):
    kept = [
        backup(201, BEGIN + 1),
        backup(202, BEGIN + 100, jobType="DBBACKUP", policyType="POSTGRESQL", applicationType="DATABASE",
               scheduleType="DIFFERENTIAL_INCREMENTAL", streamNumber=4, parentJobId=200, dedupRatio=12.3456789,
               providerGeneratedId=""),
        backup(203, BEGIN + 200, jobType="SNAPDUPE", kilobytesTransferred=0),
        backup(204, BEGIN + 300, kbytes=2**31 - 1, kilobytesTransferred=2**31 - 1, numFiles=2**31 - 1)]
    dropped = [
        backup(205, BEGIN + 100, status=150),
        backup(206, BEGIN + 100, state="SUSPENDED"),
        backup(207, BEGIN + 100, destinationStorageUnitName=" "),
        backup(208, BEGIN + 100, scheduleName="-"),
        backup(209, BEGIN + 100, kilobytesTransferred=0, numFiles=0),
        backup(210, BEGIN + 100, jobType="RESTORE"),
        backup(211, BEGIN + 100, backupTime="2026-11-16T19:00:00.000Z"),  # its image is not of this window
        backup(212, BEGIN)]
    load(machine, kept + dropped)
    start(machine)
    window = next_gather(machine)
    assert window[0] == BEGIN + 1
    assert machine.last_gather_time() == window[1]
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(b) for b in kept]
    assert rows_of(machine, "HIST_DATA") == []
    assert queue(machine) == []
    assert (2, SERVICE, "JobId 205 may be suspended or failed") in machine.log_records()
    assert (2, SERVICE, "JobId 206 may be suspended or failed") in machine.log_records()
    assert machine.log_records(16) == []

    window = next_gather(machine)
    assert window[0] == windows(machine)[0][1] + 1
    machine.await_log(2, SERVICE, f"No new job found between (start time - end time): {window[0]} - {window[1]}")
    assert len(rows_of(machine, "DATA_TO_PROCESS")) == len(kept)


def test_several_pages(machine):
    backups = [backup(number, BEGIN + number) for number in range(1, 232)]
    load(machine, backups)
    start(machine)
    next_gather(machine)
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(b) for b in backups]
    for collection in ("corvane/catalog/images?", "corvane/admin/jobs?"):
        asked = [line for line in machine.requests() if collection in line]
        offsets = [line.partition("page%5Boffset%5D=")[2].partition("&")[0] for line in asked]
        assert offsets == ["0", "100", "200"]


def test_a_running_job_is_queued_and_seen_again_until_it_is_done(machine):
    ended = backup(301, BEGIN + 60)
    short = backup(302, BEGIN + 700, seconds=600)  # runs at the first gather, is done at the second
    long = backup(303, BEGIN + 800, seconds=1500)  # is done at the third
    load(machine, [ended, short, long])
    start(machine)
    next_gather(machine)
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(ended)]
    assert queue(machine) == [(302, BEGIN + 700), (303, BEGIN + 800)]

    assert next_gather(machine)[0] == BEGIN + 700
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(ended), live_row(short)]
    assert queue(machine) == [(303, BEGIN + 800)]

    assert next_gather(machine)[0] == BEGIN + 800
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(b) for b in (ended, short, long)]
    assert queue(machine) == []

    end_of_third = windows(machine)[-1][1]
    assert next_gather(machine)[0] == end_of_third + 1
    assert machine.log_records(16) == []


def test_an_image_can_be_there_before_its_job_is_done(machine):
    made = backup(311, BEGIN + 60)
    load(machine, [made])
    start(machine, "--close-delay", "1200")
    next_gather(machine)
    assert rows_of(machine, "DATA_TO_PROCESS") == []
    assert queue(machine) == [(311, BEGIN + 60)]
    next_gather(machine)
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(made)]


def test_a_queued_job_survives_a_restart(machine):
    running = backup(321, BEGIN + 700, seconds=900)
    load(machine, [running])
    start(machine)
    next_gather(machine)
    assert queue(machine) == [(321, BEGIN + 700)]
    machine.stop_service()
    assert queue(machine) == [(321, BEGIN + 700)]
    start_with_history(machine)
    assert next_gather(machine)[0] == BEGIN + 700
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(running)]


def test_an_image_older_than_the_window_is_fetched_by_its_id(machine):
    snapshots = [
        backup(401 + number, BEGIN + 60 + number, jobType="SNAPDUPE", policyType=policy, backupId=f"nas_{number}",
               backupTime="2026-11-16T19:20:00.000Z", kbytes=5000 + number, providerGeneratedId="vault/7")
        for number, policy in enumerate(("CLOUD", "NAS_DATA_PROTECTION"))]
    gone = backup(403, BEGIN + 90, policyType="CLOUD", backupId="", backupTime="2026-11-16T19:20:00.000Z")
    load(machine, snapshots + [gone])
    start(machine)
    next_gather(machine)
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(b) for b in snapshots]
    for image in ("nas_0", "nas_1"):
        asked = f"Executing API with path:  corvane/catalog/images/{image} "
        assert (2, SERVICE, asked) in machine.log_records()
    assert (2, SERVICE, "Image data could not capture for backupId: ") in machine.log_records()


def test_with_detection_disabled_rows_join_the_history(machine):
    first, second = backup(501, BEGIN + 60), backup(502, BEGIN + 1000)
    load(machine, [first, second])
    configure(machine, detection=1)
    start(machine)
    next_gather(machine)
    assert rows_of(machine, "HIST_DATA") == [live_row(first, status=-1)]
    configure(machine, detection=0)
    machine.await_log(2, SERVICE, "Disable Detection:[0]")
    next_gather(machine)
    assert rows_of(machine, "HIST_DATA") == [live_row(first, status=-1)]
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(second)]
