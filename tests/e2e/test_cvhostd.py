"""The embedded host's programs as processes: cvhostd over real mutual TLS on a port of its own, and the tools.

The programs are those of CV_BIN_DIR (a build's embedded_host directory), else the installed ones.
"""

import contextlib
import http.client
import json
import os
import shutil
import signal
import socket
import sqlite3
import ssl
import subprocess
import sys
import threading
import time
import urllib.parse
from pathlib import Path

import pytest
from conftest import SANITIZED

PROJECT = Path(__file__).resolve().parents[2]
RECORDS = PROJECT / "tests/data/backups.jsonl"
JOBS, IMAGES, ANOMALIES = "/corvane/admin/jobs", "/corvane/catalog/images", "/corvane/wui/anomalies"
DAY = 1769817600  # 2026-01-31T00:00:00Z


def program(name):
    if "CV_BIN_DIR" in os.environ:
        return str(Path(os.environ["CV_BIN_DIR"]) / name)
    installed = Path("/usr/tessel/corvane/bin")
    return str(next(p for p in (installed / name, installed / "admincmd" / name) if p.exists()))


def run(name, *arguments, **options):
    return subprocess.run([program(name), *map(str, arguments)], capture_output=True, text=True, timeout=60,
                          **options)


def time_text(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime(seconds))


def backup(job_id, start, seconds=10, **more):
    return {"jobId": job_id, "jobType": "BACKUP", "clientName": "web01", "policyName": "web",
            "policyType": "STANDARD", "scheduleName": "daily", "scheduleType": "FULL",
            "backupId": f"web01_{start}", "startTime": time_text(start), "endTime": time_text(start + seconds),
            **more}


def load(catalog, backups):
    lines = "".join(json.dumps(b) + "\n" for b in backups)
    return run("cvhostd", "load", catalog, "-", input=lines)


def memory_peak(process_id):
    """The most memory that a process has used, in KiB."""
    status = Path(f"/proc/{process_id}/status").read_text()
    return int(next(line.split()[1] for line in status.splitlines() if line.startswith("VmHWM")))


@pytest.fixture(scope="session")
def credentials(tmp_path_factory):
    directory = tmp_path_factory.mktemp("host") / "credentials"
    done = run("cvhostd", "credentials", directory, "--server", "master01.example.com")
    assert (done.returncode, done.stderr) == (0, "")
    return directory


@pytest.fixture(scope="session")
def small_catalog(tmp_path_factory):
    catalog = tmp_path_factory.mktemp("catalog") / "catalog.db"
    assert load(catalog, [backup(1, DAY), backup(2, DAY + 100)]).returncode == 0
    return catalog


