"""Gathers without a master server: gather_example on the product's command-line tools, real ones and bad ones."""

import os
import signal
import sqlite3
import stat
import subprocess
from contextlib import closing
from pathlib import Path

import pytest

import machine as host
from conftest import BEGIN, SANITIZED
from gathering import backup, image, load, rows
from machine import wait_until

TOOLS = host.BIN / "admincmd"
SCRATCH_FILES = ("image.out", "jobd.txt")
MEBIBYTE = 1 << 20


class Gatherer:
    """gather_example over a database directory of its own, on the machine's own clock."""

    def __init__(self, machine, directory):
        self.machine = machine
        self.directory = directory

    def command(self, mode, start=BEGIN, end=BEGIN + 3600, *options):
        return [str(host.BIN / "gather_example"), str(self.directory), mode, str(start), str(end), *options]

    def gather(self, mode, *arguments):
        """Returns what it prints; by then none of its temporary files may be left."""
        answer = subprocess.run(self.command(mode, *arguments), env=self.machine.clock.environment,
                                capture_output=True, text=True, timeout=120, check=False)
        assert (answer.returncode, answer.stderr) == (0, "")
        assert not [name for name in SCRATCH_FILES if (self.directory / name).exists()]
        return answer.stdout

    def query(self, sql, *parameters):
        return rows(self.directory / "CV_Anomaly.db", sql, *parameters)

    def log(self):
        return [(level, text) for level, _, text in self.machine.log_records(program="gather_example")]


@pytest.fixture
def gatherer(make_machine):
    return Gatherer(make_machine(real=True), host.TREE / "var/global/tools")


@pytest.fixture
def put_tool():
    """put_tool(name, body): a shell script in a tool's place, body None: nothing. The tool itself is $0.real; its
    place is its own again after the test."""
    replaced = []

    def put(name, body):
        tool = TOOLS / name
        if name not in replaced:
            tool.rename(TOOLS / f"{name}.real")
            replaced.append(name)
        tool.unlink(missing_ok=True)
        if body is not None:
            tool.write_text("#!/bin/sh\n" + body)
            tool.chmod(tool.stat().st_mode | stat.S_IXUSR)

    yield put
    for name in replaced:
        (TOOLS / f"{name}.real").replace(TOOLS / name)


@pytest.fixture
def put_output(put_tool, tmp_path):
    """put_output(name, content): the tool prints this."""

    def put(name, content, then=""):
        file = tmp_path / f"{name}.out"
        file.write_bytes(content if isinstance(content, bytes) else content.encode())
        put_tool(name, f"cat {file}\n{then}")

    return put


@pytest.fixture
def recorded_calls(put_tool, tmp_path):
    """recorded_calls(name): the tool does its work, and each call's arguments become a line of the file."""

    def record(name):
        calls = tmp_path / f"{name}.calls"
        calls.touch()
        put_tool(name, f"printf '<%s>' \"$@\" >>{calls}; echo >>{calls}\nexec \"$0.real\" \"$@\"\n")
        return lambda: calls.read_text().splitlines()

    return record


def stored_jobs(gatherer, table="HIST_DATA"):
    return [job for (job,) in gatherer.query(f"SELECT JOB_ID FROM {table} ORDER BY JOB_ID")]


def start_and_measure(command, environment):
    """Runs it to its end; returns its status and the most memory it had, in MiB."""
    process = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL)
    peak = 0

    def ended():
        nonlocal peak
        for line in Path(f"/proc/{process.pid}/status").read_text().splitlines():
            if line.startswith("VmHWM:"):
                peak = max(peak, int(line.split()[1]) / 1024)
        return process.poll() is not None

    wait_until(ended, 120, "the gather ends")
    return process.returncode, peak


# --- The program itself ---


def test_it_explains_itself(gatherer):
    answer = gatherer.machine.run("gather_example", "--help")
    assert "DATABASE_DIR" in answer.stdout and "--detection-off" in answer.stdout
    for arguments, why in (
            ([], "DATABASE_DIR is required"),
            (["db", "sometimes", 1, 2], "sometimes not in {live,historical}"),
            (["db", "live", 1], "END is required"),
            (["db", "live", "noon", 2], "START"),
            (["db", "live", 1, 1 << 31], "END"),
            (["db", "live", 2, 1], "START is after END"),
            (["/proc/db", "live", 1, 2], "/proc/db: "),
            ([host.BIN / "gather_example", "live", 1, 2], "gather_example: ")):
        answer = gatherer.machine.run("gather_example", *arguments, check=False)
        assert answer.returncode != 0 and why in answer.stderr, arguments
    assert not gatherer.directory.exists()


