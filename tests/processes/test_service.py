"""chronal-simd listens at its socket or explains why not, and writes lines without waiting."""

import fcntl
import os
import pty
import re
import signal
import socket

import pytest
from conftest import CHRONALCTL, SIMD


def send_garbage(place):
    with socket.socket(socket.AF_UNIX) as stranger:
        stranger.connect(str(place))
        stranger.sendall(b"\xff" * 8)
        assert stranger.recv(1) == b""


# An option, wrong values, and what is said.
ERRORS = [
    ("--socket", [""], "not a path; expected for example /run/chronal.sock"),
    ("--zone", ["Foo"], "not a time zone of this system; expected for example Europe/Berlin"),
    ("--period", ["x"], "not a duration; expected seconds, such as 5 or 0.5, or units, such"),
    ("--period", ["0s", "1.0005", "1441min"], "not a period; expected whole milliseconds, from"),
    ("--start-time", ["x"], "not a time; expected for example 2026-03-29T01:00:00Z"),
    ("--start-time", ["@-1", "@253402300800"], "not within the years 1970 to 9999"),
    ("--speed", ["nan", "-1", "1000001", "1x", ""], "not 0 or a number from 0.001 to 1000000"),
    ("--drop-after", ["0", "x"], "not a whole number from 1 to "),
    ("--refuse", ["cmdNo"], "not a command; expected one of: ref-time-set, "),
]


def test_a_wrong_value_is_named_with_the_expected_one(run):
    for option, values, complaint in ERRORS:
        for value in values:
            status, output, errors = run(SIMD, option, value)
            assert (status, output) == (2, "")
            assert errors.startswith(f"chronal-simd: {option}: '{value}' is {complaint}")
            assert errors.endswith("\nSee: chronal-simd --help\n")


def test_a_service_without_a_place_says_so(run):
    said = "chronal-simd: XDG_RUNTIME_DIR is not set; name a socket with --socket\n"
    assert run(SIMD) == (1, "", said)


@pytest.mark.parametrize("option, shown", [("--help", "Simulates"), ("--version", "chronal-simd ")])
def test_help_is_given_or_the_program_fails(option, shown, run):
    status, output, _ = run(SIMD, option)
    assert status == 0 and shown in output
    status, _, errors = run("sh", "-c", f'"$0" {option} >/dev/full', SIMD)
    assert (status, errors) == (1, "chronal-simd: cannot write to standard output\n")


