"""cvanomalyctl beside the running service, on a terminal, and against its own documentation."""

import contextlib
import fcntl
import json
import os
import pty
import re
import select
import signal
import sqlite3
import struct
import subprocess
import termios
import threading
import time

import machine as host
import pytest
from conftest import BEGIN
from gathering import backup, load
from machine import process_ids, wait_until
from operator_world import CTL, DAY, PROJECT, World, anomaly_db, need
from service_runs import configure, history_gathered_before, next_gather, start_with_history
from disks import small_disk

NO_DISK = ("--disk-warning", "0", "--disk-critical", "0")


@pytest.fixture
def world(tmp_path):
    made = World(tmp_path)
    yield made
    made.db.close()


# --- Beside the service ---


def ctl(machine, *arguments):
    return machine.run(CTL, *arguments, check=False)


def status(machine):
    return json.loads(ctl(machine, "status", "--json").stdout)


def test_beside_the_running_service(make_machine):
    machine = make_machine(stepped=True)
    load(machine, [backup(1, BEGIN + 300), backup(2, BEGIN + 320)])
    machine.start_web_service()
    configure(machine, detection=0, alert=0)
    host.DATABASE_DIR.chmod(0o750)  # as the package makes it
    history_gathered_before(BEGIN)
    start_with_history(machine)
    wait_until(lambda: all(process_ids(name) for name in host.COMPANIONS), 30, "the companions run")
    begin, end = next_gather(machine)
    wait_until(lambda: status(machine)["records"]["waiting"] == 0, 30, "the detection has judged")
    machine.run("cvanomalyheal")
    said = status(machine)
    assert [process["running"] for process in said["processes"]] == [True, True, True]
    assert [process["process"] for process in said["processes"]] == [
        process_ids(name)[0] for name in (host.SERVICE, *host.COMPANIONS)]
    assert said["gather"]["last"] == end
    assert (said["gather"]["log"]["gathers"], said["gather"]["log"]["failed"]) == (1, 0)
    assert (said["records"]["history"], said["records"]["to_process"]) == (2, 2)
    assert said["streams"] == {"total": 1, "learning": 1, "judged": 0, "dormant": 0}
    answer = ctl(machine, "check", *NO_DISK)
    assert (answer.returncode, answer.stdout[:10]) == (0, "ANOMALY OK"), answer.stdout

    machine.misbehave("500 *")
    machine.stop_web_service()
    next_gather(machine)
    machine.run("cvanomalyheal")
    assert status(machine)["gather"]["log"]["failed"] == 1
    os.kill(process_ids("cvanomalydetect")[0], signal.SIGKILL)
    wait_until(lambda: not process_ids("cvanomalydetect"), 10, "the detection is dead")
    answer = ctl(machine, "check", *NO_DISK)
    assert (answer.returncode, answer.stderr) == (2, "")
    assert answer.stdout.startswith("ANOMALY CRITICAL - cvanomalydetect is not running"), answer.stdout
    os.kill(process_ids(host.SERVICE)[0], signal.SIGKILL)
    wait_until(lambda: not process_ids(host.SERVICE), 10, "the service is dead")
    assert status(machine)["records"]["history"] == 2  # from the log that it left
    machine.clock.advance(DAY)
    answer = ctl(machine, "check", *NO_DISK)
    assert re.match(r"ANOMALY CRITICAL - cvanomalymgmt is not running; .*last gather 24 h", answer.stdout)


def test_a_fresh_machine_has_no_database(machine):
    answer = ctl(machine, "status")
    assert (answer.returncode, answer.stdout) == (3, "")
    assert answer.stderr.count("\n") == 1 and str(host.DATABASE) in answer.stderr
    assert ctl(machine, "check").returncode == 3


def test_writers_are_not_held_up(world):
    ended = threading.Event()
    commits = []

    def write():
        with contextlib.closing(sqlite3.connect(world.path, timeout=0)) as db:
            db.execute("PRAGMA synchronous=OFF")
            while not ended.is_set():
                with db:
                    db.execute("UPDATE LAST_BACKUP_DATA_CAPTURE SET LAST_BACKUP_TIME = LAST_BACKUP_TIME + 1")
                commits.append(1)
                if len(commits) % 50 == 0:
                    db.execute("PRAGMA wal_checkpoint(PASSIVE)")

    writer = threading.Thread(target=write)
    writer.start()
    try:
        for _ in range(5):
            for command in (("status",), ("streams",), ("anomalies",), ("metrics",), ("show", world.bad.BACKUP_ID)):
                answer = world.run(*command)
                assert (answer.returncode, answer.stderr) == (0, "")
        assert writer.is_alive()  # a lock would have ended it
    finally:
        ended.set()
        writer.join()
    assert len(commits) > 100
    assert world.db.execute("PRAGMA wal_checkpoint(TRUNCATE)").fetchone()[0] == 0