def test_a_file_that_is_no_database_is_left_alone(gatherer):
    gatherer.directory.mkdir(parents=True)
    (gatherer.directory / "CV_Anomaly.db").write_text("a letter\n" * 1000)
    answer = gatherer.machine.run(*gatherer.command("historical"), check=False)
    assert answer.returncode == 1 and answer.stderr.startswith(f"gather_example: {gatherer.directory}: ")
    assert (gatherer.directory / "CV_Anomaly.db").read_text() == "a letter\n" * 1000


def test_without_a_log_directory_it_logs_to_standard_error(gatherer):
    host.LOGS.rmdir()
    answer = gatherer.machine.run(*gatherer.command("historical"))
    assert "Executing [ qpimagelist  " in answer.stderr and answer.stdout.startswith("HIST_DATA: 0 rows\n")


def test_a_directory_with_an_awkward_name(gatherer):
    load(gatherer.machine, [backup(1, BEGIN)])
    gatherer.directory = host.TREE / "var/global/it's \"a\" \\ %s;DROP\nTABLE"
    assert gatherer.gather("live") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 1 rows\n"


# --- The real tools ---


def test_a_window_without_backups(gatherer):
    load(gatherer.machine, [backup(1, BEGIN - 1)])
    for mode in ("historical", "live"):
        assert gatherer.gather(mode) == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 0 rows\n"
    path = f"{gatherer.directory}/image.out"
    assert gatherer.log() == 2 * [
        (2, f"Capturing data between {BEGIN} & {BEGIN + 3600} "),
        (2, f"Executing [ qpimagelist   -X  -d {BEGIN}  -e  {BEGIN + 3600} -json_compact  ]"),
        (2, f"Parsing file {path}"),
        (2, "No data received"),
        (2, "Total images captured = 0")]


def test_history_takes_images_alone(gatherer, recorded_calls):
    calls_for_images, calls_for_jobs = recorded_calls("qpimagelist"), recorded_calls("qpdbjobs")
    load(gatherer.machine, [backup(1, BEGIN, policyType="NAS_DATA_PROTECTION"), backup(2, BEGIN + 3600)])
    assert gatherer.gather("historical") == "HIST_DATA: 2 rows\nDATA_TO_PROCESS: 0 rows\n"
    assert calls_for_images() == [f"<-X><-d><{BEGIN}><-e><{BEGIN + 3600}><-json_compact>"]
    assert calls_for_jobs() == []
    assert gatherer.query("SELECT * FROM HIST_DATA")[0] == (
        "web01_1", BEGIN, "web01", "nightly", "NAS-Data-Protection", "FULL", "daily", "NONE", 1, 1001.0, 1, -1, -1.0,
        -1, -1, -1, -1.0, 0, -1, "NA", 0, "asset-1", "data_1_web01_1")


def test_120_jobs_are_asked_for_in_3_batches(gatherer, recorded_calls):
    calls = recorded_calls("qpdbjobs")
    # The image list goes by time: the jobs' numbers run backwards.
    load(gatherer.machine, [backup(job, BEGIN + 10 * (1120 - job), parentJobId=7) for job in range(1001, 1121)])
    assert gatherer.gather("live") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 120 rows\n"
    batches = [",".join(map(str, range(first, last, -1)))
               for first, last in ((1120, 1070), (1070, 1020), (1020, 1000))]
    assert calls() == [f"<-jobid><{batch}><-json>" for batch in batches]
    assert [text for _, text in gatherer.log() if text.startswith("Executing [ qpdbjobs")] == [
        f"Executing [ qpdbjobs   -jobid  {batch}  -json   ]" for batch in batches]
    assert gatherer.query("SELECT * FROM DATA_TO_PROCESS ORDER BY JOB_ID")[0] == (
        "web01_1001", BEGIN + 1190, "web01", "nightly", "Standard", "FULL", "daily", "", 1001, 2001.0, 1001, 7, 1501.0,
        BEGIN + 1190, BEGIN + 1250, 60, 1.0, 1, 0, "disk01", 0, "asset-1", "data_1001_web01_1001")


