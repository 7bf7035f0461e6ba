"""Fixtures for tests of programs: they wait for output, and leave no program running.

A test gets a directory of its own, and a clean environment that names the socket "it" there. It may
change both.
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
import time
from pathlib import Path

import pytest

# Seconds; longer than anything here takes, even on a slow machine, so reached only on failure.
PATIENCE = 100
socket.setdefaulttimeout(PATIENCE)

CHRONALCTL, SIMD = os.environ["CHRONALCTL"], os.environ["CHRONAL_SIMD"]


def eventually(condition):
    """Polls a condition that sends no notification, such as the contents of a file."""
    deadline = time.monotonic() + PATIENCE
    while not (result := condition()) and time.monotonic() < deadline:
        time.sleep(0.002)
    return result


class Process:
    """A program that runs in the background and whose output goes to a file."""

    def __init__(self, command, **options):
        self._file = tempfile.TemporaryFile()
        self.command = [str(word) for word in command]
        options = {"stdout": self._file, "stderr": subprocess.STDOUT, **options}
        options = {"stdin": subprocess.PIPE, "start_new_session": True, **options}
        self.popen = subprocess.Popen(self.command, **options)
        self.proc = Path(f"/proc/{self.popen.pid}")

    @property
    def output(self):
        file = self._file.fileno()
        return os.pread(file, os.fstat(file).st_size, 0)

    def matches(self, pattern):
        return list(re.finditer(pattern.encode(), self.output, re.M))

    def count(self, pattern):
        return len(self.matches(pattern))

    def wait_for(self, pattern, count=1):
        """Waits until `count` lines match, and returns the last match."""
        eventually(lambda: self.popen.poll() is not None or self.count(pattern) >= count)
        found = self.matches(pattern)
        assert len(found) >= count, f"{self.command[0]} did not print {pattern!r} {count} times"
        return found[count - 1]

    def tell(self, line):
        self.popen.stdin.write(line.encode() + b"\n")
        self.popen.stdin.flush()

    def pause(self):
        self.popen.send_signal(signal.SIGSTOP)
        assert eventually(lambda: ") T " in (self.proc / "stat").read_text())

    def wait(self):
        return self.popen.wait(PATIENCE)

    def stop(self, number=signal.SIGTERM):
        """Sends a signal, waits for the end, and returns the exit status."""
        self.popen.send_signal(number)
        return self.wait()

    def memory(self, field):
        """Returns a field of the process's status, in KiB."""
        return int(re.search(rf"^{field}:\s*(\d+)", (self.proc / "status").read_text(), re.M)[1])

    def end(self):
        """Kills the program and its children."""
        if self.popen.poll() is None:
            os.killpg(self.popen.pid, signal.SIGKILL)
        self.popen.communicate()
        show(self.command, self.output)
        self._file.close()


def show(command, output):
    """Pytest shows what is printed if the test fails."""
    print("---", *command)
    print(output.decode(errors="backslashreplace"))


@pytest.fixture
def directory():
    """An empty private directory with a path short enough for sockets in it."""
    made = tempfile.mkdtemp(prefix="chronal-", dir="/tmp")
    yield Path(made)
    shutil.rmtree(made)


@pytest.fixture
def environment(directory):
    kept = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
    return {**kept, "PATH": os.environ["PATH"], "HOME": str(directory), "CHRONAL_SOCKET": "it"}


@pytest.fixture
def start(environment, directory):
    """start(COMMAND..., OPTION=...): starts a program in the background."""
    processes = []

    def start(*command, **options):
        processes.append(Process(command, **{"cwd": directory, "env": environment, **options}))
        return processes[-1]

    yield start
    for process in reversed(processes):
        process.end()


@pytest.fixture
def start_service(start):
    """start_service(WORD...): starts a service, usually at "it", and waits until it listens."""

    def start_service(*words):
        where = [] if "--socket" in words else ["--socket", "it"]
        service = start(SIMD, *where, *words)
        service.wait_for("^listening on ")
        return service

    return start_service


@pytest.fixture
def monitor(start):
    """monitor(WORD...): starts a monitor, which need not be connected yet."""
    return lambda *words, **options: start(CHRONALCTL, "monitor", *words, **options)


@pytest.fixture
def run(environment, directory):
    """run(COMMAND...): runs a program to its end; returns its status, output and errors."""

    def run(*command):
        done = subprocess.run(command, env=environment, cwd=directory, stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=PATIENCE)
        show(command, done.stdout + done.stderr)
        texts = (text.decode(errors="surrogateescape") for text in (done.stdout, done.stderr))
        return done.returncode, *texts

    return run


@pytest.fixture
def chronalctl(run):
    """chronalctl(COMMAND): runs chronalctl, given a line or a list of words."""
    return lambda line: run(CHRONALCTL, *(shlex.split(line) if isinstance(line, str) else line))


@pytest.fixture
def answer(chronalctl):
    """answer(COMMAND): what chronalctl prints of a command that succeeds."""

    def answer(command):
        status, output, errors = chronalctl(command)
        assert (status, errors) == (0, "")
        return output

    return answer


@pytest.fixture
def complaint(chronalctl):
    """complaint(STATUS, COMMAND): what chronalctl says, also to programs, when it fails."""

    def complaint(status, command):
        got, output, said = chronalctl(f"{command} --json")
        last = json.loads(output.splitlines()[-1])
        error = last["error"]
        assert list(last) == ["command", "error"] and got == error["status"] == status
        assert list(error) == ["status", "number", "text", "advice"]
        words = [f"chronalctl: {error['text']}", *filter(None, [error["advice"]])]
        assert said.splitlines()[-len(words) :] == words
        return said

    return complaint


@pytest.fixture
def listener(directory):
    """A socket that listens in place of the service."""
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(directory / "it"))
        listener.listen()
        yield listener


@pytest.fixture
def stalled():
    """A full pipe: options for a program that writes to it, and the end to read."""
    end, room = os.pipe()
    os.write(room, b"x" * (fcntl.fcntl(room, fcntl.F_GETPIPE_SZ) - 1) + b"\n")
    yield {"stdout": room, "stderr": room}, end
    os.close(room)
    os.close(end)
