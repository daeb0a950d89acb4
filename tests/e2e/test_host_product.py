"""What the service needs of its host product: credentials, master configuration, the anomaly server's name."""

import os

import pytest

import machine as host
import stand_ins
from conftest import BEGIN
from gathering import backup, load
from machine import MASTER, SERVICE, process_ids
from service_runs import (
    GATHERED, await_end, configure, history_gathered_before, live_row, next_gather, rows_of, start_with_history)

SETTINGS = host.TREE / "var/global/qp.conf"
MASTER_CONFIGURATION = host.TREE / "corvane/corvane.conf"
ELSEWHERE = (4, SERVICE, "Running on different anomaly proxy server. Exiting")
BACKUPS = [backup(1, BEGIN + 60), backup(2, BEGIN + 16 * 60)]
URL = f"https://{MASTER}:1556/"


@pytest.fixture
def machine(make_machine):
    machine = make_machine(stepped=True)
    history_gathered_before(BEGIN)
    configure(machine)
    load(machine, BACKUPS)
    machine.start_web_service()
    yield machine
    machine.service("-terminate")


def transport_failures(machine):
    """What the transport says is wrong, and the code that it gives."""
    own = [text for _, tag, text in machine.log_records(16) if tag == "CVClientCURL"]
    codes = [int(text.rpartition(" = ")[2]) for _, _, text in machine.log_records(16)
             if "Return code = " in text]
    return own, codes


@pytest.mark.parametrize("file", ["host.pem", "host.key"])
def test_a_missing_certificate_or_key_until_it_is_back(machine, file):
    start_with_history(machine)
    aside = host.CREDENTIALS / "aside"
    (host.CREDENTIALS / file).rename(aside)
    try:
        window = next_gather(machine)
    finally:
        aside.rename(host.CREDENTIALS / file)
    own, codes = transport_failures(machine)
    assert codes == [58, 58]  # images, feedback
    assert [text.partition(": ")[0] for text in own] == [
        URL + "corvane/catalog/images", URL + "corvane/wui/anomalies"]
    assert all(str(host.CREDENTIALS / file) in text for text in own)
    assert (16, SERVICE, f"Could not capture data between {window[0]} & {window[1]} ") in machine.log_records()
    next_gather(machine)
    assert rows_of(machine, "HIST_DATA") == [live_row(BACKUPS[1], status=-1)]
    assert len(machine.log_records(16)) == 7


def test_a_key_that_others_can_read_is_not_used(machine):
    start_with_history(machine)
    key = host.CREDENTIALS / "host.key"
    key.chmod(0o640)
    try:
        next_gather(machine)
    finally:
        key.chmod(0o600)
    reason = f"private key {key} is refused: others than its owner have access to it"
    own, codes = transport_failures(machine)
    assert own == [URL + "corvane/catalog/images: " + reason, URL + "corvane/wui/anomalies: " + reason]
    assert codes == [58, 58]
    assert machine.requests() == []
    next_gather(machine)
    assert rows_of(machine, "HIST_DATA") == [live_row(BACKUPS[1], status=-1)]


def test_a_server_that_another_authority_vouches_for(machine, tmp_path):
    machine.stop_web_service()
    machine.run("cvhostd", "credentials", tmp_path / "others", "--server", MASTER)
    machine.start_web_service(credentials=tmp_path / "others")
    start_with_history(machine)
    next_gather(machine)
    own, codes = transport_failures(machine)
    assert codes == [60, 60]
    assert all("certificate" in text for text in own)
    assert rows_of(machine, "HIST_DATA") == []


@pytest.mark.parametrize("content", [None, "[domain]\nservers=\n", "[domain]\nservers=$(reboot)\n"],
                         ids=["missing", "empty", "no name"])