def test_a_locked_database(world):
    world.db.close()
    with contextlib.closing(sqlite3.connect(world.path)) as db:
        db.execute("PRAGMA locking_mode=EXCLUSIVE")
        db.execute("BEGIN EXCLUSIVE")
        begin = time.monotonic()
        answer = world.run("status")
        assert 4 < time.monotonic() - begin < 30
        assert (answer.returncode, answer.stdout) == (4, "")
        assert answer.stderr == f"cvanomalyctl: {world.path} is locked by another program. Try again later.\n"
        assert world.run("check").returncode == 3
    assert world.run("status").returncode == 0


def test_a_full_disk_does_not_look_like_success(world):
    with open("/dev/full", "w") as full:
        answer = subprocess.run(world.command("streams"), stdout=full, stderr=subprocess.PIPE, text=True, timeout=60)
    assert (answer.returncode, answer.stderr) == (
        8, "cvanomalyctl: Cannot write to standard output: No space left on device.\n")
    with open("/dev/full", "w") as full:
        answer = subprocess.run(world.command("check"), stdout=full, stderr=subprocess.PIPE, text=True, timeout=60)
    assert (answer.returncode, answer.stderr) == (
        3, "cvanomalyctl: Cannot write to standard output: No space left on device.\n")
    page = small_disk() / "report.html"
    page.write_text("former")
    filler = page.parent / "filler"
    with contextlib.suppress(OSError), filler.open("wb", buffering=0) as out:
        while out.write(bytes(65536)):
            pass
    try:
        answer = world.run("report", "--html", page)
        assert (answer.returncode, page.read_text()) == (8, "former")
        assert list(page.parent.glob(".report.html*")) == []
    finally:
        filler.unlink()
        page.unlink()


# --- On a terminal ---


def on_terminal(command, columns=80, **environment):
    """What the command writes to a terminal of so many columns."""
    ours, its = pty.openpty()
    fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    process = subprocess.Popen(command, stdin=its, stdout=its, stderr=its, env={
        "PATH": os.environ["PATH"], "TERM": "xterm", "LANG": "C.UTF-8", **environment})
    os.close(its)
    said = b""
    while select.select([ours], [], [], 60)[0]:
        try:
            said += os.read(ours, 65536)
        except OSError:  # its end is closed
            break
    os.close(ours)
    assert process.wait() == 0
    return said.decode()


def test_colour_only_on_a_terminal(world):
    assert "\x1b[31m" in on_terminal(world.command("anomalies"))
    assert "\x1b" not in on_terminal(world.command("anomalies"), NO_COLOR="1")
    assert "\x1b" not in on_terminal(world.command("anomalies", "--no-color"))
    assert "\x1b" not in on_terminal(world.command("anomalies"), TERM="dumb")
    assert "\x1b" not in world.run("anomalies").stdout


@pytest.mark.parametrize("columns", [60, 80, 132])
def test_tables_fit_the_terminal(world, columns):
    for command in (("streams",), ("anomalies",), ("show", world.bad.BACKUP_ID)):
        for line in on_terminal(world.command(*command), columns, NO_COLOR="1").split("\r\n"):
            assert len(line) <= columns or " " not in line.strip(), line
    assert "\N{HORIZONTAL ELLIPSIS}" in on_terminal(world.command("anomalies"), 80)


def test_a_terminal_without_utf8(world):
    assert on_terminal(world.command("show", world.bad.BACKUP_ID), LANG="C").isascii()


def test_times_are_local_or_utc(world):
    last = world.now - 60
    for zone, flags in (("Asia/Tokyo", ()), ("UTC", ("--utc",))):
        said = world.run("status", *flags, env={"TZ": "Asia/Tokyo"}).stdout
        wanted = subprocess.run(["date", "-d", f"@{last}", "+%Y-%m-%d %H:%M"], env={"TZ": zone}, capture_output=True,
                                text=True, check=True).stdout.strip()
        assert f"Last gather   {wanted}" in said


def completions(world, *words, setup=""):
    script = (f"PATH={host.BIN}:$PATH; source {PROJECT}/operator_tool/completion/cvanomalyctl.bash; {setup}"
              'COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _cvanomalyctl; printf "%s\\n" "${COMPREPLY[@]}"')
    answer = subprocess.run(["bash", "-c", script, "bash", CTL, *words], capture_output=True, text=True, timeout=60,
                            check=True)
    assert answer.stderr == ""
    return answer.stdout.split()


