"""What users say of reported anomalies, from the web service into the database."""

import contextlib
import http.client
import json
import ssl

import pytest

import machine as host
from conftest import BEGIN
from gathering import backup, load
from machine import SERVICE
from service_runs import configure, history_gathered_before, next_gather, start_with_history

PARSE_FAILED = "Failed to parse user feedback response "
CURL = "CurlClient::process_curl_response"


@pytest.fixture
def machine(make_machine):
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    configure(machine)
    load(machine, [backup(701, BEGIN + 60)])
    machine.start_web_service()
    yield machine
    machine.stop_service()


def report(anomaly_id):
    """Reports an anomaly as the alert daemon does."""
    context = ssl.create_default_context(cafile=host.CREDENTIALS / "ca.pem")
    context.load_cert_chain(host.CREDENTIALS / "service.pem", host.CREDENTIALS / "service.key")
    body = {"data": {"type": "anomaly", "id": anomaly_id, "attributes": {"clientName": "web01", "score": 0.93}}}
    with contextlib.closing(http.client.HTTPSConnection("localhost", 1556, context=context, timeout=20)) as web:
        web.request("POST", "/corvane/wui/anomalies", json.dumps(body))
        assert web.getresponse().status == 201


def judge(machine, anomaly_id, feedback):
    machine.run("cvhostd", "feedback", host.CATALOG, anomaly_id, feedback)


def stored(machine):
    return {name: (value, at) for name, value, at in machine.query("SELECT * FROM ANOMALY_DATA_FEEDBACK")}


def values(machine):
    return {name: value for name, (value, _) in stored(machine).items()}


def test_judgements_arrive_after_a_live_gather_and_change_later(machine):
    for name in ("a1", "a2", "a3", "a4"):
        report(name)
    judge(machine, "a1", "FALSE_POSITIVE")
    judge(machine, "a2", "CONFIRMED")
    judge(machine, "a3", "NONE")
    judge(machine, "Größe 'x' \"y\"", "FALSE_POSITIVE")
    start_with_history(machine)
    assert stored(machine) == {}

    window = next_gather(machine)
    first = stored(machine)
    assert values(machine) == {"a1": 1, "a2": 0, "a3": 0, "Größe 'x' \"y\"": 1}
    assert {at for _, at in first.values()} <= set(range(window[1], window[1] + 60))
    assert len({at for _, at in first.values()}) == 1

    judge(machine, "a1", "CONFIRMED")
    judge(machine, "a2", "FALSE_POSITIVE")
    judge(machine, "a4", "FALSE_POSITIVE")
    next_gather(machine)
    assert values(machine) == {"a1": 0, "a2": 1, "a3": 0, "a4": 1, "Größe 'x' \"y\"": 1}
    assert all(at >= first["a1"][1] + 900 for _, at in stored(machine).values())
    assert machine.log_records(16) == []


def test_many_of_them(machine):
    lines = "".join(f"INSERT INTO reports(type, id, attributes) VALUES('anomalyFeedback', 'x{n}',"
                    " '{\"feedback\":\"FALSE_POSITIVE\"}');\n" for n in range(400))
    with contextlib.closing(host.sqlite3.connect(host.CATALOG, timeout=10)) as catalog:
        catalog.executescript("BEGIN;" + lines + "COMMIT;")
    start_with_history(machine)
    next_gather(machine)
    assert values(machine) == {f"x{n}": 1 for n in range(400)}


def test_failures_leave_what_is_known_alone(machine):
    judge(machine, "a1", "FALSE_POSITIVE")
    start_with_history(machine)
    next_gather(machine)
    known = stored(machine)
    judge(machine, "a1", "CONFIRMED")

    machine.misbehave("corvane/wui status 503")
    next_gather(machine)
    assert machine.log_records(16) == [
        (16, CURL, "\nAPI execution failed. Response Code = 503"),
        (16, SERVICE, "Failed to get user feedback response from API. API return code - 503")]
    machine.misbehave("corvane/wui garbage")
    next_gather(machine)
    assert machine.log_records(16)[2:] == [(16, SERVICE, PARSE_FAILED + "��<garbage>{\"data\":[[[\x01")]
    machine.misbehave("corvane/wui truncate")
    next_gather(machine)
    assert machine.log_records(16)[-1][2].startswith(PARSE_FAILED + '{"data":[')
    machine.misbehave("corvane/wui cut")
    next_gather(machine)
    assert machine.log_records(16)[-2:] == [
        (16, CURL, "\nError occurred while performing curl operation. Return code = 18"),
        (16, SERVICE, "Failed to get user feedback response from API. API return code - 18")]
    assert stored(machine) == known

    machine.misbehave()
    next_gather(machine)
    assert values(machine) == {"a1": 0}
