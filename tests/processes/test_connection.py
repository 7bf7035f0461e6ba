"""Applications and the simulated service in separate processes, connected by a socket."""

import signal
import socket
import struct

import pytest
from conftest import CLIENT, SANITIZED

MEGABYTE = 1024  # KiB


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_service_that_ends_closes_its_connections(number, directory, start_service, monitor):
    service = start_service()
    monitors = [monitor()]
    monitors[0].wait_for("^connected$")
    service.pause()
    monitors.append(monitor())
    monitors[1].wait_for("^connected$")
    service.popen.send_signal(number)
    assert service.stop(signal.SIGCONT) == 0
    assert not (directory / "it").exists()
    for each in monitors:
        each.wait_for("^not-connected  number 0  reason closed$")


# A session ends while the service has stopped. It continues in time for all commands, or only when
# the session has given up.
@pytest.mark.parametrize("way", ["leave", "burst"])
@pytest.mark.parametrize("moment", ["^burst sent", " messages not sent"])
def test_commands_arrive_or_are_counted(way, moment, start_service, environment, start):
    environment["NUB_DEBUG"] = "204:3000"
    service = start_service("--verbose")
    service.pause()
    client = start(CLIENT, way, 1000)  # fit into the queue
    client.wait_for("^burst sent, 0 refused")
    client.tell("end")
    client.wait_for(moment)
    service.popen.send_signal(signal.SIGCONT)
    assert client.wait() == 0
    service.wait_for("^client 1 disconnected$")
    lost = sum(int(told[1]) for told in client.matches(r"(\d+) messages not sent"))
    assert lost + service.count("^client 1 -> ") == 1000


def test_a_client_that_does_not_read_is_dropped(start_service, monitor):
    service = start_service("--period", "1ms")
    stalled, reading = monitor("RTC"), monitor("RTC")
    for each in (stalled, reading):
        each.wait_for("^current-time ", 10)
    stalled.pause()
    service.wait_for("client [0-9] dropped: it does not read$")
    reading.wait_for("^current-time ", reading.count("^current-time ") + 100)
    assert reading.count("not-connected") == 0
    stalled.popen.send_signal(signal.SIGCONT)
    stalled.wait_for("(?s)^not-connected  source RTC  number -[1-9].*^current-time ")


def frame(length=36, version=1):
    return struct.pack(">I12s4B16x", length, b"\1" * 12, 0, version, 0, 0)


# Bytes, and whether they are refused, or are a part of a frame.
@pytest.mark.parametrize(
    "data, refused",
    [(b"\xff" * 5000, True), (frame(35), True), (frame(0x10001), True), (frame(version=0), True),
     (frame(), True), (frame(52)[:3], False), (frame(52)[:20], False), (frame(52) + b"1", False)],
)
def test_a_wrong_or_broken_frame_ends_that_connection_only(
    data, refused, environment, directory, listener, start_service, monitor
):
    environment["NUB_DEBUG"] = "204:4000"
    watching = monitor()
    with listener.accept()[0] as stranger:
        listener.close()
        (directory / "it").unlink()
        stranger.sendall(data)
        watching.wait_for("frame from the service refused: " if refused else "^connected")
    reason = "74  reason Bad message" if refused else "104  reason Connection reset by peer"
    watching.wait_for(f"^not-connected  number -{reason}$")
    service = start_service()
    watching.wait_for("^connected$", 2)
    with socket.socket(socket.AF_UNIX) as stranger:
        stranger.connect(str(directory / "it"))
        stranger.sendall(data)
        if refused:
            service.wait_for("client 2 dropped: its frame was refused$")
    if not refused:
        service.wait_for(": client 2 disconnected: Connection reset by peer$")
    assert watching.stop() == 0 and watching.count("number -(74|104) ") == 1


def test_many_clients_are_served_at_once(start_service, monitor):
    start_service("--period", "20ms")
    monitors = [monitor("RTC") for _ in range(20)]
    for each in monitors:
        each.wait_for("^current-time ", 2)
        assert each.count("not-connected") == 0


@pytest.fixture(params=["memory", "socket"])
def service(request, environment, start_service):
    """The client's service: a process, or None for the service inside the client."""
    if request.param == "socket":
        return start_service()
    del environment["CHRONAL_SOCKET"]
    return None


def settle(client):
    """Waits until all accepted commands are answered."""
    outcome = "^(answer|not sent|[0-9]+ not answered)$"
    said = [b"not sent"]
    while said[0] == b"not sent":
        before = client.count(outcome)
        client.tell("fetch")
        said = client.wait_for(outcome, before + 1)
    assert said[0] == b"answer" and (client.count("stray"), client.count("^up$")) == (0, 1)


@pytest.mark.parametrize("count", [2_000, 50_000])
@pytest.mark.parametrize("words", [["burst"], []], ids=["inside a callback", "outside"])
def test_every_command_of_a_burst_is_answered_once_or_refused(service, count, words, start):
    client = start(CLIENT, *words, count)
    client.wait_for("^up$")
    if not words:
        client.tell(f"burst {count}")
    assert int(client.wait_for(r"^burst sent, (\d+) refused$")[1]) < count
    settle(client)


@pytest.mark.skipif(SANITIZED, reason="sanitizers keep freed memory")
def test_long_texts_cost_a_bounded_amount_of_memory_which_is_given_back(service, start):
    client = start(CLIENT)
    client.wait_for("^up$")
    processes = [client] if service is None else [client, service]
    client.tell("burst 20 60000")  # makes the allocator create its arenas
    settle(client)
    before = [process.memory("VmRSS") for process in processes]
    client.tell("burst 5000 60000")  # 300 MB
    client.wait_for("^burst sent", 2)
    settle(client)
    for process, least in zip(processes, before):
        assert process.memory("VmHWM") < least + 6 * MEGABYTE
        assert process.memory("VmRSS") < least + 2 * MEGABYTE