def test_records_of_the_tools_wait_for_detection_even_when_it_is_off(gatherer):
    load(gatherer.machine, [backup(1, BEGIN)])
    assert gatherer.gather("live", BEGIN, BEGIN, "--detection-off") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 1 rows\n"


def test_a_catalog_that_is_missing_is_a_line_that_cannot_be_read(gatherer):
    why = gatherer.machine.run("qpimagelist", "-X", "-d", 1, "-e", 2, "-json_compact", check=False)
    assert why.returncode != 0 and str(host.CATALOG) in why.stderr
    assert gatherer.gather("historical") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 0 rows\n"
    at = next(i for i, (_, text) in enumerate(gatherer.log()) if text.startswith("Error while parsing line "))
    assert gatherer.log()[at:] == [
        (16, f"Error while parsing line {why.stdout}{why.stderr.strip()}."),
        (2, "Issue parsing image. Continue with other images."),
        (2, "Total images captured = 0")]


def multiply_backup(count):
    """Makes the catalog's one backup `count` ones, a second apart: as loading them would, in less time."""
    each = {"job_id": "n", "backup_id": "'web01_' || n", "backup_time": "backup_time + n"}
    with closing(sqlite3.connect(host.CATALOG)) as catalog, catalog:
        columns = [row[1] for row in catalog.execute("PRAGMA table_info(backups)")]
        catalog.execute(
            f"WITH numbers(n) AS (SELECT 2 UNION ALL SELECT n + 1 FROM numbers WHERE n < {count})"
            f" INSERT INTO backups SELECT {', '.join(each.get(name, name) for name in columns)} FROM backups, numbers")


def test_200_000_images_take_no_more_memory_than_one(gatherer):
    count = 200_000
    start = BEGIN - 2 * count
    load(gatherer.machine, [backup(1, start)])
    multiply_backup(count)
    status, peak = start_and_measure(gatherer.command("historical", start, BEGIN), gatherer.machine.clock.environment)
    assert status == 0
    assert gatherer.query("SELECT COUNT(*), MIN(JOB_ID), MAX(JOB_ID), MAX(BACKUP_TIME) FROM HIST_DATA") == [
        (count, 1, count, start + count)]
    print(f"{peak:.1f} MiB for {count} images")
    assert peak < 32 or SANITIZED


# --- Tools that fail ---


def test_a_job_number_read_twice_is_asked_for_twice_and_stored_once(gatherer, put_output, recorded_calls):
    calls = recorded_calls("qpdbjobs")
    load(gatherer.machine, [backup(1, BEGIN), backup(2, BEGIN)])
    put_output("qpimagelist", image(1, BEGIN, backupid="first") + image(1, BEGIN + 1, backupid="second") +
               image(2, BEGIN))
    assert gatherer.gather("live") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 2 rows\n"
    assert calls() == ["<-jobid><1,1,2><-json>"]
    assert gatherer.query("SELECT UNIQUE_KEY, BACKUP_TIME FROM DATA_TO_PROCESS ORDER BY 1") == [
        ("data_1_first", BEGIN), ("data_2_web01_2", BEGIN)]
    assert gatherer.log()[-1] == (2, "Total images captured = 3")


def test_a_hanging_image_list_is_killed_and_what_it_printed_counts(gatherer, put_output, tmp_path):
    pid_file = tmp_path / "pid"
    put_output("qpimagelist", image(1, BEGIN), then=f"echo $$ >{pid_file}.new; mv {pid_file}.new {pid_file}\n"
               "exec sleep 100000\n")
    with subprocess.Popen(gatherer.command("historical"), stdout=subprocess.PIPE, text=True) as process:
        wait_until(pid_file.exists, 30, "the tool hangs")
        assert process.poll() is None
        assert [text for _, text in gatherer.log()][-1].startswith("Executing [ qpimagelist")
        os.kill(int(pid_file.read_text()), signal.SIGKILL)
        assert process.communicate(timeout=30)[0] == "HIST_DATA: 1 rows\nDATA_TO_PROCESS: 0 rows\n"
    assert not (gatherer.directory / "image.out").exists()


