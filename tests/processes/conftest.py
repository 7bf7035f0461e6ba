"""Fixtures for tests of programs: what a program prints is waited for, and no program is left behind.

A test gets a clean environment and a directory of its own, which it may change as it likes.
"""

import os
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import time
from pathlib import Path

import pytest

# Seconds. Far more than anything here takes, since the machine may be slow; reached only on failure.
PATIENCE = 100


CHRONALCTL = os.environ["CHRONALCTL"]
SIMD = os.environ["CHRONAL_SIMD"]
CLIENT = os.environ["TEST_CLIENT"]
SANITIZED = "-fsanitize" in os.environ["CXXFLAGS"]
THREAD_SANITIZED = "-fsanitize=thread" in os.environ["CXXFLAGS"]


def eventually(condition):
    """For what nothing tells of when it happens, such as what /proc shows."""
    deadline = time.monotonic() + PATIENCE
    while not (result := condition()) and time.monotonic() < deadline:
        time.sleep(0.005)
    return result


class Process:
    """A program that runs beside the test; `output` is all that it has printed."""

    def __init__(self, command, **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, **options}
        self.command = [str(word) for word in command]
        self.popen = subprocess.Popen(self.command, start_new_session=True, **options)
        self.output = b""
        self._changed = threading.Condition()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        while self.popen.stdout and (data := self.popen.stdout.read1()):
            with self._changed:
                self.output += data
                self._changed.notify_all()
        with self._changed:
            self.popen.stdout = None
            self._changed.notify_all()

    def wait_for(self, pattern, count=1):
        """Waits until so many lines match; gives the last match."""

        def matches():
            return list(re.finditer(pattern.encode(), self.output, re.MULTILINE))

        with self._changed:
            self._changed.wait_for(
                lambda: len(matches()) >= count or not self.popen.stdout, PATIENCE
            )
            found = matches()
        assert len(found) >= count, f"{self.command[0]} did not print {pattern!r} {count} times"
        return found[count - 1]

    def count(self, pattern):
        """How many lines match by now."""
        return len(re.findall(pattern.encode(), self.output, re.MULTILINE))

    def send(self, text):
        """To its standard input, which has to be a pipe."""
        self.popen.stdin.write(text.encode())
        self.popen.stdin.flush()

    def stop(self, number=signal.SIGTERM):
        """Sends a signal, waits for the end, and gives the exit status."""
        self.popen.send_signal(number)
        return self.wait()

    def wait(self):
        status = self.popen.wait(PATIENCE)
        self._reader.join(PATIENCE)
        return status

    def end(self):
        """Kills it and what it has started. Pytest shows what is printed here if the test fails."""
        if self.popen.poll() is None:
            os.killpg(self.popen.pid, signal.SIGKILL)
        self.wait()
        if self.popen.stdin:
            self.popen.stdin.close()
        print("---", *self.command)
        print(self.output.decode(errors="backslashreplace"))


class Client(Process):
    """The application that the tests steer: see tests/processes/client.cpp."""

    def tell(self, command):
        self.send(command + "\n")

    def fetch(self):
        """A command and its answer."""
        before = self.count("^answer$")
        self.tell("fetch")
        self.wait_for("^answer$", before + 1)


@pytest.fixture
def directory():
    """Empty and private, with a path that leaves room for that of a socket."""
    made = tempfile.mkdtemp(prefix="chronal-", dir="/tmp")
    yield Path(made)
    shutil.rmtree(made)


@pytest.fixture
def environment(directory):
    """What a newcomer's shell has, without anything that the programs look at."""
    kept = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
    return {**kept, "PATH": os.environ["PATH"], "HOME": str(directory)}


@pytest.fixture
def start(environment, directory):
    """start(COMMAND..., OPTION=...): starts a program beside the test."""
    processes = []

    def start(*command, kind=Process, **options):
        options = {"env": environment, "cwd": directory, "stdin": subprocess.DEVNULL, **options}
        processes.append(kind(command, **options))
        return processes[-1]

    yield start
    for process in reversed(processes):
        process.end()


@pytest.fixture
def run(environment, directory):
    """run(COMMAND..., OPTION=...): runs a program to its end; output and errors are bytes."""

    def run(*command, **options):
        options = {"env": environment, "cwd": directory, "stdin": subprocess.DEVNULL, **options}
        return subprocess.run(command, capture_output=True, timeout=PATIENCE, **options)

    return run


@pytest.fixture
def chronalctl(run):
    """chronalctl(WORD..., OPTION=...): runs it to its end."""
    return lambda *words, **options: run(CHRONALCTL, *words, **options)


@pytest.fixture
def start_service(start):
    """start_service(WORD..., OPTION=...): a simulated service that listens."""

    def start_service(*words, **options):
        # Room for all lines about a burst: the service leaves out those that nobody reads.
        service = start(SIMD, *words, **{"pipesize": 1 << 19, **options})
        service.wait_for("^listening on ")
        return service

    return start_service


@pytest.fixture
def start_client(start):
    """start_client(WORD...): an application for the test to steer."""
    return lambda *words: start(CLIENT, *words, kind=Client, stdin=subprocess.PIPE)