class Server:
    def __init__(self, credentials, catalog, *options, environment=None):
        self.credentials = credentials
        self.process = subprocess.Popen(
            [program("cvhostd"), "serve", "--catalog", str(catalog), "--credentials", str(credentials), "--port", "0",
             *map(str, options)],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment)
        line = self.process.stdout.readline()
        assert line.startswith("cvhostd: listening on 127.0.0.1:"), line + self.process.stderr.read()
        self.port = int(line.rsplit(":", 1)[1])

    def tls(self, certificate="host"):
        context = ssl.create_default_context(cafile=self.credentials / "ca.pem")
        if certificate:
            context.load_cert_chain(self.credentials / f"{certificate}.pem", self.credentials / f"{certificate}.key")
        return context

    def connection(self, certificate="host", timeout=20):
        return contextlib.closing(http.client.HTTPSConnection("127.0.0.1", self.port, timeout=timeout,
                                                              context=self.tls(certificate)))

    def socket(self, certificate="host"):
        """A TLS connection to write any bytes to."""
        raw = socket.create_connection(("127.0.0.1", self.port), timeout=20)
        return self.tls(certificate).wrap_socket(raw, server_hostname="localhost")

    def request(self, method, target, body=None, certificate="host", headers=None):
        with self.connection(certificate) as connection:
            connection.request(method, target, body, headers or {})
            answer = connection.getresponse()
            return answer.status, answer.read()

    def get(self, target, certificate="host"):
        status, body = self.request("GET", target, certificate=certificate)
        return status, json.loads(body)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def stop(self, how=signal.SIGTERM):
        """Ends the server; returns its status, the seconds it took and what it complained of."""
        begin = time.monotonic()
        self.process.send_signal(how)
        try:
            _, complaints = self.process.communicate(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.communicate()
            raise
        return self.process.returncode, time.monotonic() - begin, complaints


@contextlib.contextmanager
def serving(*arguments, **options):
    server = Server(*arguments, **options)
    try:
        yield server
        status, seconds, complaints = server.stop()
        assert (status, complaints) == (0, "")
        assert seconds < 5
    finally:
        if server.process.poll() is None:
            server.process.kill()
            server.process.communicate()


def wait_until(condition, what, seconds=15):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, what
        time.sleep(0.01)


def put_faults(path, text):
    """In one step, so that no request finds the file half-written."""
    fresh = path.with_suffix(".new")
    fresh.write_text(text)
    fresh.rename(path)


def all_elements(server, collection, limit=100):
    """Every element of a collection, page by page over one connection, as a gather reads it."""
    elements, offset = [], 0
    with server.connection() as connection:
        while True:
            connection.request("GET", f"{collection}?page%5Boffset%5D={offset}&page%5Blimit%5D={limit}&sort=-startTime")
            answer = json.loads(connection.getresponse().read())
            elements += answer["data"]
            page = answer["meta"]["pagination"]
            assert page["offset"] == offset and page["count"] >= len(elements)
            if "next" not in page:
                assert page["count"] == len(elements)
                return elements
            offset = page["next"]


# Real records


@pytest.fixture(scope="session")
def real_catalog(tmp_path_factory):
    """The recorded backups, moved so that all of them have happened."""
    directory = tmp_path_factory.mktemp("real")
    lines = directory / "catalog.jsonl"
    with lines.open("w") as out:
        subprocess.run([sys.executable, str(PROJECT / "embedded_host/make_catalog.py"), str(RECORDS),
                        "--clock-begin", "2026-06-01T00:00:00Z"], stdout=out, check=True)
    catalog = directory / "catalog.db"
    done = run("cvhostd", "load", catalog, lines)
    assert (done.returncode, done.stderr) == (0, "")
    return lines, catalog


def test_the_records_figures_stay_what_they_are(real_catalog):
    backups = [json.loads(line) for line in real_catalog[0].read_text().splitlines()]
    records = [json.loads(line) for line in RECORDS.read_text().splitlines()]
    figures = sorted((b["clientName"], b["numFiles"], b["kbytes"], b["kilobytesTransferred"], b["scheduleName"])
                     for b in backups)
    assert figures == sorted((r["client"], r["files"], -(-r["bytes"] // 1024), -(-r["bytes_transferred"] // 1024),
                              r["schedule"]) for r in records)
    assert [b["jobId"] for b in backups] == list(range(1001, 1001 + len(records)))
    assert [b["startTime"] for b in backups] == sorted(b["startTime"] for b in backups)
    assert not any("label" in b for b in backups)
    first_after = sorted(b["backupTime"] for b in backups)[-5 * 18]
    assert first_after == "2026-06-01T00:30:00.000Z"


def test_paging_through_everything_gives_the_catalog(credentials, real_catalog):
    lines, catalog = real_catalog
    backups = {b["jobId"]: b for b in map(json.loads, lines.read_text().splitlines())}
    with serving(credentials, catalog) as server:
        jobs = all_elements(server, JOBS)
        images = all_elements(server, IMAGES)
    assert [int(job["id"]) for job in jobs] == sorted(backups, reverse=True)
    for job in jobs:
        made, shown = backups[int(job["id"])], job["attributes"]
        assert {name: shown[name] for name in made if name in shown} == {
            name: value for name, value in made.items() if name in shown}
        assert (shown["state"], shown["percentComplete"]) == ("DONE", 100)
    assert len(images) == len(backups)
    for image in images:
        made = backups[image["attributes"]["jobId"]]
        assert image["id"] == made["backupId"]
        assert image["attributes"] == {name: made[name] for name in image["attributes"]}


def test_an_image_of_a_snapshot_is_older_than_its_job(credentials, real_catalog):
    with serving(credentials, real_catalog[1]) as server:
        _, answer = server.get(JOBS + "?page[limit]=1&filter=jobType%20eq%20'SNAPDUPE'")
        job = answer["data"][0]["attributes"]
        assert job["policyType"] in ("CLOUD", "NAS_DATA_PROTECTION")
        _, answer = server.get(f"{IMAGES}/{job['backupId']}")
        assert answer["data"]["attributes"]["jobId"] == job["jobId"]
        assert answer["data"]["attributes"]["backupTime"] < job["startTime"]


# Certificates


@pytest.mark.parametrize("accepted, expected", [("both", (200, 200)), ("host", (200, 401)), ("service", (401, 200))])
def test_certificate_types(credentials, small_catalog, accepted, expected):
    with serving(credentials, small_catalog, "--accept", accepted) as server:
        assert tuple(server.get(JOBS, certificate)[0] for certificate in ("host", "service")) == expected
        if 401 in expected:
            refused = ("host", "service")[expected.index(401)]
            assert server.get(JOBS, refused)[1] == {
                "error": {"status": 401, "reason": f"certificates of type '{refused}' are not accepted"}}


def test_clients_without_a_good_certificate_are_turned_away(credentials, small_catalog, tmp_path):
    other = tmp_path / "other"
    run("cvhostd", "credentials", other, check=True)
    shutil.copy(credentials / "ca.pem", other / "ca.pem")
    with serving(credentials, small_catalog) as server:
        for directory, certificate in ((credentials, None), (credentials, "server"), (other, "host")):
            server.credentials = directory
            with pytest.raises((ssl.SSLError, ConnectionError)):
                server.get(JOBS, certificate)
        server.credentials = credentials
        assert server.get(JOBS)[0] == 200


def test_old_tls_is_refused(credentials, small_catalog):
    with serving(credentials, small_catalog) as server:
        for version, good in ((ssl.TLSVersion.TLSv1_1, False), (ssl.TLSVersion.TLSv1_2, True),
                              (ssl.TLSVersion.TLSv1_3, True)):
            context = server.tls()
            context.set_ciphers("ALL:@SECLEVEL=0")
            context.minimum_version = context.maximum_version = version
            raw = socket.create_connection(("127.0.0.1", server.port), timeout=20)
            with contextlib.closing(raw), contextlib.ExitStack() as expected:
                if not good:
                    expected.enter_context(pytest.raises((ssl.SSLError, ConnectionError)))
                context.wrap_socket(raw, server_hostname="localhost").close()


def test_a_session_can_be_resumed(credentials, small_catalog):
    with serving(credentials, small_catalog) as server:
        context = server.tls()
        context.maximum_version = ssl.TLSVersion.TLSv1_2
        session = None
        for expected in (False, True):
            raw = socket.create_connection(("127.0.0.1", server.port), timeout=20)
            with context.wrap_socket(raw, server_hostname="localhost", session=session) as connection:
                connection.sendall(f"GET {JOBS} HTTP/1.1\r\nHost: x\r\n\r\n".encode())
                assert connection.recv(20).startswith(b"HTTP/1.1 200")
                assert connection.session_reused == expected
                session = connection.session


# What clients may send


def test_bad_requests_get_their_reason(credentials, small_catalog):
    with serving(credentials, small_catalog) as server:
        assert server.get(JOBS + "?filter=foo%20eq%201") == (
            400, {"error": {"status": 400, "reason": "unknown attribute 'foo'", "where": "filter, character 1"}})
        assert server.get("/nowhere") == (
            404, {"error": {"status": 404, "reason": "nothing exists at this path", "where": "/nowhere"}})
        with server.connection() as connection:
            connection.request("DELETE", JOBS)
            answer = connection.getresponse()
            assert (answer.status, answer.getheader("Allow")) == (405, "GET, HEAD")
        for header in ({"X-Long": "x" * 10_000}, {"Content-Length": "-1"}, {"Range": "bytes=9-1"}):
            status, body = server.request("GET", JOBS, headers=header)
            assert status in (200, 400, 416) and json.loads(body), header
        assert server.request("GET", "/" + "x" * 10_000)[0] == 414
        assert server.request("HEAD", JOBS) == (200, b"")


def test_a_range_is_answered_with_the_whole(credentials, small_catalog):
    with serving(credentials, small_catalog) as server:
        ranges = "bytes=" + ",".join("0-" for _ in range(1000))
        assert server.request("GET", JOBS, headers={"Range": ranges}) == server.request("GET", JOBS)


def test_reports_are_kept_and_feedback_is_shown(credentials, tmp_path):
    catalog = tmp_path / "catalog.db"
    load(catalog, [])
    report = {"data": {"type": "anomaly", "id": "A1", "attributes": {"score": 1.5, "why": "größer"}}}
    with serving(credentials, catalog) as server:
        assert server.request("POST", ANOMALIES, json.dumps(report))[0] == 201
        assert server.request("POST", ANOMALIES, json.dumps(report))[0] == 200
        assert server.get(ANOMALIES)[1]["data"] == [report["data"]]
        done = run("cvhostd", "feedback", catalog, "A1", "FALSE_POSITIVE")
        assert (done.returncode, done.stdout) == (0, "A1: FALSE_POSITIVE\n")
        assert server.get(ANOMALIES)[1]["data"] == [
            {"type": "anomalyFeedback", "id": "A1", "attributes": {"feedback": "FALSE_POSITIVE"}}, report["data"]]
        assert run("cvhostd", "feedback", catalog, "A1", "MAYBE").returncode == 1
        with server.connection() as connection:
            form = {"Content-Type": "multipart/form-data; boundary=x"}
            connection.request("POST", ANOMALIES, json.dumps(report), form)
            assert connection.getresponse().status == 415


def test_large_bodies_are_refused(credentials, small_catalog):
    def chunks():
        for _ in range(40):
            yield b"x" * 50_000

    with serving(credentials, small_catalog) as server:
        for body in (b"x" * 1_500_000, chunks()):
            with contextlib.suppress(ConnectionError, ssl.SSLError):  # it may hang up before it has all
                status, answer = server.request("POST", ANOMALIES, body)
                assert status == 413
                assert json.loads(answer)["error"]["reason"] == "the body is too large"
        assert server.get(ANOMALIES)[1]["data"] == []
        assert memory_peak(server.process.pid) < 100_000 or SANITIZED


def endless(connection, piece):
    """Writes `piece` until the server takes no more; returns the bytes it took, at most 200 MB."""
    sent = 0
    connection.settimeout(0.5)
    with contextlib.suppress(ConnectionError, ssl.SSLError, TimeoutError):
        while sent < 200_000_000:
            connection.sendall(piece)
            sent += len(piece)
    return sent


@pytest.mark.parametrize("begin, piece", [
    (b"GET /", b"x" * 16384),
    (b"GET / HTTP/1.1\r\n", b"X-Header: value\r\n" * 1000),
    (b"GET / HTTP/1.1\r\nX-Long: ", b"x" * 16384),
    (b"POST /corvane/wui/anomalies HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n",
     b"4000\r\n" + b"x" * 16384 + b"\r\n"),
    (b"POST /corvane/wui/anomalies HTTP/1.1\r\nContent-Length: 9000000000\r\n\r\n", b"x" * 16384),
], ids=["path", "headers", "header", "chunks", "body"])
def test_what_has_no_end_is_cut_off(credentials, small_catalog, begin, piece):
    with serving(credentials, small_catalog) as server:
        with server.socket() as connection:
            descriptors = server.descriptors()
            connection.sendall(begin)
            assert endless(connection, piece) < 50_000_000
            wait_until(lambda: server.descriptors() < descriptors, "the server still holds the connection", 3)
        assert memory_peak(server.process.pid) < 150_000
        assert server.get(JOBS)[0] == 200


def test_malformed_bytes_harm_nobody(credentials, small_catalog):
    with serving(credentials, small_catalog) as server:
        descriptors = server.descriptors()
        for junk in (b"", b"GET / HTTP/1.1\r\n\r\n", b"\x16\x03\x01\xff\xff" + b"\x00" * 100,
                     b"\x16\x03\x03\x00\x05hello", os.urandom(3000), b"\x00" * 100_000):
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", server.port)) as plain:
                plain.sendall(junk)
                plain.shutdown(socket.SHUT_WR)
                plain.recv(1000)
        for junk in (b"\r\n\r\n", b"GARBAGE\r\n\r\n", b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"\x00\xff\r\n" * 100,
                     b"GET /%00%ff HTTP/1.1\r\n\r\n", b"GET /%zz HTTP/1.1\r\n\r\n", b"GET / HTTP/1.1\r\nHost",
                     b"GET / HTTP/1.1\r\n: x\r\n\r\n", b"POST /corvane/wui/anomalies HTTP/1.1\r\n"
                     b"Transfer-Encoding: chunked\r\n\r\nzzz\r\n", b"POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n"):
            with contextlib.suppress(ConnectionError, ssl.SSLError), server.socket() as connection:
                connection.sendall(junk)
                connection.settimeout(0.2)
                with contextlib.suppress(TimeoutError):
                    connection.recv(1000)
        assert server.get(JOBS)[0] == 200
        wait_until(lambda: server.descriptors() <= descriptors + 1, "descriptors are left open")


# Slow and many clients


def test_slow_clients_do_not_starve_others(credentials, small_catalog):
    """More silent and dripping clients than there are threads; a good one is served all the same."""
    with serving(credentials, small_catalog, "--threads", 4, "--time-out", 1) as server, contextlib.ExitStack() as held:
        silent = [held.enter_context(socket.create_connection(("127.0.0.1", server.port))) for _ in range(6)]
        half = [held.enter_context(socket.create_connection(("127.0.0.1", server.port))) for _ in range(6)]
        for connection in half:
            connection.sendall(b"\x16\x03\x01\x02\x00\x01")  # a hello that never ends
        begin = time.monotonic()
        assert server.get(JOBS)[0] == 200
        assert time.monotonic() - begin < 10
        assert len(silent) == 6


def test_a_dripping_request_has_an_end(credentials, small_catalog):
    with serving(credentials, small_catalog, "--time-out", 1) as server, server.socket() as connection:
        connection.sendall(b"GET / HTTP/1.1\r\n")
        begin = time.monotonic()
        with pytest.raises((ConnectionError, ssl.SSLError)):
            while time.monotonic() - begin < 15:
                connection.sendall(b"X-Slow: y\r\n")
                time.sleep(0.1)
        assert 0.5 < time.monotonic() - begin < 12


def test_idle_connections_make_way(credentials, small_catalog):
    with serving(credentials, small_catalog, "--threads", 2) as server, contextlib.ExitStack() as held:
        for _ in range(2):
            connection = held.enter_context(server.connection())
            connection.request("GET", JOBS)
            connection.getresponse().read()
        begin = time.monotonic()
        assert server.get(JOBS)[0] == 200
        assert time.monotonic() - begin < 10


def test_many_clients_at_once(credentials, small_catalog):
    statuses = []
    with serving(credentials, small_catalog, "--threads", 8) as server:
        def ask():
            for _ in range(3):
                statuses.append(server.get(JOBS)[0])

        threads = [threading.Thread(target=ask) for _ in range(40)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert statuses == [200] * 120
        wait_until(lambda: server.descriptors() < 40, "descriptors are left open")


def test_one_connection_serves_many_requests(credentials, small_catalog):
    with serving(credentials, small_catalog) as server, server.connection() as connection:
        for _ in range(1000):
            connection.request("GET", JOBS)
            answer = connection.getresponse()
            answer.read()
            assert answer.status == 200 and answer.getheader("Connection") != "close"
        own_end = connection.sock.getsockname()
        connection.request("GET", JOBS)
        connection.getresponse().read()
        assert connection.sock.getsockname() == own_end


# Start and end


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGINT])
def test_it_ends_at_once_whoever_is_connected(credentials, small_catalog, tmp_path, how):
    faults = tmp_path / "faults"
    server = Server(credentials, small_catalog, "--fault-file", faults)
    with contextlib.ExitStack() as held:
        idle = held.enter_context(server.connection())
        idle.request("GET", JOBS)
        idle.getresponse().read()
        held.enter_context(server.socket())
        held.enter_context(socket.create_connection(("127.0.0.1", server.port)))
        put_faults(faults, "hang 600\n")
        hanging = held.enter_context(server.connection())
        hanging.request("GET", JOBS)
        status, seconds, complaints = server.stop(how)
    assert (status, complaints) == (0, "")
    assert seconds < 5


def test_two_servers_do_not_share_a_port(credentials, small_catalog):
    with serving(credentials, small_catalog) as server:
        done = run("cvhostd", "serve", "--catalog", small_catalog, "--credentials", credentials, "--port", server.port)
        assert (done.returncode, done.stdout) == (1, "")
        assert done.stderr == f"cvhostd: cannot listen on 127.0.0.1 port {server.port}: Address already in use\n"


def test_what_is_missing_is_named(credentials, small_catalog, tmp_path):
    def complaint(*arguments):
        done = run("cvhostd", *arguments)
        assert (done.returncode, done.stdout) == (1, "")
        return done.stderr

    none = tmp_path / "none"
    assert complaint("serve", "--catalog", none, "--credentials", credentials, "--port", 0) == (
        f"cvhostd: {none}: No such file or directory\n")
    assert complaint("serve", "--catalog", small_catalog, "--credentials", none, "--port", 0) == (
        f"cvhostd: {none}/ca.pem: No such file or directory\n")
    assert complaint("load", tmp_path / "c.db", none) == f"cvhostd: {none}: No such file or directory\n"
    assert complaint("credentials", credentials) == (
        f"cvhostd: {credentials}/private/ca.key: already exists and is not overwritten\n")
    assert run("cvhostd").returncode != 0
    assert "cvhostd serve" in run("cvhostd", "--help").stdout


def test_loading_names_bad_lines_and_keeps_the_rest(tmp_path):
    lines = tmp_path / "lines.jsonl"
    lines.write_text(json.dumps(backup(1, DAY)) + "\ngarbage\n" + json.dumps(backup(2, DAY + 1)) + "\n")
    done = run("cvhostd", "load", tmp_path / "c.db", lines)
    assert done.returncode == 1
    assert done.stderr.startswith(f"{lines}:2: not JSON: ") and done.stderr.count("\n") == 1
    assert done.stdout == f"2 backups loaded into {tmp_path}/c.db, 1 line rejected\n"


def test_loading_while_serving(credentials, tmp_path):
    catalog = tmp_path / "c.db"
    load(catalog, [backup(1, DAY)])
    with serving(credentials, catalog) as server:
        assert len(server.get(JOBS)[1]["data"]) == 1
        load(catalog, [backup(n, DAY + n) for n in range(2, 40)])
        assert len(server.get(JOBS)[1]["data"]) == 39


def test_a_fast_clock_shows_backups_as_they_come_about(credentials, tmp_path):
    """A hundred seconds pass in one; the job runs from the 50th to the 150th, and closes at the 250th."""
    catalog = tmp_path / "c.db"
    load(catalog, [backup(1, DAY + 50, 100)])
    library = next(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
    environment = {**os.environ, "LD_PRELOAD": str(library), "FAKETIME": "@2026-01-31 00:00:00 x100", "TZ": "UTC",
                   "FAKETIME_DONT_FAKE_MONOTONIC": "1", "FAKETIME_NO_CACHE": "1",
                   "ASAN_OPTIONS": "verify_asan_link_order=0"}
    seen = []
    with serving(credentials, catalog, "--close-delay", 100, environment=environment) as server:
        def stage():
            jobs = server.get(JOBS)[1]["data"]
            images = server.get(IMAGES)[1]["data"]
            now = (jobs[0]["attributes"]["state"] if jobs else "none", len(images))
            if not seen or seen[-1] != now:
                seen.append(now)
            return now == ("DONE", 1)

        wait_until(stage, "the job is done")
    assert seen == [("none", 0), ("ACTIVE", 0), ("ACTIVE", 1), ("DONE", 1)]


# Faults and the access log


def test_faults(credentials, small_catalog, tmp_path):
    faults = tmp_path / "faults"
    with serving(credentials, small_catalog, "--fault-file", faults) as server:
        good = server.request("GET", JOBS)
        put_faults(faults, "corvane/admin/jobs status 503 count 2\n")
        assert [server.request("GET", JOBS)[0] for _ in range(3)] == [503, 503, 200]
        assert server.request("GET", IMAGES)[0] == 200
        put_faults(faults, "garbage count 1\ntruncate count 1\ncut count 1\nnull-end-time 1 count 1\n")
        status, body = server.request("GET", JOBS)
        with pytest.raises(ValueError):
            json.loads(body)
        assert server.request("GET", JOBS) == (200, good[1][:len(good[1]) // 2])
        with pytest.raises(http.client.IncompleteRead) as cut:
            server.request("GET", JOBS)
        assert cut.value.partial == good[1][:len(good[1]) // 2]
        ends = [job["attributes"]["endTime"] for job in server.get(JOBS)[1]["data"]]
        assert ends == [time_text(DAY + 110), None]
        assert server.request("GET", JOBS) == good
        put_faults(faults, "hang 1\n")
        begin = time.monotonic()
        assert server.request("GET", JOBS) == good
        assert time.monotonic() - begin >= 1
        put_faults(faults, "explode\n")
        assert server.get(JOBS)[1]["error"]["reason"] == f"{faults}: line 1: no action after 'explode'"
        faults.unlink()
        assert server.request("GET", JOBS) == good


def test_a_401_on_purpose_is_for_accepted_certificates(credentials, small_catalog, tmp_path):
    faults = tmp_path / "faults"
    put_faults(faults, "status 500 count 1\n")
    with serving(credentials, small_catalog, "--fault-file", faults, "--accept", "service") as server:
        statuses = [server.request("GET", JOBS, certificate=c)[0] for c in ("host", "service", "service")]
        assert statuses == [401, 500, 200]


def test_the_access_log_has_a_line_for_each_request(credentials, small_catalog, tmp_path):
    log = tmp_path / "access"
    with serving(credentials, small_catalog, "--access-log", log) as server:
        server.get(JOBS + "?page%5Blimit%5D=1", "service")
        server.get("/nowhere")
    first, second = log.read_text().splitlines()
    assert f' service "GET {JOBS}?page%5Blimit%5D=1" 200 ' in first
    assert ' host "GET /nowhere" 404 ' in second


# The tools


def test_tools_on_the_real_records(real_catalog):
    lines, catalog = real_catalog
    backups = [json.loads(line) for line in lines.read_text().splitlines()]
    listed = run("qpimagelist", "-X", "-d", 0, "-e", 2147483647, "-json_compact", "--catalog", catalog)
    assert (listed.returncode, listed.stderr) == (0, "")
    images = [json.loads(line) for line in listed.stdout.splitlines()]
    assert {i["backupid"]: (i["job_id"], i["kbytes"], i["num_files"], time_text(i["backup_time"])) for i in images} == {
        b["backupId"]: (b["jobId"], b["kbytes"], b["numFiles"], b["backupTime"]) for b in backups}
    assert [i["backup_time"] for i in images] == sorted(i["backup_time"] for i in images)

    ids = [1001, 1500, 1001, 999]
    jobs = run("qpdbjobs", "-jobid", ",".join(map(str, ids)), "-json", "--catalog", catalog)
    assert (jobs.returncode, jobs.stderr) == (0, "")
    assert [(j["JobId"], j["KilobytesTransferred"]) for j in json.loads(jobs.stdout)] == [
        (b["jobId"], b["kilobytesTransferred"]) for b in (backups[0], backups[499])]


def test_tools_do_not_make_a_missing_catalog(tmp_path):
    none = tmp_path / "none.db"
    for command in (("qpimagelist", "-X", "-d", "1", "-e", "2", "-json_compact"), ("qpdbjobs", "-jobid", "1", "-json"),
                    ("cvdeployutil", "-d", "1", "-e", "2", "--master", "m", "--root", str(tmp_path / "root"))):
        done = run(*command, "--catalog", none)
        assert (done.returncode, done.stdout) == (1, "")
        assert done.stderr == f"{command[0]}: {none}: No such file or directory\n"
        assert not none.exists()


@pytest.mark.parametrize("tool", ["qpimagelist", "qpdbjobs", "qpgetconfig", "cvdeployutil"])
def test_tools_explain_themselves(tool):
    done = run(tool, "--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith(f"usage: {tool} -")
    wrong = run(tool, "-nonsense")
    assert (wrong.returncode, wrong.stdout) == (2, "")
    assert wrong.stderr == f"{tool}: unknown option '-nonsense' (see --help)\n"


def test_tools_notice_a_full_disk(small_catalog):
    with open("/dev/full", "w") as full:
        done = subprocess.run([program("qpimagelist"), "-d", "0", "-e", "2147483647", "--catalog", str(small_catalog)],
                              stdout=full, stderr=subprocess.PIPE, text=True)
    assert done.returncode == 1
    assert "No space left on device" in done.stderr


def test_the_configuration_tool(tmp_path):
    config = tmp_path / "qp.conf"
    command = ("qpgetconfig", "-M", "master01", "--config", config)
    done = run(*command)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    config.write_text("# proxy\n\n  ANOMALY_PROXY_SERVER=proxy01.example.com  \nOTHER =\n")
    done = run(*command)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == "ANOMALY_PROXY_SERVER = proxy01.example.com\nOTHER = \n"
    config.write_text("nonsense\nA = b\n")
    done = run(*command)
    assert (done.returncode, done.stdout) == (1, "A = b\n")
    assert done.stderr == f"qpgetconfig: {config}:1: not 'KEY = value': 'nonsense'\n"


def test_an_archive_is_what_the_tool_lists(real_catalog, tmp_path):
    catalog = real_catalog[1]
    window = ("-d", "1770000000", "-e", "1771000000", "--catalog", str(catalog))
    done = run("cvdeployutil", *window, "--master", "master01.example.com", "--root", tmp_path / "incremental")
    assert (done.returncode, done.stderr) == (0, "")
    folder = Path(done.stdout.rstrip("\n"))
    assert folder.parent == tmp_path / "incremental"
    assert sorted(p.name for p in folder.iterdir()) == ["gather_options.json", "master.txt", "qpimagelist.out"]
    assert (folder / "master.txt").read_text() == "master01.example.com"
    assert json.loads((folder / "gather_options.json").read_text()) == {"start": 1770000000, "end": 1771000000}
    assert (folder / "qpimagelist.out").read_text() == run("qpimagelist", *window).stdout
    assert len((folder / "qpimagelist.out").read_text().splitlines()) > 100


def test_many_images_take_no_memory(tmp_path):
    catalog = tmp_path / "c.db"
    load(catalog, [])
    with contextlib.closing(sqlite3.connect(catalog)) as db, db:
        columns = [row[1] for row in db.execute("PRAGMA table_info(backups)")]
        template = backup(1, DAY)
        load(tmp_path / "one.db", [template])
        with contextlib.closing(sqlite3.connect(tmp_path / "one.db")) as one:
            row = dict(zip(columns, one.execute("SELECT * FROM backups").fetchone()))
        places = ",".join("?" * len(columns))
        db.executemany(f"INSERT INTO backups VALUES({places})",
                       (tuple({**row, "job_id": n, "backup_id": f"b{n}", "backup_time": DAY + n}.values())
                        for n in range(1, 50_001)))
    listing = subprocess.Popen([program("qpimagelist"), "-d", "0", "-e", "2147483647", "--catalog", str(catalog)],
                               stdout=subprocess.PIPE, text=True)
    with listing.stdout as lines:
        for _ in range(20_000):
            next(lines)
        early = memory_peak(listing.pid)
        for _ in range(20_000):
            next(lines)
        late = memory_peak(listing.pid)  # the rest does not fit into the pipe, so it is still at work
        assert sum(1 for _ in lines) == 10_000
    assert listing.wait() == 0
    assert late - early < 3_000
