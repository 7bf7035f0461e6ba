"""Kills the service at random moments while clients keep sending, then clients of one service. The
processes that are not killed must not hang, crash, grow or get a wrong answer.

The environment variable KILLS is the number of kills of each; see scripts/soak.
"""

import os
import random
import re
import signal
import subprocess
import time
from pathlib import Path

from conftest import SANITIZED, SIMD, eventually

KILLS = int(os.environ.get("KILLS", "20"))
WARM_UP = KILLS // 5  # kills until everything that is allocated only once has been allocated
CLIENTS, SESSIONS = 4, 3
CONNECTIONS = CLIENTS * SESSIONS
GROWTH = 512  # KiB by which the allocator's own caches may vary


def usage(process):
    """Returns the numbers of open files and threads."""
    entries = Path(f"/proc/{process.popen.pid}")
    return len(list((entries / "fd").iterdir())), len(list((entries / "task").iterdir()))


def settled_usage(process):
    """Waits for a steady usage: a sanitizer briefly opens a pipe at the first use of a type."""
    samples = [None, usage(process)]

    def settled():
        time.sleep(0.1)
        samples.append(usage(process))
        return samples[-1] == samples[-2]

    assert eventually(settled)
    return samples[-1]


def memory(process):
    status = Path(f"/proc/{process.popen.pid}/status").read_text()
    return int(re.search(r"^VmRSS:\s*(\d+)", status, re.M)[1])


def test_kills_do_no_harm(start, environment, capsys):
    environment["CHRONAL_SOCKET"] = "it"

    def start_service():
        service = start(SIMD, "--socket", "it")
        service.wait_for("^listening on ")
        return service

    def start_client():
        return start(os.environ["SOAK_CLIENT"], SESSIONS, stdin=subprocess.PIPE)

    def serves(connections):
        files, threads = idle
        assert eventually(lambda: usage(service)[0] == files + connections)

    def kill(victim, connections, number):
        """Kills at any moment in every fourth round, and with all connections up in the others."""
        if number % 4:
            serves(connections)
        time.sleep(random.uniform(0, 0.1))
        assert victim.stop(signal.SIGKILL) == -signal.SIGKILL
        assert all(client.popen.poll() is None for client in clients), "a client has ended"

    def has_not_grown(name, process, before, memory_before):
        assert eventually(lambda: usage(process) == before), name
        now = memory(process)
        with capsys.disabled():
            print(f"{name}: {before} open files and threads, {memory_before} then {now} KiB")
        # A sanitizer keeps freed memory and finds leaks itself.
        assert SANITIZED or now - memory_before <= GROWTH, name

    service = start_service()
    idle = settled_usage(service)
    clients = [start_client() for _ in range(CLIENTS)]
    for number in range(KILLS):
        if number == WARM_UP:
            serves(CONNECTIONS)
            before = [(settled_usage(client), memory(client)) for client in clients]
        kill(service, CONNECTIONS, number)
        service = start_service()
    serves(CONNECTIONS)
    for number, client in enumerate(clients):
        has_not_grown(f"client {number}", client, *before[number])

    for number in range(KILLS):
        if number == WARM_UP:
            memory_before = memory(service)
        kill(start_client(), CONNECTIONS + SESSIONS, number)
        serves(CONNECTIONS)
    has_not_grown("service", service, (idle[0] + CONNECTIONS, idle[1]), memory_before)

    # Each client has to be served again and then end.
    for client in clients:
        client.popen.stdin.close()
        assert client.wait() == 0
    assert service.stop() == 0
    sessions = [
        tuple(map(int, session.groups()))
        for client in clients
        for session in re.finditer(rb"(\d+) answered, \d+ not sent, (\d+) connections", client.output)
    ]
    with capsys.disabled():
        answers, connections = map(sum, zip(*sessions))
        print(f"{KILLS} kills of each: {answers} answers over {connections} connections")
    assert len(sessions) == CONNECTIONS
    for answered, connected in sessions:
        assert answered >= KILLS and connected >= KILLS * 3 / 4, "not served most of the time"
