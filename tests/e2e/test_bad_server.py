"""A web service that is down, wrong, slow or picky. The service says so and goes on."""

import pytest

import machine as host
from conftest import BEGIN
from gathering import backup, load
from machine import SERVICE, process_ids, wait_until
from service_runs import (
    await_end, configure, history_gathered_before, live_row, next_gather, queue, rows_of, start_with_history)

CURL = "CurlClient::process_curl_response"
IMAGES = "corvane/catalog/images"
JOBS = "corvane/admin/jobs"


@pytest.fixture
def machine(make_machine):
    """History until BEGIN; a backup in each of the next gathers."""
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    configure(machine)
    load(machine, BACKUPS)
    yield machine
    machine.service("-terminate")


BACKUPS = [backup(801 + number, BEGIN + 60 + 15 * 60 * number) for number in range(6)]


def stored_jobs(machine):
    return [row[10] for row in rows_of(machine, "HIST_DATA")]


def could_not_capture(window):
    return (16, SERVICE, f"Could not capture data between {window[0]} & {window[1]} ")


def http_failure(status):
    return (16, CURL, f"\nAPI execution failed. Response Code = {status}")


def transport_failure(code):
    return (16, CURL, f"\nError occurred while performing curl operation. Return code = {code}")


def feedback_failure(code):
    return (16, SERVICE, f"Failed to get user feedback response from API. API return code - {code}")


def parse_failure(text):
    return (16, SERVICE, f"JSON parsing failed for jobs data {text}")


def errors_of_next_gather(machine):
    """The window of the next gather, and what is logged at level 16 meanwhile, but for the transport's own
    explanations."""
    before = len(machine.log_records())
    window = next_gather(machine)
    return window, [r for r in machine.log_records()[before:] if r[0] == 16 and r[1] != "CVClientCURL"]


def test_down_answering_500_and_back(machine):
    start_with_history(machine)
    window, errors = errors_of_next_gather(machine)  # nobody listens
    assert errors == [transport_failure(7), parse_failure(""), could_not_capture(window),
                      transport_failure(7), feedback_failure(7)]
    assert machine.last_gather_time() == window[1]  # the range is not asked for again

    machine.start_web_service()
    machine.misbehave("status 500")
    window, errors = errors_of_next_gather(machine)
    assert errors == [http_failure(500), parse_failure(""), could_not_capture(window),
                      http_failure(500), feedback_failure(500)]
    machine.misbehave(f"{JOBS} status 500 count 1")  # the images' answer does not stand in for the jobs'
    window, errors = errors_of_next_gather(machine)
    assert errors == [http_failure(500), parse_failure(""), could_not_capture(window)]
    assert stored_jobs(machine) == []

    window, errors = errors_of_next_gather(machine)
    assert errors == []
    assert rows_of(machine, "HIST_DATA") == [live_row(BACKUPS[3], status=-1)]


def test_answers_that_are_no_json(machine):
    machine.start_web_service()
    start_with_history(machine)
    machine.misbehave(f"{JOBS} garbage")
    window, errors = errors_of_next_gather(machine)
    assert errors == [parse_failure("��<garbage>{\"data\":[[[\x01"), could_not_capture(window)]
    machine.misbehave(f"{IMAGES} truncate")
    window, errors = errors_of_next_gather(machine)
    assert errors[0][2].startswith('JSON parsing failed for jobs data {"data":[{"type":"image","id":"web01_802"')
    assert errors[1:] == [could_not_capture(window)]
    machine.misbehave(f"{JOBS} cut")
    window, errors = errors_of_next_gather(machine)
    assert errors == [transport_failure(18), parse_failure(""), could_not_capture(window)]
    machine.misbehave()
    assert errors_of_next_gather(machine)[1] == []
    assert stored_jobs(machine) == [804]


def test_the_host_certificate_is_refused_and_the_other_taken(machine):
    machine.start_web_service("--accept", "service")
    start_with_history(machine)
    errors = errors_of_next_gather(machine)[1]
    assert set(errors) == {http_failure(401)}
    assert len(errors) == 3  # images, jobs, feedback: each was asked for again
    assert rows_of(machine, "HIST_DATA") == [live_row(BACKUPS[0], status=-1)]
    assert machine.logged("API return value: 0 ") == 2

    machine.stop_web_service()
    machine.start_web_service()
    machine.misbehave(f"{JOBS} status 401 count 1")
    assert errors_of_next_gather(machine)[1] == [http_failure(401)]
    assert stored_jobs(machine) == [801, 802]

    # Asked again, any answer is taken for good: this one holds no jobs.
    machine.misbehave(f"{JOBS} status 401")
    window, errors = errors_of_next_gather(machine)
    assert errors == [
        http_failure(401), (16, "CurlClient::execute", "\nAPI execution failed. Response Code = 401")]
    assert machine.logged(f"No new job found between (start time - end time): {window[0]} - {window[1]}") == 1
    assert stored_jobs(machine) == [801, 802]