def test_without_a_master_server_there_is_no_service(make_machine, content):
    machine = make_machine()
    stand_ins.install()
    MASTER_CONFIGURATION.unlink()
    if content is not None:
        MASTER_CONFIGURATION.write_text(content)
    machine.service("-start")  # which reports a failure when it did not see the short-lived daemon
    await_end()
    errors = machine.log_records(16)
    assert errors[:3] == [
        (16, "getMasterServerName", "ERR - Call to getMasterServerName() failed.\n"),
        (16, SERVICE, "Failed to get master server name"),
        (16, SERVICE, "Failed to populate config parameters")]
    assert errors[3:] in ([], [
        (16, SERVICE, "cvanomalymgmt service didn't start successfully"),
        (16, SERVICE, "Failed to Start the service")])
    assert machine.logged("UNIX:") == 0  # the companions are left alone
    assert stand_ins.events() == []
    stand_ins.remove()


def test_a_master_configuration_that_cannot_be_parsed(machine):
    MASTER_CONFIGURATION.write_text("[host]\nservice_account\n")
    answer = machine.service("-start")
    if os.geteuid() == 0:  # it may name an account, and the service never runs with more rights than it was given
        assert (answer.returncode, answer.stdout, answer.stderr) == (
            1, "", f"cvanomalymgmt: cannot read the service account from {MASTER_CONFIGURATION}\n")
        assert machine.log_records() == []
    else:
        await_end()
        assert (16, SERVICE, "Failed to get master server name") in machine.log_records()
    assert process_ids(SERVICE) == []


def test_a_master_configuration_that_goes_away_while_the_service_runs(machine):
    start_with_history(machine)
    MASTER_CONFIGURATION.unlink()
    machine.clock.advance(15 * 60)
    # This host is no master server any more, and no other one is named.
    machine.await_log(*ELSEWHERE)
    await_end()


@pytest.mark.parametrize("name", ["media01.example.com", "master01", "MASTER01.example.com"])
def test_another_anomaly_server_from_the_start(make_machine, name):
    machine = make_machine()
    SETTINGS.write_text(f"OTHER = x\nANOMALY_PROXY_SERVER = {name}\n")
    machine.service("-start")
    await_end()
    assert machine.log_records().count(ELSEWHERE) == 1
    assert machine.logged("Historical") == 0
    assert not (host.DATABASE_DIR / "temp_out_file.txt").exists()


def test_another_anomaly_server_while_it_runs(machine):
    SETTINGS.write_text(f"ANOMALY_PROXY_SERVER = {MASTER}\n")
    stand_ins.install()
    configure(machine, detection=0)
    start_with_history(machine)
    next_gather(machine)
    assert rows_of(machine, "DATA_TO_PROCESS") == [live_row(BACKUPS[0])]
    SETTINGS.write_text("ANOMALY_PROXY_SERVER = media01.example.com\n")
    machine.clock.advance(15 * 60)
    machine.await_log(*ELSEWHERE)
    await_end()
    assert machine.logged(GATHERED) == 1
    assert process_ids(stand_ins.DETECT) == []
    assert [event["who"] for event in stand_ins.events("asked to end")] == [stand_ins.DETECT]
    stand_ins.remove()


def test_the_anomaly_server_need_not_be_the_master(make_machine):
    machine = make_machine()
    history_gathered_before(BEGIN)
    configure(machine)
    text = MASTER_CONFIGURATION.read_text()
    MASTER_CONFIGURATION.write_text(text.replace(f"name={MASTER}", "name=media01.example.com"))
    machine.service("-start")
    await_end()  # without a named anomaly server the service belongs to the master
    assert machine.log_records().count(ELSEWHERE) == 1
    SETTINGS.write_text("ANOMALY_PROXY_SERVER =\n")
    machine.service("-start")
    await_end()
    assert machine.log_records().count(ELSEWHERE) == 2
    assert (2, SERVICE, "qpconf anomaly Server name is empty") in machine.log_records()

    SETTINGS.write_text("ANOMALY_PROXY_SERVER = media01.example.com\n")
    start_with_history(machine)
    machine.stop_service()
    assert machine.log_records().count(ELSEWHERE) == 2
