"""Applications and the simulated service in separate processes, connected by a socket."""

import signal
import struct

import pytest
from conftest import PATIENCE, SANITIZED, status_field

MEGABYTE = 1024  # KiB


def test_a_service_is_found_whenever_it_starts(start_service, start_client):
    app = start_client()
    app.wait_for("^failed 2$")
    for again in range(1, 4):
        service = start_service()  # replaces the socket that the killed one has left behind
        app.wait_for("^up$", again)
        app.fetch()
        service.stop(signal.SIGKILL)
        app.wait_for("^down 104$", again)
        app.tell("fetch")
        app.wait_for("^not sent$", again)
    assert app.count("^failed 2$") == 1, "the same failure was reported again"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_service_that_ends_closes_its_connections_cleanly(number, directory, start_service, start_client):
    service = start_service()
    early = start_client()
    early.wait_for("^up$")
    service.pause()
    waiting = start_client()
    waiting.wait_for("^up$")
    service.popen.send_signal(number)
    assert service.stop(signal.SIGCONT) == 0
    assert not (directory / "it").exists()
    for app in (early, waiting):
        app.wait_for("^down 0$")


# The service continues in time for all of the burst, or only when the session has given up.
@pytest.mark.parametrize("way", ["leave", "burst"])
@pytest.mark.parametrize("moment", ["^burst sent", " messages not sent"])
def test_commands_arrive_or_are_counted_when_a_session_ends(
    way, moment, start_service, environment, start_client
):
    environment["NUB_DEBUG"] = "204:3000"
    service = start_service("--verbose")
    service.pause()
    app = start_client(way, 1000)  # fit into the queue
    app.wait_for("^burst sent, 0 refused")
    app.tell("end")
    app.wait_for(moment)
    service.popen.send_signal(signal.SIGCONT)
    assert app.popen.wait(PATIENCE) == 0
    service.wait_for("^client 1 disconnected$")
    told = app.matches(r"(\d+) messages not sent")
    lost = int(told[0][1]) if told else 0
    assert lost + service.count("^client 1 -> ") == 1000


def test_a_client_that_does_not_read_is_dropped(start_service, start_client):
    service = start_service("--period", "1ms")
    stalled, reading = start_client(), start_client()
    for app in (stalled, reading):
        app.wait_for("^up$")
        app.tell("subscribe")
        app.wait_for("^time$", 10)
    stalled.pause()
    service.wait_for("client [12] dropped: it does not read$")
    reading.wait_for("^time$", reading.count("^time$") + 100)
    reading.fetch()
    assert reading.count("down") == 0

    stalled.popen.send_signal(signal.SIGCONT)
    stalled.wait_for("^down [1-9]")
    stalled.wait_for("^up$", 2)
    stalled.fetch()


def frame(length=36, version=1):
    return struct.pack(">I12s4B16x", length, b"\1" * 12, 0, version, 0, 0)


# Nothing is refused of a frame that the connection cuts off.
@pytest.mark.parametrize(
    "data, refused",
    [(b"\xff" * 5000, 1), (frame(35), 1), (frame(0x10001), 1), (frame(version=0), 1), (frame(), 1),
     (frame(52)[:3], 0), (frame(52)[:20], 0), (frame(52) + b"1234", 0)],
    ids=["not a frame", "too short", "too long", "another version", "unknown", "length", "header", "record"],
)
def test_a_wrong_or_broken_frame_ends_that_connection_only(
    data, refused, environment, start_service, start_client, accept, connect
):
    environment["NUB_DEBUG"] = "204:4000"
    app = start_client()
    with accept() as stranger:
        stranger.sendall(data)
        if refused:
            app.wait_for("frame from the service refused: ")
    app.wait_for("^down 74$" if refused else "^down 104$")
    service = start_service()
    app.wait_for("^up$", 2)
    stranger = connect()
    stranger.sendall(data)
    if refused:
        service.wait_for("frame of client [12] refused: ")
        service.wait_for("client [12] dropped: its frame was refused$")
    else:
        stranger.close()
        service.wait_for(": client [12] disconnected: Connection reset by peer$")
    app.fetch()
    assert app.count("down") == 1
    assert service.stop() == 0


def test_many_clients_are_served_at_once(start_service, start_client):
    start_service("--period", "20ms")
    apps = [start_client() for _ in range(20)]
    for app in apps:
        app.wait_for("^up$")
        app.tell("subscribe")
    for app in apps:
        app.wait_for("^time$", 2)
        app.fetch()
        assert app.count("down|stray") == 0


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
    assert said[0] == b"answer" and client.count("stray|down") == 0


@pytest.mark.parametrize("count", [2_000, 50_000])
@pytest.mark.parametrize("inside", [False, True], ids=["outside", "inside a callback"])
def test_every_command_of_a_burst_is_answered_once_or_refused(service, count, inside, start_client):
    client = start_client("burst", count) if inside else start_client()
    client.wait_for("^up$")
    if not inside:
        client.tell(f"burst {count}")
    assert int(client.wait_for(r"^burst sent, (\d+) refused$")[1]) < count
    settle(client)


@pytest.mark.skipif(SANITIZED, reason="sanitizers keep freed memory")
def test_long_texts_cost_a_bounded_amount_of_memory_which_is_given_back(service, start_client):
    client = start_client()
    client.wait_for("^up$")
    processes = [client] if service is None else [client, service]
    client.tell("burst 20 60000")  # makes the allocator create its arenas
    settle(client)
    before = [status_field(process, "VmRSS") for process in processes]
    client.tell("burst 5000 60000")  # 300 MB
    client.wait_for("^burst sent", 2)
    settle(client)
    for process, least in zip(processes, before):
        assert status_field(process, "VmHWM") < least + 6 * MEGABYTE
        assert status_field(process, "VmRSS") < least + 2 * MEGABYTE
