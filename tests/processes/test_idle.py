"""A program that has nothing to do uses no processor time."""

import time
from pathlib import Path

import pytest
from conftest import THREAD_SANITIZED, eventually

# The thread sanitizer has a thread of its own, which never sleeps.
pytestmark = pytest.mark.skipif(THREAD_SANITIZED, reason="the thread sanitizer never rests")

REST = 0.3  # seconds; enough for a busy loop to use dozens of ticks and for a poller to wake up


def activity(process):
    """Returns each thread's state, processor time and number of context switches."""
    threads = {}
    for task in Path(f"/proc/{process.popen.pid}/task").iterdir():
        fields = (task / "stat").read_text().rpartition(")")[2].split()
        status = (task / "status").read_text().splitlines()
        switches = [line for line in status if "ctxt_switches" in line]
        threads[task.name] = (fields[0], fields[11], fields[12], switches)
    return threads


def comes_to_rest(process):
    def rests():
        before = activity(process)
        time.sleep(REST)  # idleness can only be observed over time
        return activity(process) == before and all(state == "S" for state, *_ in before.values())

    return eventually(rests)


@pytest.mark.parametrize(
    "options, command",
    [
        ("--zone UTC", "fetch"),
        ("--zone Europe/Berlin", "fetch"),
        ("--zone Europe/Berlin", "set 0"),
        ("--zone UTC", "announce 1"),
        ("--zone UTC", "announce 253402300799"),
        ("--zone Europe/Berlin --speed 0.001", "fetch"),
        ("--zone Europe/Berlin --speed 1000 --start-time 2026-05-01", "fetch"),
        # The clock wraps around at once, and the RTC passes a change 4 ms after it is set.
        ("--zone Europe/Berlin --speed 1e6 --start-time 9999-12-31T23:59:59", "set 1774742400"),
    ],
)
def test_a_service_rests_between_the_commands_of_its_clients(
    options, command, environment, start_service, start_client
):
    environment["CHRONAL_SOCKET"] = "it"
    service = start_service("--socket", "it", *options.split())
    assert comes_to_rest(service)
    stays, leaves = start_client(), start_client()
    for client in (stays, leaves):
        client.wait_for("^up$")
        client.tell(command)
        client.wait_for("^(answer|result 0)$")
    leaves.tell("end")
    assert leaves.wait() == 0
    assert comes_to_rest(service)
    assert comes_to_rest(stays)


def test_an_application_rests_with_the_service_inside(start_client):
    application = start_client()
    application.wait_for("^up$")
    application.tell("zone Europe/Berlin")
    application.wait_for("^result 0$")
    assert comes_to_rest(application)
