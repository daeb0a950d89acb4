"""Small stand-ins for the companion daemons, under their real names. Each notes in one file, by appends, when
it was started, with which arguments, and when it was asked to end."""

import json

import machine as host

DETECT, ALERT = host.COMPANIONS
EVENTS = host.TREE / "var/global/companion_events"
DIRECTORY = "/usr/tessel/var/global/anomaly_detection/"
COMMAND_LINES = {
    DETECT: [
        "/usr/tessel/corvane/bin/cvanomalydetect", "-database_location", DIRECTORY, "-database_file_name",
        "CV_Anomaly.db", "-eps", "2.5", "-min_samples", "3", "-config_file",
        DIRECTORY + "anomaly_config.conf"],
    ALERT: [
        "/usr/tessel/corvane/bin/cvanomalyalert", "-database_location", DIRECTORY, "-database_file_name",
        "CV_Anomaly.db", "-master", host.MASTER]}

SCRIPT = """#!/usr/bin/python3 -IS
import json, os, signal, sys

def note(what, **more):
    text = json.dumps({"who": os.path.basename(sys.argv[0]), "what": what, "pid": os.getpid(), **more})
    file = os.open("%(events)s", os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o644)
    os.write(file, (text + "\\n").encode())
    os.close(file)

def asked_to_end(*_):
    note("asked to end")
    if not %(stubborn)s:
        os._exit(0)

signal.signal(signal.SIGTERM, asked_to_end)
note("started", argv=sys.argv, session=os.getsid(0))
while True:
    signal.pause()
"""


def install(*names, stubborn=False):
    """stubborn: does not end when it is asked to."""
    for name in names or host.COMPANIONS:
        program = host.BIN / name
        program.write_text(SCRIPT % {"events": EVENTS, "stubborn": stubborn})
        program.chmod(0o755)


def remove():
    for name in host.COMPANIONS:
        (host.BIN / name).unlink(missing_ok=True)


def events(what=None):
    """What the stand-ins noted, in its order."""
    if not EVENTS.exists():
        return []
    noted = [json.loads(line) for line in EVENTS.read_text().splitlines()]
    return [event for event in noted if what in (None, event["what"])]