def test_a_place_that_is_taken_is_refused(directory, start_service, run):
    def refusal(place):
        status, _, errors = run(SIMD, "--socket", place)
        assert status == 1 and errors.startswith(f"chronal-simd: {place}: ")
        return errors.partition(f"{place}: ")[2].strip()

    service = start_service()
    assert refusal("it") == "in use by a running service"
    service.pause()
    assert refusal("it") == "in use by a running service"
    (directory / "file").write_text("precious")
    assert refusal("file") == "is there already and is not a socket"
    assert (directory / "file").read_text() == "precious"
    with open(directory / "other.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        assert refusal("other").startswith("another service is starting here")


# Any user who may read a directory can lock it.
def test_what_others_have_put_there_is_kept(directory, start_service):
    (directory / "it.lock").write_text("precious")
    locked = os.open(directory, os.O_RDONLY)
    fcntl.flock(locked, fcntl.LOCK_EX)
    service = start_service()
    os.close(locked)
    (directory / "it").unlink()
    (directory / "it").write_text("precious")
    assert service.stop() == 0
    assert (directory / "it").read_text() == (directory / "it.lock").read_text() == "precious"


@pytest.mark.parametrize("name", ["", "/"])
def test_a_directory_names_the_socket_in_it(name, directory, environment, start_service, answer):
    service = start_service("--socket", f"{directory}{name}", "--period", "1d")
    service.wait_for(f"^listening on {directory}/chronal.sock$")
    assert not (directory / "chronal.sock.lock").exists()
    environment["CHRONAL_SOCKET"] = str(directory)
    answer("timezone get")
    assert service.stop() == 0 and service.output.count(b"\n") == 1


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_service_that_ends_closes_its_connections(number, directory, start_service, monitor):
    service = start_service()
    accepted = monitor()
    accepted.wait_for("^connected$")
    service.pause()
    waiting = monitor()
    waiting.wait_for("^connected$")
    service.popen.send_signal(number)
    assert service.stop(signal.SIGCONT) == 0
    assert not (directory / "it").exists()
    for each in (accepted, waiting):
        each.wait_for("^not-connected  number 0  reason closed$")


# A connection in its place would get what is meant for it.
@pytest.mark.parametrize(
    "command, ready",
    [((CHRONALCTL, "monitor"), "^connected$"), ((SIMD, "--socket", "it"), "^listening on it$")],
)
def test_nothing_takes_the_place_of_a_closed_stream(command, ready, environment, start):
    del environment["CHRONAL_SOCKET"]
    program = start("sh", "-c", 'exec "$@" 2>&- <&-', "sh", *command)
    program.wait_for(ready)
    for number in (0, 2):
        assert os.readlink(f"/proc/{program.popen.pid}/fd/{number}") == "/dev/null"


def test_a_service_whose_lines_cannot_be_written_serves_and_says_so_once(start, answer):
    service = start("sh", "-c", 'exec "$@" >/dev/full', "sh", SIMD, "--socket", "it", "--verbose")
    for _ in range(2):
        assert answer("--timeout 100 timezone get").startswith("zone ")
    assert service.stop() == 0
    assert service.count("^chronal-simd: standard output: No space left on device$") == 1
    service.wait_for("^chronal-simd: lines left out at the end: 10$")


def test_a_service_whose_reader_goes_away_serves_and_is_silent(directory, start, answer):
    end, room = os.pipe()
    with open(directory / "errors", "wb") as errors:
        service = start(SIMD, "--socket", "it", "--verbose", stdout=room, stderr=errors)
    os.close(room)
    assert os.read(end, 100) == b"listening on it\n"
    os.close(end)
    for _ in range(2):
        answer("timezone get")
    assert service.stop() == 0 and (directory / "errors").read_bytes() == b""


def test_trouble_with_a_client_is_told_and_counted(directory, start_service):
    service = start_service("--verbose")
    send_garbage(directory / "it")
    service.wait_for("^fabric-host: frame of client 1 refused: ")
    service.wait_for("^fabric-host: client 1 dropped: its frame was refused$")
    assert service.stop() == 0
    service.wait_for("^ended; frames refused: 1, clients dropped: 1$")


@pytest.mark.parametrize("is_told", [False, True])
def test_a_service_whose_lines_nobody_reads_serves(is_told, stalled, directory, start, answer):
    service = start(SIMD, "--socket", "it", "--verbose", **stalled[0])
    assert answer("--timeout 100 timezone get").startswith("zone ")
    send_garbage(directory / "it")  # about which there is a line as well
    assert answer("timezone get").startswith("zone ")
    if is_told:
        assert service.stop() == 0
        return
    reader = start("cat", stdin=stalled[1])
    reader.wait_for("^x+$")
    answer("timezone get")
    reader.wait_for("^lines left out: (9|10)$")
    reader.wait_for(" <- replyTimezone")
    assert reader.count("^lines left out") == 1


def test_a_terminal_that_is_not_read_does_not_hold_up_the_service(
    directory, start, monitor, answer
):
    try:
        unread, end = pty.openpty()
    except OSError as error:
        pytest.skip(f"needs a terminal, but this machine has none: {error}")
    words = ("--socket", "it", "--verbose", "--period", "1ms")
    with open(directory / "errors", "wb") as errors:
        service = start(SIMD, *words, stdout=end, stderr=errors)
    monitor("RTC", "NTP").wait_for("^current-time", 300)  # more lines than the terminal buffers
    answer("timezone get")
    assert service.stop(signal.SIGINT) == 0
    os.close(end)
    os.close(unread)
    said = (directory / "errors").read_text()
    assert re.fullmatch("chronal-simd: lines left out at the end: [0-9]+\n", said)


def test_time_starts_anywhere_and_runs_faster(start_service, monitor):
    start_service(*"--zone Europe/Berlin --start-time 2026-03-29T00:00Z --speed 10000".split())
    monitor().wait_for(r"^deviation-change  deviation \+2h  utc '2026-03-29 01:")


CONTROL = [
    ("time", "ok 2026-10-25T00:59:59Z"),
    ("advance 1.5s", "ok 2026-10-25T01:00:00.500000Z"),
    ("time 1969-12-31", "error: '1969-12-31' is not within the years 1970 to 9999"),
    ("freeze", "ok 2026-10-25T01:00:00.500000Z"),
    (" refuse  timezone-set -13 ", "ok"),
    ("refuse cmdUTCTimeAt -13", "ok"),
    ("refuse clock -13", "error: 'clock' is not a command; expected one of: ref-time-set, .*"),
    ("refuse dst", "error: expected: refuse COMMAND NUMBER"),
    ("answer timezone-fetch timezone-info Mars/City +1h", "ok"),
    ("answer timezone-fetch dst", "error: 'dst' is not a reply; .* result, .*"),
    ("notify dst 1 2", "error: '2' is one field too many"),
    ("notify dst x", "error: 'x' is not a whole number from .*"),
    ("shout", "error: 'shout' is not a control word; expected one of: advance, time, .*"),
    ("shout " + 70000 * "x", "error: the line is longer than 70000 characters"),
]


def test_each_line_of_control_is_answered(start_service, chronalctl, answer):
    options = ("--control", "--speed", "0", "--start-time", "2026-10-25T00:59:59Z")
    service = start_service(*options)
    for number, (line, said) in enumerate(CONTROL, 1):
        service.tell(line)
        service.wait_for("^(ok|error)", number)
        assert service.matches(f"^{said}$"), line
    assert chronalctl("timezone set UTC")[0] == 1
    assert "Mars/City" in answer("timezone get")
    service.tell("obey timezone-set\nobey timezone-fetch")
    service.wait_for("^ok$", 5)
    assert answer("timezone set UTC") == "done\n"
    service.popen.stdin.close()
    assert service.stop() == 0