def test_a_null_end_time_loses_the_rest_of_the_range(machine):
    # Jobs come latest first; the fourth has the null.
    backups = [backup(number, BEGIN + 60 + number % 100) for number in range(901, 911)]
    load(machine, backups)
    machine.start_web_service()
    machine.misbehave(f"{JOBS} null-end-time 3 count 1")
    start_with_history(machine)
    window, errors = errors_of_next_gather(machine)
    assert errors == [could_not_capture(window)]
    assert rows_of(machine, "HIST_DATA") == [live_row(b, status=-1) for b in backups[-3:]]
    assert machine.last_gather_time() == window[1]
    assert errors_of_next_gather(machine)[1] == []
    assert stored_jobs(machine) == [802, 908, 909, 910]


def test_a_later_page_that_fails_for_a_while(machine):
    backups = [backup(number, BEGIN + 60 + number - 1000) for number in range(1000, 1250)]
    running = backup(1300, BEGIN + 400, seconds=3000)
    fetched = backup(1301, BEGIN + 410, policyType="CLOUD", backupTime="2026-11-16T19:00:00.000Z")
    load(machine, [*backups, running, fetched])
    machine.start_web_service()
    machine.misbehave(f"{IMAGES} status 500 skip 1 count 2", f"{JOBS} status 500 skip 1 count 4")
    start_with_history(machine)
    errors = errors_of_next_gather(machine)[1]
    assert errors == [http_failure(500)] * 6
    # The page before is read again for every failure, in both passes.
    assert machine.logged("Capturing data for next offset: 100") == (1 + 2) + (1 + 4)
    assert machine.logged("Capturing data for next offset: 200") == 2
    # So its jobs are handled again: an image that is fetched by its id is fetched each time.
    assert sum(f"{IMAGES}/web01_1301" in line for line in machine.requests()) == 1 + 4
    assert rows_of(machine, "HIST_DATA") == [live_row(b, status=-1) for b in [BACKUPS[0], *backups, fetched]]
    assert queue(machine) == [(1300, BEGIN + 400)]


def test_history_goes_on_after_slices_that_failed(make_machine):
    machine = make_machine(stepped=True)
    configure(machine)
    kept = [backup(1, BEGIN - 80 * 86400), backup(2, BEGIN - 3600)]
    load(machine, kept)
    machine.start_web_service()
    faults = ("status 500", "garbage", "truncate", "cut")
    machine.misbehave(*(f"{IMAGES} {fault} skip {100 + 10 * n} count 5" for n, fault in enumerate(faults)))
    machine.start_service()
    machine.await_log(2, SERVICE, "Historical gather is not done.")
    machine.clock.advance(15 * 60)
    wait_until(machine.last_gather_time, 60, "the history is gathered")
    assert machine.logged("Could not capture data between ") == 20
    assert stored_jobs(machine) == [1, 2]
    machine.service("-terminate")


def test_a_server_that_hangs(machine):
    machine.start_web_service()
    start_with_history(machine)
    machine.misbehave(f"{JOBS} hang 4 count 1")
    machine.clock.advance(15 * 60)
    asking = f"Executing API with path:  {JOBS}?"
    wait_until(lambda: machine.logged(asking) == 1, 30, "it asks for jobs")
    assert machine.service("-stop").returncode == 0
    await_end()
    texts = [text for _, _, text in machine.log_records()]
    asked = next(n for n, text in enumerate(texts) if text.startswith(asking))
    noticed = texts.index("Intercepted signal SIGTERM. Will stop the service")
    answered = texts.index("API return value: 0 ", asked)
    ended = texts.index("System called for Service ShutDown. Stopping the service")
    assert asked < noticed < answered < ended  # the gather is finished first
    assert stored_jobs(machine) == [801]

    machine.misbehave(f"{IMAGES} hang 3600")
    start_with_history(machine)
    machine.clock.advance(15 * 60)
    wait_until(lambda: machine.logged(f"Executing API with path:  {IMAGES}?") == 2, 30, "it asks for images")
    answer = machine.service("-terminate")
    assert (answer.returncode, answer.stdout, answer.stderr) == (0, "", "")
    assert process_ids(SERVICE) == []
    assert host.DATABASE.exists()


def test_a_server_that_hangs_for_longer_than_the_time_out(make_machine):
    machine = make_machine(speed=100)  # 300 seconds are 3
    history_gathered_before(BEGIN)
    configure(machine)
    load(machine, [backup(1, BEGIN + 60)])
    machine.start_web_service()
    machine.misbehave("hang 3600 count 1")
    machine.start_service()
    machine.await_log(*transport_failure(28))
    machine.await_log(2, SERVICE, "Using gather frequency as 15 mins")
    assert machine.logged("Could not capture data between ") == 1
    machine.service("-terminate")
