"""Kills the service at random moments while clients keep sending, then clients of one service. The
processes that are not killed must not hang, crash, grow or get a wrong answer.

The environment variable KILLS is the number of kills of each; see scripts/soak.
"""

import os
import random
import re
import signal
import time

from conftest import eventually

KILLS = int(os.environ.get("KILLS", "5"))
WARM_UP = KILLS // 5  # kills until everything that is allocated only once has been allocated
CLIENTS, SESSIONS = 3, 3
CONNECTIONS = CLIENTS * SESSIONS
# KiB by which the allocator's own caches may vary. A sanitizer keeps freed memory.
GROWTH = float("inf") if "-fsanitize" in os.environ["CXXFLAGS"] else 512


def usage(process):
    """Returns the numbers of open files and threads."""
    return tuple(len(list((process.proc / name).iterdir())) for name in ("fd", "task"))


def settled_usage(process):
    """Waits for a steady usage: a sanitizer briefly opens a pipe at the first use of a type."""
    samples = [None, usage(process)]

    def settled():
        time.sleep(0.05)
        samples.append(usage(process))
        return samples[-1] == samples[-2]

    assert eventually(settled)
    return samples[-1]


def test_kills_do_no_harm(start_service, start, capsys):
    def serves(connections):
        assert eventually(lambda: usage(service)[0] == idle[0] + connections)

    def kill(victim, connections, number):
        """Kills at any moment in every fourth round, and with all connections up in the others."""
        if number % 4:
            serves(connections)
        time.sleep(random.uniform(0, 0.05))
        assert victim.stop(signal.SIGKILL) == -signal.SIGKILL
        assert all(client.popen.poll() is None for client in clients), "a client has ended"

    def has_not_grown(name, process, before, memory_before):
        assert eventually(lambda: usage(process) == before), name
        now = process.memory("VmRSS")
        with capsys.disabled():
            print(f"{name}: {before} open files and threads, {memory_before} then {now} KiB")
        assert now - memory_before <= GROWTH, name

    service = start_service()
    idle = settled_usage(service)
    clients = [start(os.environ["SOAK_CLIENT"], SESSIONS) for _ in range(CLIENTS)]
    for number in range(KILLS):
        if number == WARM_UP:
            serves(CONNECTIONS)
            before = [(settled_usage(client), client.memory("VmRSS")) for client in clients]
        kill(service, CONNECTIONS, number)
        service = start_service()
    serves(CONNECTIONS)
    for number, client in enumerate(clients):
        has_not_grown(f"client {number}", client, *before[number])

    for number in range(KILLS):
        if number == WARM_UP:
            memory_before = service.memory("VmRSS")
        kill(start(os.environ["SOAK_CLIENT"], SESSIONS), CONNECTIONS + SESSIONS, number)
        serves(CONNECTIONS)
    has_not_grown("service", service, (idle[0] + CONNECTIONS, idle[1]), memory_before)

    # Each client has to be served again and then end.
    sessions = []
    for client in clients:
        client.popen.stdin.close()
        assert client.wait() == 0
        sessions += re.findall(rb"^(\d+) answers, (\d+) connections$", client.output, re.M)
    assert service.stop() == 0 and len(sessions) == CONNECTIONS
    for answers, connections in sessions:
        assert int(answers) >= KILLS and int(connections) >= KILLS * 3 / 4, "not served mostly"
