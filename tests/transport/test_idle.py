"""A service for which there is nothing to do uses no processor time."""

import os
import pathlib
import subprocess
import time

import pytest

pytestmark = pytest.mark.skipif(
    "-fsanitize=thread" in os.environ.get("CXXFLAGS", ""),
    reason="the thread sanitizer has a thread of its own, which never rests",
)

SIMD = os.environ["CHRONAL_SIMD"]
CLIENT = os.environ["TRANSPORT_CLIENT"]
BOUND = 30  # seconds for anything to happen
REST = 0.3  # seconds; what never sleeps uses dozens of ticks in them, a poller wakes up many times


class Process:
    def __init__(self, *command, socket=""):
        environment = {name: value for name, value in os.environ.items() if name != "NUB_DEBUG"}
        environment.pop("CHRONAL_SOCKET", None)
        if socket:
            environment["CHRONAL_SOCKET"] = str(socket)
        pipe = subprocess.PIPE
        self.process = subprocess.Popen(
            command, env=environment, stdin=pipe, stdout=pipe, text=True, bufsize=1
        )

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()

    def tell(self, line):
        self.process.stdin.write(line + "\n")

    def await_line(self, expected):
        for line in self.process.stdout:
            if line.startswith(expected):
                return
        pytest.fail("ended without saying " + expected)

    def activity(self):
        """Of each thread: whether it sleeps, and what changes when it does anything."""
        threads = {}
        for task in pathlib.Path("/proc/{}/task".format(self.process.pid)).iterdir():
            fields = (task / "stat").read_text().rpartition(")")[2].split()
            status = (task / "status").read_text().splitlines()
            switches = [line for line in status if "ctxt_switches" in line]
            threads[task.name] = (fields[0], fields[11], fields[12], switches)
        return threads

    def comes_to_rest(self):
        deadline = time.monotonic() + BOUND
        while time.monotonic() < deadline:
            before = self.activity()
            time.sleep(REST)  # nothing tells of rest but time without work
            if self.activity() == before and all(state == "S" for state, *_ in before.values()):
                return True
        return False


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
        # An hour before a change that never comes, since the clock stands still.
        ("--zone Europe/Berlin --speed 1e6 --start-time 9999-12-31T23:59:59", "set 1774742400"),
    ],
)
def test_a_service_rests_between_the_commands_of_its_clients(options, command, tmp_path):
    socket = tmp_path / "socket"
    with Process(SIMD, "--socket", str(socket), *options.split()) as service:
        service.await_line("listening")
        assert service.comes_to_rest()
        with Process(CLIENT, socket=socket) as stays:
            with Process(CLIENT, socket=socket) as leaves:
                for client in (leaves, stays):
                    client.await_line("up")
                    client.tell(command)
                    client.await_line(("answer", "result 0"))
            assert service.comes_to_rest()
            assert stays.comes_to_rest()


def test_an_application_rests_with_the_service_inside():
    with Process(CLIENT) as application:
        application.await_line("up")
        application.tell("zone Europe/Berlin")
        application.await_line("result 0")
        assert application.comes_to_rest()
