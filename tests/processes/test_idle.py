"""A program that has nothing to do uses no processor time."""

import os
import time

import pytest
from conftest import eventually

REST = 0.3  # seconds; enough for a poller to wake up

# Options of a service, and a command for it.
SERVICES = [
    ("--zone UTC", "status"),
    ("--zone Europe/Berlin", "ref-time set RTC @0"),
    ("--zone UTC", "deviation next set RTC @1 1h"),
    ("--zone UTC", "deviation next set RTC @253402300799 1h"),
    ("--zone Europe/Berlin --speed 0.001", "status"),
    ("--zone Europe/Berlin --speed 1000 --start-time 2026-05-01", "status"),
    # The clock wraps around at once, and the RTC passes a change 4 ms after it is set.
    ("--zone Europe/Berlin --speed 1e6 --start-time 9999-12-31T23:59:59",
     "ref-time set RTC @1774742400"),
]


def activity(process):
    """Returns how long, and how often, each thread has run."""
    try:
        tasks = (process.proc / "task").iterdir()
        return {task: (task / "schedstat").read_text() for task in tasks}
    except FileNotFoundError:  # a thread has just ended
        return object()


def come_to_rest(processes):
    """Idleness can only be observed over time."""
    resting = set()

    def rest():
        before = [activity(process) for process in processes]
        time.sleep(REST)
        for process, was in zip(processes, before):
            if activity(process) == was:
                resting.add(process)
        return len(resting) == len(processes)

    eventually(rest)
    return [process.command for process in processes if process not in resting]


@pytest.mark.skipif(
    "-fsanitize=thread" in os.environ["CXXFLAGS"], reason="the thread sanitizer has a busy thread"
)
def test_programs_rest_when_no_client_needs_anything(environment, start_service, monitor, answer):
    resting = []
    for number, (options, _) in enumerate(SERVICES):
        resting.append(start_service("--socket", f"it{number}", *options.split()))
    assert come_to_rest(resting) == []
    for number, (_, command) in enumerate(SERVICES):
        environment["CHRONAL_SOCKET"] = f"it{number}"
        resting.append(monitor())
        resting[-1].wait_for("^connected$")
        answer(command)
    del environment["CHRONAL_SOCKET"]
    resting.append(monitor())  # has its service inside
    assert come_to_rest(resting) == []
