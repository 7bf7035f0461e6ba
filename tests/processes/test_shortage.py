"""A service survives one failed allocation or a lasting shortage, and still ends when told to."""

import itertools
import mmap
import os
import re
import socket
import struct

import pytest

pytestmark = pytest.mark.skipif(
    re.search("-fsanitize|--coverage", os.environ["CXXFLAGS"]) is not None,
    reason="a sanitizer has an allocator of its own, and counters need memory in the end",
)
# Every allocation takes many seconds.
STRIDE = 1 if "EVERY_ALLOCATION" in os.environ else 29

SERVICE, RESOURCE, OPERATION = 29032007, 31032007, 26032007
SET, FETCH, SUBSCRIBE, INIT = 0, 1, 2, 7  # operations
REFERENCE, CURRENT, SETTINGS, ZONE, START = 1, 2, 6, 7, 10  # resources
NAME = b"a name that is longer than what a string holds without an allocation"
TROUBLE = rb"^fabric-host: |\(out of memory\)|lines left out"
# The last two are equal, because one answer may be lost.
COMMANDS = [
    (ZONE, SET, ">I13sqi", 13, b"Europe/Berlin", 0, 0),
    (REFERENCE, SUBSCRIBE, ">i", 1),
    (SETTINGS, SET, f">60xiI{len(NAME)}s3i", 7, len(NAME), NAME, 1, 1, 1),
    (REFERENCE, SET, ">iqiqii24x", 3, 9, 0, 3600, 0, 1),
    (START, INIT, ">i", 0),
    (ZONE, FETCH, ">i", 0),
    (ZONE, FETCH, ">i", 0),
]


def receive(stream):
    """Returns resource, origin, number and body of a message; something false at the end."""
    try:
        length = stream.read(4)
        message = stream.read(struct.unpack(">I", length)[0] - 4) if length else b""
    except ConnectionError:
        return None
    return message and (*struct.unpack(">4xI16x2I", message[:32]), message[32:])


def converse(end):
    """Sends all commands and awaits their effects; returns False if the connection ends."""
    frames = b""
    for number, (resource, operation, form, *values) in enumerate(COMMANDS, 1):
        body = struct.pack(form, *values)
        kind = (SERVICE, RESOURCE + resource, OPERATION + operation, 0, 1, 0)
        frames += struct.pack(">4I2BHi3I", 36 + len(body), *kind, -1, 1, 1, number) + body
    try:
        end.sendall(frames)
    except ConnectionError:
        return False
    answers, awaited = {}, {RESOURCE + CURRENT}
    with end.makefile("rb") as stream:
        while not answers.keys() & {6, 7} or (2 in answers and awaited):
            if not (message := receive(stream)):
                return False
            resource, origin, number, body = message
            if origin:
                answers[number] = body
            else:
                awaited.discard(resource)
    assert b"Europe/Berlin" in answers.get(6, b"") + answers.get(7, b"")
    return True


@pytest.fixture
def connect(directory):
    def connect():
        end = socket.socket(socket.AF_UNIX)
        end.connect(str(directory / "it"))
        return end

    return connect


@pytest.fixture
def served(connect):
    """served(): returns true if a new client gets all it asks for."""

    def served():
        with connect() as end:
            return converse(end)

    return served


@pytest.fixture
def shortage(directory, environment):
    """shortage(NUMBER): makes an allocation of the service fail, -1 all; returns past failures."""
    assert os.path.exists(os.environ["SHORTAGE_LIBRARY"])
    environment["LD_PRELOAD"] = os.environ["SHORTAGE_LIBRARY"]
    environment["SHORTAGE"] = str(directory / "shortage")
    (directory / "shortage").write_bytes(bytes(mmap.PAGESIZE))
    with open(directory / "shortage", "r+b") as file:
        words = mmap.mmap(file.fileno(), mmap.PAGESIZE)

    def shortage(number):
        failures = struct.unpack("i", words[4:8])[0]
        words[:8] = struct.pack("ii", number, 0)
        return failures

    return shortage


OPTIONS = ("--period", "1ms", "--verbose")


def test_a_failed_allocation_costs_at_most_a_message_or_a_connection(shortage, start_service, served):
    for allocation in itertools.count(1, STRIDE):
        running = start_service(*OPTIONS)
        shortage(allocation)
        complete = [served() for _ in range(3)]
        failures = shortage(0)
        assert running.stop() == 0, allocation
        assert complete.count(False) <= failures <= 1, allocation
        assert all(complete) or re.search(TROUBLE, running.output, re.M), allocation
        if not failures:
            break
    assert allocation > 10 * STRIDE


@pytest.mark.parametrize("ends", [False, True], ids=["passes", "lasts"])
def test_a_shortage_can_last(ends, shortage, start_service, connect, served):
    running = start_service(*OPTIONS)
    subscriber = connect()
    assert converse(subscriber)
    shortage(-1)
    with subscriber.makefile("rb") as stream:
        while receive(stream):
            pass
    assert not any(served() for _ in range(50))
    assert shortage(-1 if ends else 0) < 1000
    assert ends or served()
    assert running.stop() == 0
    assert len(re.findall(TROUBLE, running.output, re.M)) < 20
