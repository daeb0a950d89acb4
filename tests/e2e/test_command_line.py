"""The control tool, as called from a shell, beside a real daemon."""

import subprocess

import machine as host
from machine import SERVICE, process_ids, wait_until

USAGE = (
    "\ncvanomalymgmt [-start | -stop | -terminate | [-h | -help]]"
    "\n\nWhere:"
    "\n  -start     : Starts Anomaly management service."
    "\n  -stop      : Stops Anomaly management service."
    "\n  -terminate : Forcefully terminates Anomaly management service."
    "\n\n  -h | -Help : Print command line help."
    "\n\n")


def call(machine, *arguments):
    answer = machine.run(SERVICE, *arguments, check=False)
    return answer.returncode, answer.stdout, answer.stderr


def test_invalid_command_lines_print_the_usage_and_exit_0(machine):
    for arguments in ([], ["-start", "now"], ["-start", "-stop"], ["-Help"], ["-terminate_data_gather"],
                      ["start"], ["-h"], ["-help"], [""], ["-"]):
        assert call(machine, *arguments) == (0, USAGE, ""), arguments
    assert not process_ids(SERVICE)
    assert machine.log_records() == []


def test_start_and_stop(machine):
    assert call(machine, "-start") == (
        0, "Successfully started the mgmt service\n\nSuccessfully started the service\n", "")
    machine.daemon()
    assert call(machine, "stray", "-stop") == (0, "\nSuccessfully stopped the service\n", "")
    wait_until(lambda: not process_ids(SERVICE), 30, "the service ends")
    assert machine.logged("Intercepted signal SIGTERM. Will stop the service") == 1
    assert machine.logged("System called for Service ShutDown. Stopping the service") == 1


def test_stop_without_a_daemon_says_both(machine):
    assert call(machine, "-stop") == (
        1, "\nFailed to Stop the service\n\nSuccessfully stopped the service\n", "")
    assert machine.log_records() == [
        (16, SERVICE, "Could not fetch the pids of the process."),
        (16, SERVICE, "Failed to Stop the service"),
        (4, SERVICE, "Successfully stopped the service")]


def test_terminate_ends_the_daemon_and_says_nothing(machine):
    call(machine, "-start")
    assert call(machine, "-terminate") == (0, "", "")
    assert not process_ids(SERVICE)
    assert call(machine, "-terminate") == (0, "", "")


def test_start_beside_a_running_daemon_never_leaves_two(make_machine):
    machine = make_machine(real=True)
    call(machine, "-start")
    daemon = machine.daemon()
    for _ in range(50):
        status, output, error = call(machine, "-start")
        assert (status, error) == (0, "")
        assert sorted(output.split("\n")) == sorted(
            ["Successfully started the mgmt service", "cvanomalymgmt service is already running", "",
             "Successfully started the service", ""])
        assert machine.daemon() == daemon
    assert machine.logged("cvanomalymgmt service is already running\n") == 50
    machine.stop_service()


def test_a_missing_log_directory_is_the_end(machine):
    host.LOGS.rmdir()
    for option in ("-start", "-stop", "-terminate"):
        assert call(machine, option) == (
            1, "Failed to setup logging\n",
            "Failed to setup logging at [/usr/tessel/corvane/logs/cvanomalymgmt]\n")
    assert not process_ids(SERVICE)


def test_descriptors_closed_by_the_caller(machine):
    command = f"exec {host.BIN}/cvanomalymgmt -start <&- >&- 2>&-"
    status = subprocess.run(["bash", "-c", command], env=machine.clock.environment, timeout=60,
                            check=False).returncode
    assert status == 0
    daemon = machine.daemon()
    wait_until(lambda: machine.logged("Historical gather is not done."), 30, "the database is open")
    log = [link.name for link in (host.Path(f"/proc/{daemon}/fd")).iterdir()
           if link.resolve() == host.LOGS / SERVICE]
    assert len(log) == 1 and int(log[0]) > 2
    machine.stop_service()
