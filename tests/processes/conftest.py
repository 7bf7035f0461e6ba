"""Fixtures for tests of programs: they wait for output, and leave no program running.

A test gets a clean environment and a directory of its own, and may change both.
"""

import fcntl
import json
import os
import re
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path

import pytest

# Seconds; longer than anything here takes, even on a slow machine, so reached only on failure.
PATIENCE = 100
socket.setdefaulttimeout(PATIENCE)

CHRONALCTL = os.environ["CHRONALCTL"]
SIMD = os.environ["CHRONAL_SIMD"]
CLIENT = os.environ["TEST_CLIENT"]
SANITIZED = "-fsanitize" in os.environ["CXXFLAGS"]
THREAD_SANITIZED = "-fsanitize=thread" in os.environ["CXXFLAGS"]


def eventually(condition):
    """Polls a condition that sends no notification, such as the contents of /proc."""
    deadline = time.monotonic() + PATIENCE
    while not (result := condition()) and time.monotonic() < deadline:
        time.sleep(0.005)
    return result


def show(command, output):
    """Pytest shows what is printed if the test fails."""
    print("---", *command)
    print(output.decode(errors="backslashreplace"))


def is_closed(end):
    """Waits until the other side closes; it may not have read everything."""
    try:
        while end.recv(4096):
            pass
    except ConnectionResetError:
        pass
    return True


class Process:
    """A program that runs in the background; `output` is all that it has printed."""

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
        """Waits until `count` lines match and returns the last match."""

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
        """Returns how many lines match so far."""
        return len(re.findall(pattern.encode(), self.output, re.MULTILINE))

    def send(self, text):
        """Writes to standard input, which has to be a pipe."""
        self.popen.stdin.write(text.encode())
        self.popen.stdin.flush()

    def stop(self, number=signal.SIGTERM):
        """Sends a signal, waits for the end, and returns the exit status."""
        self.popen.send_signal(number)
        return self.wait()

    def wait(self):
        status = self.popen.wait(PATIENCE)
        self._reader.join(PATIENCE)
        return status

    def end(self):
        """Kills the program and its children."""
        if self.popen.poll() is None:
            os.killpg(self.popen.pid, signal.SIGKILL)
        self.wait()
        if self.popen.stdin:
            self.popen.stdin.close()
        show(self.command, self.output)


class Client(Process):
    """The application that tests control; see tests/processes/client.cpp."""

    def tell(self, command):
        self.send(command + "\n")

    def fetch(self):
        """Sends a command and waits for its answer."""
        before = self.count("^answer$")
        self.tell("fetch")
        self.wait_for("^answer$", before + 1)


@pytest.fixture
def directory():
    """An empty private directory with a path short enough for sockets in it."""
    made = tempfile.mkdtemp(prefix="chronal-", dir="/tmp")
    yield Path(made)
    shutil.rmtree(made)


@pytest.fixture
def environment(directory):
    """A minimal environment, without variables that the programs read."""
    kept = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
    return {**kept, "PATH": os.environ["PATH"], "HOME": str(directory)}


@pytest.fixture
def start(environment, directory):
    """start(COMMAND..., OPTION=...): starts a program in the background."""
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
        result = subprocess.run(command, capture_output=True, timeout=PATIENCE, **options)
        show(command, result.stdout + result.stderr)
        return result

    return run


@pytest.fixture
def chronalctl(run):
    """chronalctl(WORD..., OPTION=...): runs chronalctl to its end."""
    return lambda *words, **options: run(CHRONALCTL, *words, **options)


@pytest.fixture
def start_service(start):
    """start_service(WORD..., OPTION=...): starts a simulated service and waits until it listens."""

    def start_service(*words, **options):
        # The pipe holds all lines about a burst, because the service omits lines that do not fit.
        service = start(SIMD, *words, **{"pipesize": 1 << 19, **options})
        service.wait_for("^listening on ")
        return service

    return start_service


@pytest.fixture
def start_client(start):
    """start_client(WORD...): starts an application that the test controls."""
    return lambda *words: start(CLIENT, *words, kind=Client, stdin=subprocess.PIPE)


@pytest.fixture
def place(environment, directory):
    """The path of the socket, for both services and applications."""
    environment["CHRONAL_SOCKET"] = str(directory / "socket")
    return environment["CHRONAL_SOCKET"]


@pytest.fixture
def service(place, start_service):
    """service(WORD...): starts a service at that path."""
    return lambda *words: start_service("--socket", place, *words)


@pytest.fixture
def connect(place):
    """connect(): connects to the service without the library, so that it can send anything."""
    ends = []

    def connect():
        ends.append(socket.socket(socket.AF_UNIX))
        ends[-1].connect(place)
        return ends[-1]

    yield connect
    for end in ends:
        end.close()


@pytest.fixture
def accept(place):
    """accept(): listens in place of the service and accepts one connection."""

    def accept():
        if os.path.exists(place):
            os.unlink(place)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(place)
            listener.listen()
            return listener.accept()[0]

    return accept


@pytest.fixture
def answer(chronalctl):
    """answer(COMMAND): what chronalctl prints of a command that succeeds."""

    def answer(command):
        result = chronalctl(*shlex.split(command))
        assert (result.returncode, result.stderr) == (0, b"")
        return result.stdout.decode()

    return answer


@pytest.fixture
def complaint(chronalctl):
    """complaint(STATUS, COMMAND): what chronalctl says when it fails, in JSON as well as in words."""

    def complaint(status, command):
        words = shlex.split(command)
        result = chronalctl(*words)
        assert (result.returncode, result.stdout.replace(b"connected\n", b"")) == (status, b"")
        for_programs = chronalctl("--json", *words)
        assert for_programs.returncode == status
        *earlier, last = map(json.loads, for_programs.stdout.splitlines())
        assert last.keys() == {"command", "error"} and all("error" not in line for line in earlier)
        error = last["error"]
        assert error.keys() == {"status", "number", "text", "advice"} and error["status"] == status
        said = f"chronalctl: {error['text']}\n" + (error["advice"] and error["advice"] + "\n")
        assert said in for_programs.stderr.decode()
        assert status != 1 or f": {error['number']} (" in error["text"]
        return result.stderr.decode()

    return complaint


@pytest.fixture
def stalled():
    """A full pipe: options for a program that writes to it, and the end to read."""
    end, room = os.pipe()
    os.write(room, b"x" * (fcntl.fcntl(room, fcntl.F_GETPIPE_SZ) - 1) + b"\n")
    yield {"stdout": room, "stderr": room}, end
    os.close(room)
    os.close(end)
