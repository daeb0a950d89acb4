"""Archives of the deployment utility, loaded by the real service when it gathers its history."""

import contextlib
import json
import os
import shutil
import signal
import sqlite3
import tempfile
import time
from pathlib import Path

import machine as host
import stand_ins
from conftest import BEGIN
from gathering import backup, image, load, rows
from machine import MASTER, SERVICE, process_ids, wait_until
from service_runs import configure, history_gathered_before, next_gather, start_with_history

ROOT = host.TREE / "var/global/incremental"
LOADING = "DataGather::do_cvdeployutil_gather"
DAY = 86400
# The history begins 91 days before the service's first interval is over.
START = BEGIN - 90 * DAY
# Without the web service there is nothing to be slow or to time out: the clock can run very fast.
FAST = 1000


def write_archive(name, lines, start=START, end=BEGIN, master=MASTER, options=True, root=ROOT):
    folder = root / name
    folder.mkdir(parents=True)
    (folder / "master.txt").write_text(master)
    if options:
        (folder / "gather_options.json").write_text(json.dumps({"start": start, "end": end}) + "\n")
    (folder / "qpimagelist.out").write_text("".join(lines))
    return folder


def begin_history(machine):
    """Starts the service and lets its first interval pass; gives its process id."""
    waits = (2, SERVICE, "Historical gather is not done.")
    starts = machine.log_records().count(waits)
    daemon = machine.start_service()
    if isinstance(machine.clock, host.SteppedClock):
        machine.await_log(*waits, count=starts + 1)
        machine.clock.advance(15 * 60)
    return daemon


def finish_history(machine, seconds=60):
    wait_until(machine.last_gather_time, seconds, "the history is done")
    machine.stop_service()


def stored_jobs(machine):
    return {job for (job,) in machine.query("SELECT JOB_ID FROM HIST_DATA")}


def loaded_files(machine):
    """The image lists that were read, in their order."""
    begin = "Collecting data from file: "
    return [text.removeprefix(begin) for _, tag, text in machine.log_records(2)
            if tag == LOADING and text.startswith(begin)]


class HeldList:
    """An archive's image list that the service waits for: a pipe, filled by the test."""

    def __init__(self, folder):
        self._path = folder / "qpimagelist.out"
        self._path.unlink()
        os.mkfifo(self._path)
        self._pipe = None

    def _open(self):
        with contextlib.suppress(OSError):  # nobody reads it yet
            self._pipe = os.open(self._path, os.O_WRONLY | os.O_NONBLOCK)
        return self._pipe is not None

    def wait_for_reader(self):
        wait_until(self._open, 60, "the service opens the image list")

    def write(self, *lines):
        os.write(self._pipe, "".join(lines).encode())

    def end(self):
        os.close(self._pipe)


def test_archives_of_every_kind(make_machine):
    machine = make_machine(speed=FAST)
    elsewhere = host.TREE / "var/global/elsewhere"
    long_line = image(8, START)
    write_archive("good", [image(1, START), image(2, START + 1)])
    write_archive("other-master", [image(3, START)], master="media01.example.com")
    write_archive("newline", [image(4, START)], master=MASTER + "\n")
    write_archive("too-early", [image(5, START)], start=START - 5 * DAY)
    write_archive("too-late", [image(6, START)], end=BEGIN + 5 * DAY)
    write_archive("cut-off", [image(7, START), long_line[:60]])
    write_archive("without-options", [image(9, START)], options=False)
    write_archive("linked", [image(10, START)], root=elsewhere)
    (ROOT / "link").symlink_to(elsewhere / "linked")
    (ROOT / "a-file").write_text("no folder")
    (ROOT / "empty-folder").mkdir()
    write_archive("nothing", ["no entity was found\n"])
    (write_archive("without-list", []) / "qpimagelist.out").unlink()

    begin_history(machine)
    finish_history(machine)

    assert stored_jobs(machine) == {1, 2, 7}
    used = ("good", "cut-off", "nothing", "without-list")
    in_order = [name for name in os.listdir(ROOT) if name in used]
    assert loaded_files(machine) == [
        f"{host.DATABASE_DIR}/../incremental/{name}/qpimagelist.out" for name in reversed(in_order)]
    records = machine.log_records()
    assert records.count((2, SERVICE, "Not a cvdeployutil data directory")) == 1
    bad_line = records.index((16, SERVICE, f"Error while parsing line {long_line[:60]}."))
    assert records[bad_line + 1] == (2, SERVICE, "Issue parsing image. Continue with other images.")
    assert sum(text.startswith("Error while parsing line") for _, _, text in records) == 1
    assert records.count((2, SERVICE, "No data received")) == 1
    assert (2, SERVICE, f"cvdeployutil data captured from time {START} to {BEGIN}") in records


