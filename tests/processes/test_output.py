"""Output that cannot be written is told, and output that nobody reads holds up nobody."""

import os

import pytest
from conftest import CHRONALCTL, SIMD, is_closed


@pytest.mark.parametrize("words", ["status", "--help", "--version"])
@pytest.mark.parametrize(
    "output, reason", [("/dev/full", "No space left on device"), ("&-", "Bad file descriptor")]
)
def test_chronalctl_fails_if_it_cannot_print(words, output, reason, run):
    result = run("sh", "-c", f'"$0" {words} >{output}', CHRONALCTL)
    assert result.returncode == 3
    assert result.stderr.decode() == f"chronalctl: cannot write to standard output: {reason}\n"


@pytest.mark.parametrize("option", ["--help", "--version"])
def test_chronal_simd_fails_if_it_cannot_print(option, run):
    assert run("sh", "-c", f'"$0" {option} >/dev/full', SIMD).returncode != 0


# A connection in its place would get what is meant for it.
@pytest.mark.parametrize(
    "command, ready",
    [((CHRONALCTL, "monitor"), "^connected$"), ((SIMD, "--socket", "it"), "^listening on it$")],
)
def test_nothing_takes_the_place_of_a_closed_standard_error(command, ready, start):
    program = start("sh", "-c", 'exec "$@" 2>&-', "sh", *command)
    program.wait_for(ready)
    assert os.readlink(f"/proc/{program.popen.pid}/fd/2") == "/dev/null"


def test_a_service_whose_lines_cannot_be_written_serves_and_says_so(place, start, answer):
    service = start("sh", "-c", 'exec "$@" >/dev/full', "sh", SIMD, "--socket", place, "--verbose")
    assert answer("timezone get").startswith("zone ")
    service.wait_for("^chronal-simd: standard output: No space left on device$")
    assert service.stop() == 0
    service.wait_for("^chronal-simd: lines left out at the end: [1-9]")


def test_no_line_is_left_out_of_a_file(directory, place, start, answer):
    with open(directory / "lines", "wb") as lines:
        service = start(SIMD, "--socket", place, "--verbose", stdout=lines)
    for _ in range(5):
        answer("timezone get")
    assert service.stop() == 0
    written = (directory / "lines").read_text()
    assert written.count(" <- replyTimezone") == 5 and "left out" not in written


@pytest.fixture
def stalled_service(place, stalled, start, answer, connect):
    """A service that has served although nobody reads its lines, of which one is about a stranger."""
    service = start(SIMD, "--socket", place, "--verbose", **stalled[0])
    assert answer("timezone get").startswith("zone ")
    stranger = connect()
    stranger.sendall(b"no frame")
    assert is_closed(stranger)
    assert answer("timezone get").startswith("zone ")
    return service


def test_a_service_whose_lines_nobody_reads_ends_when_told_to(stalled_service):
    assert stalled_service.stop() == 0


def test_a_late_reader_is_told_how_many_lines_were_left_out(stalled_service, stalled, start, answer):
    reader = start("cat", stdin=stalled[1])
    reader.wait_for("^x+$")
    answer("timezone get")
    reader.wait_for("^lines left out: [1-9]")
    reader.wait_for(" <- replyTimezone")