def test_completion_of_bash(world, tmp_path):
    assert completions(world, "st") == ["status", "streams"]
    assert completions(world, "anomalies", "--se") == ["--severity"]
    assert completions(world, "anomalies", "--not") == ["--not-reviewed"]
    assert completions(world, "anomalies", "--o") == ["--ongoing"]
    assert completions(world, "--utc", "check", "--disk") == ["--disk-warning", "--disk-critical"]
    assert completions(world, "anomalies", "--severity", "") == ["1", "2", "3"]
    assert completions(world, "streams", "--state", "l") == ["learning"]
    assert str(world.path) in completions(world, "--database", str(tmp_path / "CV_A"))
    ids = completions(world, "--database", str(world.path), "show", "anomaly_")
    assert ids[0] == "anomaly_" + world.bad.UNIQUE_KEY and len(ids) == 2
    witness = tmp_path / "witness"
    with world.db:
        world.db.execute("UPDATE ANOMALY_DATA SET ANOMALY_UNIQUE_ID = ANOMALY_UNIQUE_ID || ?",
                         (f"$(touch {witness})`touch {witness}`",))
    assert completions(world, "--database", str(world.path), "show", "anomaly_") == []
    assert not witness.exists()


def test_completion_knows_every_option(world):
    """What --help names is completed, and nothing else."""
    help_of = lambda *words: world.run(*words, "--help").stdout  # noqa: E731
    commands = re.findall(r"^  (\w+) ", help_of().split("Subcommands:")[1], re.M)

    def options_of(*words):
        lines = re.findall(r"^  (-[\w,-]+)", help_of(*words), re.M)
        return [name for line in lines for name in line.split(",") if name.startswith("--")]

    general = options_of()
    assert sorted(completions(world, "")) == sorted(commands + general)
    for command in commands:
        assert set(completions(world, command, "--")) == {*options_of(command), *general}, command


# --- For programs ---


def test_metrics_are_prometheus_own(world, tmp_path):
    need("promtool")
    target = tmp_path / "cvanomaly.prom"
    assert world.run("metrics", "--output", target).stdout == ""
    text = target.read_text()
    assert text == world.run("metrics").stdout or "cvanomaly_rows_waiting 1\n" in text
    checked = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, timeout=60)
    assert (checked.returncode, checked.stdout, checked.stderr) == (0, "", "")
    assert list(tmp_path.glob(".cvanomaly*")) == []


def members(value, path=""):
    """(path, type) of all that a document holds, as the documentation writes them; an empty array holds "nothing"."""
    if isinstance(value, dict) and value:
        for name, inner in value.items():
            yield from members(inner, f"{path}.{name}" if path else name)
    elif isinstance(value, list):
        if not value:
            yield path + "[]", "nothing"
        for inner in value:
            yield from members(inner, path + "[]")
    else:
        names = {bool: "boolean", int: "integer", float: "number", str: "text", type(None): "null", dict: "object"}
        yield path, names[type(value)]


def documented(section):
    """{member: type} of a section, with the members of the objects that have a section of their own."""
    text = (PROJECT / "docs/operator-tool.md").read_text()
    rows = re.search(rf"^### {section}\n(.*?)(?=^### |\Z)", text, re.M | re.S)[1]
    table = {}
    for path, kind in re.findall(r"^\| `([^`]+)` \| ([^|]+?) \|", rows, re.M):
        table[path] = kind
        inner = {}
        if "details" in kind.split(" or "):
            inner = documented("details")
        elif kind == "anomaly":
            inner = {name.removeprefix("anomalies[]."): known for name, known in documented("anomalies").items()}
        table.update({f"{path}.{name}": known for name, known in inner.items()})
    return table


def fits(kind, wanted):
    return kind in wanted.split(" or ") or (kind == "integer" and "number" in wanted.split(" or "))


def lies_in(path, outer):
    return path.startswith((outer + ".", outer + "[")) or (outer.endswith("[]") and path.startswith(outer))


def expect_documented(document, command):
    """Whatever is in the document is documented, and the other way round."""
    assert (document.pop("schema"), document.pop("command")) == (1, command)
    wanted = documented(command)
    seen, empty = set(), set()
    for path, kind in members(document):
        seen.add(path)
        if kind in ("nothing", "null"):
            empty.add(path)
        any_name = path.rpartition(".")[0] + ".*"
        if kind == "nothing":
            assert any(name.startswith(path) for name in wanted), f"{path} is not documented"
        elif path + ".*" in wanted:
            assert kind == "object"
        elif any_name in wanted:
            assert fits(kind, wanted[any_name])
            seen.add(any_name)
        else:
            assert path in wanted, f"{path} is not documented"
            assert fits(kind, wanted[path]), f"{path} is {kind}, documented as {wanted[path]}"
    assert [name for name, kind in wanted.items() if name not in seen and "absent" not in kind.split(" or ")
            and not any(lies_in(path, name) for path in seen) and not any(lies_in(name, path) for path in empty)] == []