def test_what_the_archives_cover_is_not_asked_for_again(make_machine):
    machine = make_machine(speed=FAST)
    first, second = START + 10 * DAY, BEGIN - 10 * DAY
    write_archive("first", [], start=START, end=first)
    write_archive("second", [], start=second, end=BEGIN)
    begin_history(machine)
    finish_history(machine)
    now = machine.last_gather_time()
    begin = "Capturing data between "
    asked = [tuple(map(int, text.removeprefix(begin).split(" & "))) for _, tag, text in machine.log_records(2)
             if tag == SERVICE and text.startswith(begin) and text.endswith(" ")]
    assert asked
    # The gap between the two counts as covered.
    assert not [window for window in asked if START < window[1] - 1 and window[0] + 1 < BEGIN], asked
    assert (min(asked)[0], max(asked)[1]) == (now - host.HISTORY_SECONDS, now)


def test_the_root_may_be_a_link(make_machine):
    machine = make_machine(speed=FAST)
    ROOT.rmdir()
    real_root = host.TREE / "var/global/moved"
    write_archive("good", [image(1, START)], root=real_root)
    ROOT.symlink_to(real_root)
    begin_history(machine)
    finish_history(machine)
    assert stored_jobs(machine) == {1}


def test_without_a_root_the_whole_history_is_asked_for(make_machine):
    machine = make_machine(speed=FAST)
    ROOT.rmdir()
    begin_history(machine)
    finish_history(machine)
    assert stored_jobs(machine) == set() and loaded_files(machine) == []
    assert (2, SERVICE, "cvdeployutil data captured from time 0 to 0") in machine.log_records()
    assert machine.logged("Could not capture data between ") == 91 * 24


def test_ten_thousand_archives(make_machine):
    machine = make_machine(speed=FAST)
    count = 10_000
    step = (BEGIN - START) // count
    with tempfile.TemporaryDirectory() as memory:  # one synchronised commit each is a matter of the disk
        database_dir = Path(memory, "anomaly_detection")
        database_dir.mkdir()
        host.DATABASE_DIR.symlink_to(database_dir)
        for number in range(count):
            start = START + number * step
            write_archive(f"archive-{number}", [image(number + 1, start)], start=start, end=start + step,
                          root=Path(memory, "incremental"))
        begin_history(machine)
        wait_until(lambda: machine.logged("Collecting cvdeployutil directories..."), 60, "the loading begins")
        began = time.monotonic()
        wait_until(machine.last_gather_time, 120, "the history is done")
        print(f"{count} archives loaded in {time.monotonic() - began:.1f} s")
        machine.stop_service()
        assert machine.query("SELECT COUNT(*), COUNT(DISTINCT JOB_ID), MIN(BACKUP_TIME) FROM HIST_DATA") == [
            (count, count, START)]
        assert len(loaded_files(machine)) == count


def test_a_stop_between_two_archives(make_machine):
    machine = make_machine(speed=FAST)
    for number in range(1, 7):
        write_archive(f"archive-{number}", [image(number, START)])
    order = os.listdir(ROOT)[::-1]
    held_at = order[2]
    held = HeldList(ROOT / held_at)
    daemon = begin_history(machine)

    held.wait_for_reader()
    os.kill(daemon, signal.SIGTERM)
    wait_until(lambda: machine.logged("Intercepted signal SIGTERM. Will stop the service"), 30, "the signal arrives")
    held.write(image(int(held_at[-1]), START))
    held.end()
    wait_until(lambda: not process_ids(SERVICE), 30, "the service ends")

    loaded = {int(name[-1]) for name in order[:3]}
    assert stored_jobs(machine) == loaded
    assert machine.query("SELECT * FROM LAST_BACKUP_DATA_CAPTURE") == []
    events = machine.log_records(4)
    at = events.index((4, LOADING, "Service has been requested to stop"))
    assert events[at + 1] == (4, SERVICE, f"[{LOADING}] intercepted a shutdown request")
    assert len(loaded_files(machine)) == 3

    (ROOT / held_at / "qpimagelist.out").unlink()
    (ROOT / held_at / "qpimagelist.out").write_text(image(int(held_at[-1]), START))
    begin_history(machine)
    finish_history(machine)
    assert stored_jobs(machine) == {1, 2, 3, 4, 5, 6}
    assert len(loaded_files(machine)) == 3 + 6


def test_images_that_cannot_be_stored_take_nothing_else_with_them(make_machine):
    machine = make_machine(speed=FAST)
    for number in range(1, 4):
        write_archive(f"archive-{number}", [image(number, START)])
    order = os.listdir(ROOT)[::-1]
    held = HeldList(ROOT / order[1])
    begin_history(machine)
    held.wait_for_reader()
    with contextlib.closing(sqlite3.connect(host.DATABASE, timeout=10, isolation_level=None)) as other_writer:
        other_writer.execute("BEGIN IMMEDIATE")
        held.write(image(101, START), image(102, START))
        wait_until(lambda: machine.logged("Error inserting data in IMAGE_DATA") == 2, 30, "both images are lost")
        other_writer.execute("ROLLBACK")
    held.write(image(103, START))
    held.end()
    finish_history(machine)
    others = {int(name[-1]) for name in (order[0], order[2])}
    assert stored_jobs(machine) == others | {103}