def test_a_hanging_jobs_tool_costs_its_batch(gatherer, put_tool, tmp_path):
    load(gatherer.machine, [backup(job, BEGIN + job) for job in range(1, 121)])
    pid_file = tmp_path / "pid"
    put_tool("qpdbjobs", f"case $2 in 51,*) echo $$ >{pid_file}.new; mv {pid_file}.new {pid_file}; exec sleep 100000;;\n"
             "esac\nexec \"$0.real\" \"$@\"\n")
    with subprocess.Popen(gatherer.command("live"), stdout=subprocess.PIPE, text=True) as process:
        wait_until(pid_file.exists, 30, "the tool hangs")
        assert process.poll() is None
        os.kill(int(pid_file.read_text()), signal.SIGKILL)
        assert process.communicate(timeout=30)[0] == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 70 rows\n"
    assert stored_jobs(gatherer, "DATA_TO_PROCESS") == [*range(1, 51), *range(101, 121)]
    assert [entry for entry in gatherer.log() if entry[0] == 16] == [(16, "JSON parsing failed for jobs data ")]
    assert gatherer.log().count((2, "Failed to gather job information.")) == 1
    assert not (gatherer.directory / "jobd.txt").exists()


def test_garbage_costs_its_lines(gatherer, put_output):
    garbage = [b"\x00\x01\x02", b"\xff\xfe{}", b"{", b"[[[", b"{\"a\": 1e999}", b"null", b"%s%n%d", b"<html></html>",
               b"{\"backupid\": \"\\u0000\"}", b"[" * 5000 + b"]" * 5000, b"", b"no entity was found."]
    put_output("qpimagelist", b"\n".join([image(1, BEGIN).encode().strip(), *garbage, image(2, BEGIN).encode()]))
    assert gatherer.gather("historical") == "HIST_DATA: 2 rows\nDATA_TO_PROCESS: 0 rows\n"
    log = gatherer.log()
    bad = [i for i, (level, text) in enumerate(log) if level == 16]
    assert len(bad) == len(garbage)
    for i in bad:
        assert log[i][1].startswith("Error while parsing line ")
        assert log[i + 1] == (2, "Issue parsing image. Continue with other images.")
    assert (16, "Error while parsing line %s%n%d.") in log
    assert log[-1] == (2, "Total images captured = 2")


def test_garbage_from_the_jobs_tool_costs_the_batch(gatherer, put_output):
    load(gatherer.machine, [backup(1, BEGIN)])
    for output in ("", "{}", "[{\"JobId\": 1}", "no such job\n", "[] []", "\0"):
        put_output("qpdbjobs", output)
        assert gatherer.gather("live") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 0 rows\n", output
        assert (2, "Failed to gather job information.") in gatherer.log()[-2:], output
    assert len([level for level, _ in gatherer.log() if level == 16]) == 6


def test_a_tool_that_exits_with_3_is_read_all_the_same(gatherer, put_output):
    load(gatherer.machine, [backup(1, BEGIN)])
    put_output("qpimagelist", image(1, BEGIN), then="exit 3\n")
    put_output("qpdbjobs", "[{\"JobId\": 1, \"StartTime\": 5, \"EndTime\": 7}]", then="exit 3\n")
    assert gatherer.gather("historical") == "HIST_DATA: 1 rows\nDATA_TO_PROCESS: 0 rows\n"
    assert gatherer.gather("live") == "HIST_DATA: 1 rows\nDATA_TO_PROCESS: 1 rows\n"
    assert gatherer.query("SELECT TOTAL_TIME FROM DATA_TO_PROCESS") == [(2,)]


def test_a_missing_image_list_is_an_empty_one(gatherer, put_tool):
    put_tool("qpimagelist", None)
    assert gatherer.gather("historical") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 0 rows\n"
    assert gatherer.log()[-1] == (2, "Total images captured = 0")


def test_a_missing_jobs_tool_costs_the_batch(gatherer, put_tool):
    load(gatherer.machine, [backup(1, BEGIN)])
    put_tool("qpdbjobs", None)
    assert gatherer.gather("live") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 0 rows\n"
    assert gatherer.log()[-3:] == [
        (16, "JSON parsing failed for jobs data "), (2, "Failed to gather job information."),
        (2, "Total images captured = 1")]


