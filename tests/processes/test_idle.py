"""A program that has nothing to do uses no processor time."""

import os
import time
from pathlib import Path

import pytest
from conftest import PATIENCE, eventually

REST = 0.3  # seconds; enough for a busy loop to use dozens of ticks and for a poller to wake up

# Options of a service, and what a client tells it.
SERVICES = [
    ("--zone UTC", "fetch"),
    ("--zone Europe/Berlin", "fetch"),
    ("--zone Europe/Berlin", "set 0"),
    ("--zone UTC", "announce 1"),
    ("--zone UTC", "announce 253402300799"),
    ("--zone Europe/Berlin --speed 0.001", "fetch"),
    ("--zone Europe/Berlin --speed 1000 --start-time 2026-05-01", "fetch"),
    # The clock wraps around at once, and the RTC passes a change 4 ms after it is set.
    ("--zone Europe/Berlin --speed 1e6 --start-time 9999-12-31T23:59:59", "set 1774742400"),
]


def activity(process):
    """Returns each thread's state, and its numbers of context switches and of ticks used."""
    threads = {}
    try:
        for task in Path(f"/proc/{process.popen.pid}/task").iterdir():
            state, *fields = (task / "stat").read_text().rpartition(")")[2].split()
            switches = (task / "status").read_text().partition("\nvoluntary_ctxt")[2]
            threads[task] = (state, switches, fields[10:12])
    except FileNotFoundError:
        threads["ended"] = ("X",)
    return threads


def come_to_rest(processes):
    """Idleness can only be observed over time."""
    resting = set()

    def rest():
        before = [activity(process) for process in processes]
        time.sleep(REST)
        for process, was in zip(processes, before):
            if activity(process) == was and all(state == "S" for state, *_ in was.values()):
                resting.add(process)
        return len(resting) == len(processes)

    eventually(rest)
    return [process.command for process in processes if process not in resting]


@pytest.mark.skipif(
    "-fsanitize=thread" in os.environ["CXXFLAGS"], reason="the thread sanitizer has a busy thread"
)
def test_programs_rest_when_no_client_needs_anything(environment, start_service, start_client):
    services = [start_service("--socket", f"it{number}", *options.split())
                for number, (options, _) in enumerate(SERVICES)]
    assert come_to_rest(services) == []
    stay, leave = [], []
    for clients in (stay, leave):
        for number in range(len(SERVICES)):
            environment["CHRONAL_SOCKET"] = f"it{number}"
            clients.append(start_client())
    del environment["CHRONAL_SOCKET"]
    stay.append(start_client())  # has its service inside
    commands = [command for _, command in SERVICES]
    for client, command in zip(stay + leave, [*commands, "zone Europe/Berlin", *commands]):
        client.wait_for("^up$")
        client.tell(command)
        client.wait_for("^(answer|result 0)$")
    for client in leave:
        client.tell("end")
        assert client.popen.wait(PATIENCE) == 0
    assert come_to_rest(services + stay) == []