# One backup each of types whose names differ between the sources, and one whose size differs too.
SAME_BACKUPS = [
    backup(1, BEGIN - 3600, policyType="NAS_DATA_PROTECTION", scheduleType="CUMULATIVE_INCREMENTAL"),
    backup(2, BEGIN - 3500, policyType="POSTGRESQL", streamNumber=3, providerGeneratedId=""),
    backup(3, BEGIN - 3400, kbytes=5_000_000_000)]


def history_of(machine, archive_end):
    """The rows of SAME_BACKUPS: from an archive when it reaches up to them, else over REST."""
    load(machine, SAME_BACKUPS)
    machine.run("cvdeployutil", "-d", START, "-e", archive_end)
    machine.start_web_service()
    begin_history(machine)
    finish_history(machine)
    machine.stop_web_service()
    return machine.query("SELECT * FROM HIST_DATA ORDER BY JOB_ID")


def columns():
    with contextlib.closing(sqlite3.connect(f"file:{host.DATABASE}?mode=ro", uri=True)) as db:
        return [row[1] for row in db.execute("PRAGMA table_info(HIST_DATA)")]


def differences(one, other):
    """column -> (value of the one, value of the other), where two rows differ."""
    return {name: (a, b) for name, a, b in zip(columns(), one, other, strict=True) if a != b}


def test_history_of_the_three_sources_side_by_side(make_machine):
    by_rest = history_of(make_machine(stepped=True), archive_end=BEGIN - 7200)
    machine = make_machine(stepped=True)
    by_archive = history_of(machine, archive_end=BEGIN)
    database = host.TREE / "var/global/tools"
    machine.run("gather_example", database, "historical", START, BEGIN)
    by_tool = rows(database / "CV_Anomaly.db", "SELECT * FROM HIST_DATA ORDER BY JOB_ID")

    assert len(by_rest) == len(SAME_BACKUPS)
    assert by_archive == by_tool
    assert [differences(*pair) for pair in zip(by_rest, by_tool, strict=True)] == [
        {"POLICY_TYPE": ("NAS_DATA_PROTECTION", "NAS-Data-Protection")},
        {"POLICY_TYPE": ("POSTGRESQL", "PostgreSQL")},
        {"POLICY_TYPE": ("STANDARD", "Standard"), "IMAGE_SIZE": (705032704.0, 5e9)}]


def test_live_records_of_two_sources_side_by_side(make_machine, request):
    machine = make_machine(stepped=True)
    request.addfinalizer(stand_ins.remove)
    stand_ins.install()
    configure(machine, detection=0)
    load(machine, [backup(1, BEGIN + 60, policyType="NAS_DATA_PROTECTION", applicationType="NAS", dedupRatio=2.5)])
    history_gathered_before(BEGIN)
    machine.start_web_service()
    start_with_history(machine)
    next_gather(machine)
    machine.stop_service()
    (by_rest,) = machine.query("SELECT * FROM DATA_TO_PROCESS")
    database = host.TREE / "var/global/tools"
    machine.run("gather_example", database, "live", BEGIN, BEGIN + 900)
    (by_tool,) = rows(database / "CV_Anomaly.db", "SELECT * FROM DATA_TO_PROCESS")
    assert differences(by_rest, by_tool) == {
        "POLICY_TYPE": ("NAS_DATA_PROTECTION", "NAS-Data-Protection"), "APP_TYPE": ("NAS", "")}


def test_a_kill_between_two_images(make_machine):
    machine = make_machine(speed=FAST)
    for number in range(1, 4):
        write_archive(f"archive-{number}", [image(number, START)])
    order = os.listdir(ROOT)[::-1]
    held = HeldList(ROOT / order[1])
    daemon = begin_history(machine)
    held.wait_for_reader()
    held.write(image(101, START), "after it a line that is logged\n")
    wait_until(lambda: machine.logged("Issue parsing image"), 30, "the image is stored")
    os.kill(daemon, signal.SIGKILL)
    wait_until(lambda: not process_ids(SERVICE), 30, "the service is gone")
    held.end()
    assert stored_jobs(machine) == {int(order[0][-1])}  # the archive that was complete, nothing of the next
    shutil.rmtree(ROOT / order[1])
    begin_history(machine)
    finish_history(machine)
    assert stored_jobs(machine) == {int(name[-1]) for name in (order[0], order[2])}
    assert machine.query("PRAGMA integrity_check") == [("ok",)]