def test_what_an_earlier_run_left_is_not_read_again(gatherer, put_tool):
    gatherer.directory.mkdir(parents=True)
    for name in SCRATCH_FILES:
        (gatherer.directory / name).write_text(image(1, BEGIN) * 100)
    load(gatherer.machine, [backup(2, BEGIN)])
    put_tool("qpdbjobs", "exit 0\n")
    assert gatherer.gather("live") == "HIST_DATA: 0 rows\nDATA_TO_PROCESS: 0 rows\n"
    assert (2, "Total images captured = 1") in gatherer.log()
    assert (16, "JSON parsing failed for jobs data ") in gatherer.log()


def test_200_mebibytes_in_lines_take_no_memory(gatherer, put_tool, tmp_path):
    (tmp_path / "line").write_text(image(1, BEGIN, frags="x" * 8000))
    put_tool("qpimagelist", f"yes \"$(cat {tmp_path}/line)\" | head -c {200 * MEBIBYTE}\n")
    status, peak = start_and_measure(gatherer.command("historical"), gatherer.machine.clock.environment)
    assert status == 0 and stored_jobs(gatherer) == [1]
    print(f"{peak:.1f} MiB for 200 MiB in lines")
    assert peak < 32 or SANITIZED
    # The tool was cut off in the middle of its last line.
    assert gatherer.log()[-2][1] == "Issue parsing image. Continue with other images."
    assert not (gatherer.directory / "image.out").exists()


@pytest.mark.parametrize("tool", ["qpimagelist", "qpdbjobs"])
def test_200_mebibytes_in_one_line_are_survived(gatherer, put_tool, tool):
    load(gatherer.machine, [backup(1, BEGIN)])
    put_tool(tool, f"head -c {200 * MEBIBYTE} /dev/zero | tr '\\0' '['\n")
    status, peak = start_and_measure(gatherer.command("live"), gatherer.machine.clock.environment)
    print(f"{peak:.1f} MiB for 200 MiB in one line")
    assert status == 0 and stored_jobs(gatherer, "DATA_TO_PROCESS") == []
    assert peak < 1000 or SANITIZED
    assert len([level for level, _ in gatherer.log() if level == 16]) == 1
    assert (host.LOGS / "gather_example").stat().st_size < 2 * MEBIBYTE


def test_hostile_texts_are_stored_as_they_are(gatherer, put_output):
    hostile = ["'); DROP TABLE HIST_DATA; --", "\"", "a\nb\r\n\tc", "\\", "%s%n", "\u202e\U0001f4be", "x" * MEBIBYTE,
               "..", "/", " ", ""]
    texts = ("client_name", "policy_name", "backupid", "sched_label", "provider_generated_id")
    put_output("qpimagelist", "".join(image(job, BEGIN, **dict.fromkeys(texts, text))
                                      for job, text in enumerate(hostile, 1)))
    load(gatherer.machine, [backup(job, BEGIN) for job in range(1, len(hostile) + 1)])
    for mode, table in (("historical", "HIST_DATA"), ("live", "DATA_TO_PROCESS")):
        gatherer.gather(mode)
        stored = gatherer.query("SELECT JOB_ID, CLIENT, POLICY, BACKUP_ID, SCHEDULE_NAME, ASSET_ID, UNIQUE_KEY"
                                f" FROM {table} ORDER BY JOB_ID")
        assert stored == [(job, text, text, text, text, text or "NA", f"data_{job}_{text}")
                          for job, text in enumerate(hostile, 1)]


def test_hostile_numbers_do_no_harm(gatherer, put_output):
    numbers = {"a": 2**31, "b": -2**31, "c": 2**32 + 5, "d": 2**63 - 1, "e": 1e300, "f": -1.5, "g": True, "h": None,
               "i": [], "j": {}, "k": "12abc", "l": "", "m": "0x10", "n": "nan"}
    names = ("client_type", "sched_type", "num_files", "stream_number", "kbytes")
    put_output("qpimagelist", "".join(image(1, number, backupid=backup_id, **dict.fromkeys(names, number))
                                      for backup_id, number in numbers.items()))
    gatherer.gather("historical")
    # What is no number to SQLite is no size: that image is lost.
    assert dict(gatherer.query("SELECT BACKUP_ID, BACKUP_TIME FROM HIST_DATA")) == {
        "a": -2**31, "b": -2**31, "c": 5, "d": -1, "e": 1, "f": -1, "g": 1, "h": 0, "i": 0, "j": 0, "k": 12, "l": 0,
        "m": 0}
    assert [text for level, text in gatherer.log() if level == 16] == [
        "Error inserting data in IMAGE_DATA sqlite query execution failed."]
