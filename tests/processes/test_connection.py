"""Applications and the simulated service in separate processes, connected by a socket."""

import os
import signal
import struct

import pytest
from conftest import is_closed

ECONNRESET, EBADMSG = 104, 74


def test_a_service_that_starts_late_is_found(service, place, start_client):
    app = start_client()
    app.wait_for("^failed 2$")
    service()
    app.wait_for("^up$")
    app.fetch()
    assert app.count("^failed 2$") == 1, "the same failure was reported again"


def test_a_killed_service_is_reported_and_found_again(service, start_client, place):
    app = start_client()
    for again in range(1, 4):
        running = service()  # replaces the socket that the killed one has left behind
        app.wait_for("^up$", again)
        app.fetch()
        running.stop(signal.SIGKILL)
        app.wait_for(f"^down {ECONNRESET}$", again)
        app.tell("fetch")
        app.wait_for("^not sent$", again)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_service_that_ends_closes_its_connections_cleanly(number, service, place, start_client):
    running = service()
    app = start_client()
    app.wait_for("^up$")
    assert running.stop(number) == 0
    assert not os.path.exists(place)
    app.wait_for("^down 0$")


def test_a_service_that_ends_closes_waiting_connections_cleanly(service, start_client):
    running = service()
    running.popen.send_signal(signal.SIGSTOP)
    app = start_client()
    app.wait_for("^up$")
    running.popen.send_signal(signal.SIGTERM)
    running.popen.send_signal(signal.SIGCONT)
    app.wait_for("^down 0$")
    assert running.wait() == 0


@pytest.mark.parametrize("way", ["leave", "burst"])
def test_commands_arrive_or_are_counted_when_a_session_ends(way, service, environment, start_client):
    environment["NUB_DEBUG"] = "204:3000"
    running = service("--verbose")

    def unsent(number, moment):
        """Ends a session after a burst; the service is stopped until `moment` is printed."""
        running.popen.send_signal(signal.SIGSTOP)
        app = start_client(way)
        app.wait_for("^burst sent")
        app.tell("end")
        app.wait_for(moment)
        running.popen.send_signal(signal.SIGCONT)
        assert app.wait() == 0
        running.wait_for(f"^client {number} disconnected$")
        told = app.wait_for(r"(\d+) messages not sent") if app.count("not sent") else None
        lost = int(told[1]) if told else 0
        assert lost + running.count(f"^client {number} -> ") == 1000, "messages are lost"
        return lost

    # The number depends on speed, but fewer are lost than when the service never continues in time.
    most = unsent(1, " messages not sent")
    assert any(unsent(number, "^burst sent") < most for number in range(2, 7))


def test_a_client_that_does_not_read_is_dropped(service, place, start_client):
    running = service("--period", "1ms")
    stalled, reading = start_client(), start_client()
    for app in (stalled, reading):
        app.wait_for("^up$")
        app.tell("subscribe")
        app.wait_for("^time$", 10)
    stalled.popen.send_signal(signal.SIGSTOP)
    running.wait_for("client [12] dropped: it does not read$")
    reading.wait_for("^time$", reading.count("^time$") + 100)
    reading.fetch()
    assert reading.count("down") == 0

    stalled.popen.send_signal(signal.SIGCONT)
    stalled.wait_for("^down [1-9]")
    stalled.wait_for("^up$", 2)
    stalled.fetch()


def frame(length=36, version=1, kind=0, rest=b"\1" * 12):
    return struct.pack(">I12s4B16x", length, rest, kind, version, 0, 0)


GARBAGE = {
    "not a frame": b"\xff" * 5000,
    "too short": frame(length=35),
    "too long": frame(length=0x10001),
    "another version": frame(version=0),
    "unknown identity": frame(),
}


@pytest.mark.parametrize("bytes_", GARBAGE.values(), ids=GARBAGE.keys())
def test_garbage_costs_its_sender_the_connection(bytes_, service, start_client, connect):
    running = service("--verbose")
    app = start_client()
    app.wait_for("^up$")
    stranger = connect()
    stranger.sendall(bytes_)
    assert is_closed(stranger)
    running.wait_for("frame of client 2 refused: ")
    running.wait_for("client 2 dropped: its frame was refused$")
    app.fetch()
    assert app.count("down") == 0
    assert running.stop() == 0
    running.wait_for("^ended; frames refused: 1, clients dropped: 1$")


@pytest.mark.parametrize("bytes_", GARBAGE.values(), ids=GARBAGE.keys())
def test_garbage_from_the_service_ends_the_connection(
    bytes_, service, place, environment, start_client, accept
):
    environment["NUB_DEBUG"] = "204:3000"
    app = start_client()
    with accept() as stranger:
        stranger.sendall(bytes_)
        app.wait_for(f"^down {EBADMSG}$")
    app.wait_for("frame from the service refused: ")
    os.unlink(place)
    service()
    app.wait_for("^up$", 2)
    app.fetch()


# The connection breaks in the length, in the header or in the record.
@pytest.mark.parametrize("size", [3, 20, 40])
def test_a_death_in_the_middle_of_a_frame_ends_that_connection_only(
    size, service, place, environment, start_client, accept, connect
):
    environment["NUB_DEBUG"] = "204:4000"
    part = frame(length=52)[:size]
    app = start_client()
    with accept() as dying:
        dying.sendall(part)
    app.wait_for(f"^down {ECONNRESET}$")
    os.unlink(place)
    running = service("--verbose")
    app.wait_for("^up$", 2)
    dying = connect()
    dying.sendall(part)
    dying.close()
    running.wait_for(": client [0-9]+ disconnected: Connection reset by peer$")
    app.fetch()
    assert app.count("down") == 1
    running.stop()
    running.wait_for("^ended; frames refused: 0, clients dropped: 0$")


def test_many_clients_are_served_at_once(service, start_client):
    service("--period", "50ms")
    apps = [start_client() for _ in range(40)]
    for app in apps:
        app.tell("fetch")
    for app in apps:
        app.wait_for("^up$")
        app.wait_for("^(answer|not sent)$")
        app.tell("subscribe")
    for app in apps:
        app.wait_for("^time$", 2)
        app.fetch()
        assert app.count("down|stray") == 0


def test_faults_are_injected(service, start_client):
    running = service("--drop-after", 3, "--refuse", "cmdRefTimeSubscribe", "--verbose")
    app = start_client()
    app.wait_for("^up$")
    app.tell("subscribe")
    app.wait_for("^result -13$")
    app.fetch()
    app.fetch()
    app.wait_for(f"^down {ECONNRESET}$")
    app.wait_for("^up$", 2)
    app.fetch()
    running.wait_for(r"^client 1 -> cmdRefTimeSubscribe #\d+:1 refTimeId=RTC\(1\)$")
    running.wait_for(r"^client 1 <- replyResult #\d+:1 result=-13$")
    running.wait_for("^client 2 connected$")
    running.wait_for(": client 1 dropped: by the service$")


def test_time_starts_anywhere_and_runs_faster(service, start_client):
    service(
        *("--zone", "Europe/Berlin", "--start-time", "2026-03-28T23:00:00Z", "--speed", "1000")
    )
    start_client().wait_for(r"^deviation \+2h$")
