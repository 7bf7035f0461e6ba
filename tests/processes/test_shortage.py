"""A service survives one failed allocation or a lasting shortage, and still ends when told to."""

import itertools
import mmap
import os
import re
import socket
import struct

import pytest

from conftest import PATIENCE

pytestmark = pytest.mark.skipif(
    "-fsanitize" in os.environ["CXXFLAGS"], reason="a sanitizer has an allocator of its own"
)

SERVICE, RESOURCE, OPERATION = 29032007, 31032007, 26032007
SET, FETCH, SUBSCRIBE, INIT = 0, 1, 2, 7  # operations
REFERENCE, CURRENT, DEVIATION, SETTINGS, ZONE, START, BROADCAST = 1, 2, 3, 6, 7, 10, 11  # resources
RTC, DVB = 1, 3
NAME = b"a name that is longer than what a string holds without an allocation"
TROUBLE = rb"^fabric-host: |\(out of memory\)|lines left out"


def text(characters):
    return struct.pack(">I", len(characters)) + characters


def word(value):
    return struct.pack(">i", value)


def moment(seconds):
    return struct.pack(">qi", seconds, 0)


# Each has resource, operation and body. The last two are equal, because one answer may be lost.
COMMANDS = [
        (ZONE, SET, text(b"UTC") + moment(0)),
        (ZONE, SET, text(b"Europe/Berlin") + moment(0)),
        (REFERENCE, SUBSCRIBE, word(RTC)),
        (SETTINGS, SET, 5 * moment(0) + word(7) + text(NAME) + 3 * word(1)),
        (REFERENCE, SET, word(DVB) + moment(9) + moment(3600) + word(1) + 2 * moment(0)),
        (DEVIATION, SET, word(DVB) + moment(99) + moment(7200) + word(1) + 2 * moment(0)),
        (SETTINGS, FETCH, word(0)),
        (START, INIT, word(0)),
        (ZONE, FETCH, word(0)),
        (ZONE, FETCH, word(0)),
]
LAST = len(COMMANDS)
NOTIFIED = {CURRENT, ZONE, DEVIATION, BROADCAST}


class Shortage:
    """Controls the service's allocations through the file that Shortage.cpp maps."""

    def __init__(self, path):
        path.write_bytes(bytes(mmap.PAGESIZE))
        with open(path, "r+b") as file:
            self._words = mmap.mmap(file.fileno(), mmap.PAGESIZE)

    def begin(self, allocation):
        """Makes the next allocation of the given number fail; 0 means none, -1 all."""
        self._words[:8] = struct.pack("ii", allocation, 0)

    def failures(self):
        return struct.unpack("i", self._words[4:8])[0]


class Client:
    def __init__(self, path):
        self.answers = {}
        self.notified = set()
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(PATIENCE)
        self._socket.connect(str(path))
        self._stream = self._socket.makefile("rb")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._stream.close()
        self._socket.close()

    def send(self, messages):
        frames = b""
        for number, (resource, operation, body) in enumerate(messages, 1):
            frames += struct.pack(">4IBBH", 36 + len(body), SERVICE, RESOURCE + resource,
                                  OPERATION + operation, 0, 1, 0)
            frames += struct.pack(">iIII", -1, 1, 1, number) + body
        self._socket.sendall(frames)

    def receive(self):
        """Receives one message; returns False at the end of the connection."""
        try:
            length = self._stream.read(4)
            message = self._stream.read(struct.unpack(">I", length)[0] - 4) if length else b""
        except ConnectionError:
            return False
        if not message:
            return False
        resource, origin, number = struct.unpack(">4xI16xII", message[:32])
        if origin != 0:
            self.answers[number] = message[32:]
        else:
            self.notified.add(resource - RESOURCE)
        return True

    def converse(self):
        """Sends all commands and awaits their effects; returns False if the connection ends."""
        try:
            self.send(COMMANDS)
        except ConnectionError:
            return False
        while not self.answers.keys() & {LAST - 1, LAST} or (
            3 in self.answers and CURRENT not in self.notified
        ):
            if not self.receive():
                return False
        assert len(self.answers) >= LAST - 1 and self.notified >= NOTIFIED
        assert b"Europe/Berlin" in b"".join(self.answers.values())
        return True


@pytest.fixture
def shortage(directory):
    return Shortage(directory / "shortage")


@pytest.fixture
def path(directory):
    return directory / "it"


@pytest.fixture
def start_starved(shortage, directory, environment, start_service):
    """start_starved(): starts a service whose allocations can be made to fail."""
    environment["LD_PRELOAD"] = os.environ["SHORTAGE_LIBRARY"]
    environment["SHORTAGE"] = str(directory / "shortage")
    return lambda: start_service("--socket", "it", "--period", "1ms", "--verbose")


def test_a_failed_allocation_costs_at_most_a_message_or_a_connection(shortage, path, start_starved):
    for allocation in itertools.count(1):
        service = start_starved()
        shortage.begin(allocation)
        lost = False
        for _ in range(3):
            before = shortage.failures()
            with Client(path) as client:
                complete = client.converse()
            assert complete or shortage.failures() > before
            lost |= not complete
        uninterrupted = shortage.failures() == 0
        assert service.stop() == 0, allocation
        assert not lost or re.search(TROUBLE, service.output, re.M), allocation
        if uninterrupted:
            break
    print(allocation, "allocations")


@pytest.mark.parametrize("ends", [False, True], ids=["passes", "lasts"])
def test_a_shortage_can_last(ends, shortage, path, start_starved):
    service = start_starved()
    with Client(path) as subscriber:
        assert subscriber.converse()
        lines = service.output.count(b"\n")
        shortage.begin(-1)
        while subscriber.receive():
            pass
    attempts = 50
    for _ in range(attempts):
        with Client(path) as client:
            assert not client.converse()
    assert shortage.failures() < 20 * attempts
    if ends:
        assert service.stop() == 0
        return
    shortage.begin(0)
    with Client(path) as client:
        assert client.converse()
    assert service.stop() == 0
    assert len(re.findall(TROUBLE, service.output, re.M)) < 20