def make_ledger(world):
    """As cvanomalyheal leaves it after a look that found one gather of 9 seconds."""
    config = world.directory / "look_only.conf"
    config.write_text("[HEALING_SETTINGS]\nHEAL=0\n")
    subprocess.run([str(host.BIN / "cvanomalyheal"), "-database_location", str(world.directory), "-database_file_name",
                    "CV_Anomaly.db", "-config_file", str(config)], check=False, timeout=60, stderr=subprocess.DEVNULL)
    with contextlib.closing(sqlite3.connect(world.directory / "CV_Anomaly_Coverage.db")) as db, db:
        db.execute("INSERT INTO look (time) VALUES (?)", (world.now,))
        db.execute("INSERT INTO gather (is_live, start, until, began, ended, outcome, reason) "
                   "VALUES (1, ?, ?, ?, ?, 0, '')", tuple(world.now - ago for ago in (900, 70, 69, 60)))


@pytest.fixture
def told_world(world):
    """With a ledger, and a channel of the alerts that fails."""
    make_ledger(world)
    elsewhere = world.directory / "elsewhere"
    elsewhere.mkdir()
    anomaly_db.create(elsewhere / "CV_Anomaly.db").close()
    subprocess.run([str(host.BIN / "cvanomalyalert"), "-database_location", str(elsewhere), "-database_file_name",
                    "CV_Anomaly.db", "-master", host.MASTER, "-once"], check=True, timeout=60)
    made = (elsewhere / "CV_Anomaly_Alerts.db").rename(world.directory / "CV_Anomaly_Alerts.db")
    with contextlib.closing(sqlite3.connect(made)) as db, db:
        db.execute("INSERT INTO channel VALUES ('mail', 3, 0, 1, 'no answer', 0, 5)")
        db.execute("INSERT INTO incident (id, name, anomaly_id, last_anomaly, client, policy, policy_type, schedule_type,"
                   " schedule_name, application_type, destination, has_stream, first_time, last_time, severity, cause,"
                   " records, until, is_open, changed) VALUES (1, ?, '', '', '', '', '', '', '', '', '', 0, 0, 0, 1, '',"
                   " 1, 0, 1, 0)", ("incident_" + world.bad.UNIQUE_KEY,))
        db.execute("INSERT INTO delivery VALUES (1, 'mail', 1, 1, 3, 0, ?, 0, 0, 1, 1, 'no answer', 0)", (world.now,))
    return world


def test_every_metric_is_documented_and_every_documented_one_is_there(told_world):
    text = told_world.run("metrics").stdout
    documented = re.findall(r"^\| `(cvanomaly_\w+)`", (PROJECT / "docs/operator-tool.md").read_text(), re.M)
    assert sorted(re.findall(r"^# TYPE (\w+)", text, re.M)) == sorted(documented)


@pytest.mark.parametrize("command", ["status", "streams", "anomalies", "show", "explain", "backtest", "check", "metrics",
                                     "report"])
def test_every_document_is_as_documented(told_world, command):
    more = {"show": [told_world.bad.BACKUP_ID], "explain": [told_world.bad.UNIQUE_KEY], "backtest": ["30"],
            "report": ["--html", str(told_world.directory / "report.html")]}
    answer = told_world.run(command, *more.get(command, []), "--json")
    expect_documented(json.loads(answer.stdout), command)


def test_a_normal_backup_is_explained_as_documented(world):
    for client, day, state, stream in (("web01", 1, "normal", "judged"),
                                       ("db01", 2, "learning 0 of 30", "learning 0 of 30")):
        key = world.row(client, day, -1).UNIQUE_KEY
        document = json.loads(world.run("explain", key, "--json").stdout)
        judgement = document["judgement"]
        assert (judgement["state"], judgement["severity"], judgement["causes"]) == (state, 0, [])
        assert judgement["stream_state"] == stream
        expect_documented(document, "explain")
    assert judgement["last_good"] is None


def test_an_unreadable_alert_database_is_told_as_documented(world):
    (world.directory / "CV_Anomaly_Alerts.db").write_bytes(b"x" * 100000)
    document = json.loads(world.run("status", "--json").stdout)
    assert document["alerts"]["trouble"].endswith("CV_Anomaly_Alerts.db is damaged or is not a database.")
    expect_documented(document, "status")
