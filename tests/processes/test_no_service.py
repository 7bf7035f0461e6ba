"""chronalctl ends, and says why, when the service is absent, goes away, or answers anything else."""

import json
import signal
import struct

import pytest
from conftest import CHRONALCTL, PATIENCE

RESULT = (29032007, 31032007, 26032014)  # how a frame names the message
ABSENT = "no service at it within 100ms: No such file or directory"


@pytest.mark.parametrize(
    "socket, said",
    [
        ("it", f"chronalctl: {ABSENT}\nTo simulate one there: chronal-simd --socket it\n"),
        (".", "\nTo simulate one there: chronal-simd --socket ./chronal.sock\n"),
        ("file", "\nfile is not a socket\n"),
        ("none/it", "\nThere is no directory none\n"),
    ],
)
def test_without_a_service_the_wait_ends_with_advice(socket, said, directory, complaint):
    (directory / "file").touch()
    assert complaint(3, f"--socket {socket} --timeout 0.1 status").endswith(said)


def test_programs_find_the_reason_in_fields(chronalctl):
    result = chronalctl("--json", "--socket", "it", "--timeout", "100000us", "timezone", "get")
    advice = "To simulate one there: chronal-simd --socket it"
    error = {"status": 3, "number": -2, "text": ABSENT, "advice": advice}
    assert json.loads(result.stdout) == {"command": "timezone get", "error": error}


@pytest.mark.parametrize("options", ["--timeout 100ms monitor NTP", "monitor --for 0.1"])
def test_a_monitor_without_a_service_ends(options, chronalctl):
    result = chronalctl("--socket", "it", *options.split())
    assert result.returncode == 3
    assert result.stderr.decode().startswith(f"chronalctl: {ABSENT}\n")


def test_a_service_that_comes_late_is_found(environment, service, start):
    environment["NUB_DEBUG"] = "*:5000"
    asking = start(CHRONALCTL, "--timeout", PATIENCE, "timezone", "get")
    asking.wait_for("not connected: No such file or directory$")
    service()
    assert asking.wait() == 0
    asking.wait_for("^zone +UTC$")


def test_a_service_that_does_not_answer_is_not_waited_for_for_ever(service, chronalctl, place):
    service().popen.send_signal(signal.SIGSTOP)
    result = chronalctl("--timeout", "1s", "timezone", "get")
    assert result.returncode == 3
    expected = f"chronalctl: no answer from the service at {place} within 1s\n"
    assert result.stderr.decode() == expected


def test_a_service_that_goes_away_is_told_with_the_reason(environment, service, start, place):
    running = service()
    running.popen.send_signal(signal.SIGSTOP)
    environment["NUB_DEBUG"] = "*:5000"
    asking = start(CHRONALCTL, "--timeout", PATIENCE, "timezone", "get")
    asking.wait_for("message 1 sent")
    running.stop(signal.SIGKILL)
    assert asking.wait() == 3
    reason = "went away before it answered: Connection reset by peer"
    asking.wait_for(f"^chronalctl: the service at {place} {reason}$")


# A result, which is taken with the ids of the command and where a result is expected.
@pytest.mark.parametrize(
    "command, offset, status, said",
    [
        ("time-init", 0, 0, "^done$"),
        ("time-init", 1, 3, "went away before it answered"),
        ("timezone get", 0, 3, "answered with result instead of timezone$"),
    ],
    ids=["the answer", "the answer to another command", "an answer of another kind"],
)
def test_only_the_answer_is_taken(command, offset, status, said, environment, accept, start):
    environment["NUB_DEBUG"] = "*:5000"
    asking = start(CHRONALCTL, "--timeout", PATIENCE, *command.split())
    with accept() as service:
        asked = service.recv(4096)
        (number,) = struct.unpack(">I", asked[32:36])
        header = struct.pack(">4I4B", 40, *RESULT, 2, 1, 0, 0)
        service.sendall(header + asked[20:32] + struct.pack(">Ii", number + offset, 0))
    assert asking.wait() == status
    asking.wait_for("message received for 1 handlers")
    asking.wait_for(said)
