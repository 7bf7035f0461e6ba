"""What chronalctl sends and prints, how it finds the service, and how it fails."""

import json
import os
import re
import signal
import struct
import unicodedata
from decimal import Decimal
from pathlib import Path

import pytest
from conftest import CHRONALCTL, PATIENCE, SIMD, eventually

# Commands; what each prints, unless that is "done"; and messages that the service gets and sends.
# Times have no fractions below a tenth of a second.
CONVERSATION = [
    part.splitlines()
    for part in (Path(__file__).parent / "conversation.txt").read_text().split("$ ")[1:]
]
COMMANDS = {
    line.split()[1]: command
    for command, *lines in CONVERSATION
    for line in lines
    if line.startswith("->")
}


def test_a_conversation_takes_place_as_written(start_service, answer):
    options = "--zone Europe/Berlin --start-time 2026-01-10 --speed 0.001 --period 10ms --verbose"
    service = start_service(*options.split())
    for command, *lines in CONVERSATION:
        before = len(service.output)
        printed = re.sub(r"\.0\d\d'", "'", answer(command))
        assert eventually(lambda: service.count(" connected$") == service.count(" disconnected$"))
        log = re.sub(r"\.0\d\d'", "'", service.output[before:].decode())
        log = re.sub(r"^client \d+ (\S+ \w+) #\d+:\d+", r"\1", log, flags=re.M).splitlines()
        messages = [line for line in lines if line.startswith(("->", "<-"))]
        shown = [line for line in lines if line not in messages] or ["done"]
        assert printed.splitlines() == shown
        assert [line for line in messages if line not in log] == [], log


def test_any_command_can_be_refused(start_service, complaint):
    start_service(*(word for name in COMMANDS for word in ("--refuse", name)))
    for command in COMMANDS.values():
        refused = r'chronalctl: the service refused "([A-Za-z -]+)": -13 \(Permission denied\)\n'
        name = re.fullmatch(refused, complaint(1, command))[1]
        assert command.startswith(name.replace("settings get", "settings"))


@pytest.mark.parametrize(
    "names, first, rows, parts",
    [
        (("cmdRefTimeFetch", "cmdDateTimeSettingsFetch"), "ref-time get RTC",
         ["RTC", "NTP", "DVB", "TTX", "ATSC", "settings"], ["settings"]),
        (("cmdTimezoneFetch", "cmdNextTimeDeviationChangeFetch"), "timezone get",
         ["zone", "next change"], ["timezone", "next_deviation"]),
    ],
)
def test_a_status_shows_what_is_not_refused(names, first, rows, parts, start_service, chronalctl):
    start_service("--refuse", names[0], "--refuse", names[1])
    status, output, errors = chronalctl("status")
    assert status == 1 and f'refused "{first}": -13' in errors
    assert re.findall(r"^(.*?)  +refused: -13 \(Permission denied\)$", output, re.M) == rows
    shown, error = map(json.loads, chronalctl("status --json")[1].splitlines())
    refused = [part for part in shown if isinstance(shown[part], dict) and "refused" in shown[part]]
    assert refused == parts and ("refused" in shown["sources"][3]) == ("TTX" in rows)
    assert error["command"] == "status"


def test_answers_are_given_to_programs_in_json(start_service, answer):
    start_service("--zone", "Asia/Tokyo")
    answer("settings set --time1 @2 --time3 @1.5 --value -5 --server é")
    settings = json.loads(answer("settings get --json"))
    status = json.loads(answer("--json status"))
    assert settings.pop("answer") == "settings"
    assert status["settings"].pop("time") and settings.pop("time")
    assert settings == status["settings"] == {
        "time1": {"seconds": 2, "microseconds": 0, "text": "'1970-01-01 00:00:02.000'"},
        "time2": {"seconds": 0, "microseconds": 0, "text": "'1970-01-01 00:00:00.000'"},
        "time3": {"seconds": 1, "microseconds": 500000, "text": "'1970-01-01 00:00:01.500'"},
        "time4": {"seconds": 0, "microseconds": 0, "text": "'1970-01-01 00:00:00.000'"},
        "value": -5, "automatic_time": False, "ntp_server": "é", "ntp_used": False, "zone_sync": False,
    }
    assert (status["answer"], status["timezone"]["zone"]) == ("status", "Asia/Tokyo")
    assert status["next_deviation"]["deviation"]["text"] == "DEVIATION_INVALID"
    sources = [(source["source"], source["valid"]) for source in status["sources"]]
    assert sources == [("RTC", True), ("NTP", True), ("DVB", False), ("TTX", False), ("ATSC", False)]


# What was done before, a command, and what is advised.
@pytest.mark.parametrize(
    "before, command, advice",
    [
        ("", "ref-time get INVAL", "the service has no source INVAL; expected RTC, NTP, DVB"),
        ("", "monitor RTC INVAL", "the service does not have all of RTC INVAL"),
        ("", "ref-time at DVB @-0.000001", "'@-0.000001' is not within.*1970 to 9999"),
        ("", "at utc @253402300800", "'@253402300800' is not within"),
        ("", "ref-time set NTP @1 --negate", "'@1', negated, is not within"),
        ("", "ref-time set NTP @0 --deviation -24h1us", "'-24h1us' is too large"),
        ("", "ref-time set-local NTP @1", "'@1' is not within"),
        ("", "ref-time set-local NTP @253402304400", "'@253402304400' is not within"),
        ("", "at local 2026-03-29T02:30", "'2026-03-29T02:30' does not exist"),
        ("", "dst announce RTC @5 @4 2h 1h", "'@5' is not before '@4'"),
        ("ref-time lock DVB", "ref-time set DVB @0", "DVB is locked;.*chronalctl ref-time unlock DVB$"),
        ("ref-time lock DVB", "ref-time set-local DVB @86400", "DVB is locked"),
        ("ref-time lock DVB", "deviation next set DVB @0 1h", "DVB is locked"),
        ("ref-time lock DVB", "dst announce DVB @0 @1 2h 1h", "DVB is locked"),
        ("ref-time lock DVB", "time-init", "a source is locked"),
        ("", "ntp start", "NTP is not in use; to use it"),
        ("", "ntp set ''", "NTP needs a server"),
        ("ntp set pool.example", "settings set --server ''", "NTP is in use"),
        ("ntp set pool.example; ref-time lock NTP", "ntp start", "NTP is locked"),
        ("", "timezone set {ZONE}", "the service does not know.* zone '{ZONE}'"),
        ("", f"timezone set {'0' * 65000}", "the zone.* more than 255"),
        ("", f"ntp set {'0' * 256}", "the server.* more than 255"),
        ("", f"settings set --server {'0' * 256}", "the server.* more than 255"),
    ],
    ids=lambda text: text[:40],
)
def test_a_refusal_says_what_is_probably_wrong(
    before, command, advice, start_service, answer, complaint
):
    start_service("--zone", "Europe/Berlin")
    for earlier in filter(None, before.split("; ")):
        assert answer(earlier) == "done\n"
    assert re.search(f"^Probably {advice}", complaint(1, command), re.M)


@pytest.mark.parametrize(
    "command, said",
    [
        ("", 'missing command after "chronalctl".*of: status'),
        ("frob", "'frob' is not a command.*one of: status"),
        ("ref-time", 'after "chronalctl ref-time".*one of: get, set'),
        ("ref-time get", "SOURCE is required"),
        ("monitor NTP GPS", "'GPS' is not a source;.*RTC,.* TTX or ATSC"),
        ("status --frob", "not expected: --frob"),
        ("status timezone get", "not expected: timezone get$"),
        ("--frob", "not expected: --frob"),
        ("help frob", "'frob' is not a command.*one of: status"),
        ("at utc 2026-02-30", "'2026-02-30' is not a date"),
        ("at utc 2026-03-29T24:00Z", "'2026-03-29T24:00Z' has an invalid time"),
        ("at utc 2026-03-29T00:60Z", "has an invalid time"),
        ("at utc 2026-03-29T00:59:60Z", "has an invalid time"),
        ("at utc 2026-03-29T01:00+01:60", r"'2026-03-29T01:00\+01:60' has an invalid offset"),
        ("at utc 2026-03-29T01:00-25:00", "has an invalid offset"),
        ("at utc now", "'now' is not a time;.*2026-03-29T01:00:00Z"),
        ("at utc @1e3", "'@1e3' is not a number of seconds"),
        ("at local 2026-03-29T01:00Z", "'2026-03-29T01:00Z' is not a local.*\"Z\""),
        ("at local now", "'now' is not a local time; expected"),
        ("at utc @9223372036854775808", "does not fit into 64 bits"),
        ("deviation next set RTC @0 90", r"'90' is not a span;.*\+1h30m"),
        ("deviation next set RTC @0 1h.5m", r"'1h\.5m' is not a span"),
        ("deviation next set RTC @0 1h..05m", "is not a span"),
        ("deviation next set RTC @0 5m1h", "'5m1h' is not a span"),
        ("deviation next set RTC @0 5m5m", "is not a span"),
        ("deviation next set RTC @0 ''", "'' is not a span"),
        ("deviation next set RTC @0 106751991167301d", "does not fit into 64 bits"),
        ("deviation next set RTC @0 9223372036854775807s1000ms", "does not fit into 64 bits"),
        ("monitor --count 0", "'0' is not a whole number from 1"),
        ("monitor --for 0", "'0' is not a time to wait"),
        ("monitor --for 1e3", "'1e3' is not a duration;.*0.5, or units"),
        ("monitor --for 366d1s", "'366d1s' is longer than a year"),
        ("auto-time maybe", "'maybe' is neither on nor off"),
        ("settings set", "At least 1 option"),
        ("settings set --value 1e9", "'1e9' is not a whole number from"),
        ("--timeout 31622401 status", "is longer than a year"),
        (f"--timeout {'9' * 64} status", "is longer than a year"),
        (f"--timeout {'0' * 100000} status", "is not a duration"),
        ("timezone set", "See: chronalctl timezone set --help"),
        ("--socket '' status", "is not a path"),
        (f"--socket {'0' * 108} status", "has 108 characters;.* at most 107$"),
        (f"timezone set {'0' * 65001}", "ZONE: has 65001 characters; .*room for 65000$"),
    ],
    ids=lambda text: text[:40],
)
def test_an_error_says_what_was_wrong_and_what_is_expected(command, said, complaint):
    assert re.search(said, complaint(2, command), re.M)


@pytest.mark.parametrize(
    "command, line",
    [
        ("--help", "^ +ref-time "),
        ("help", "^ +ref-time "),
        ("ref-time set -h", "^Usage: chronalctl ref-time set "),
        ("help ref-time set", "^Usage: chronalctl ref-time set "),
        ("--version", "^chronalctl [0-9]"),
    ],
)
def test_help_is_given(command, line, answer):
    assert re.search(line, answer(command), re.M)


TIMES = """2026-03-29T01:00:00Z=1774746000 2026-03-29_01:00=1774746000 2026-03-29=1774742400
    2026-03-29T03:30:00+02:30=1774746000 2026-03-29_03:00+02=1774746000 2000-02-29=951782400
    2026-03-29T00:00-01=1774746000 2026-03-29T01:00:00,25=1774746000.25 @1.5=1.5
    9999-12-31T23:59:59.999999Z=253402300799.999999 @1774746000.123456999=1774746000.123456
    2026-03-29T03:00:00.123456789+0200=1774746000.123456"""
SPANS = """+1h30m=5400 -90s=-90 1d=86400 1h30min=5400 1h2m3s4ms5us=3723.004005 -250ms=-0.25
    1500ms=1.5 +1h.30m.00s.250ms=5400.25 -05:30=-19800 +0100=3600 1us=0.000001 0=0 -0d1h30s=-3630"""


def test_times_and_spans_are_read_in_many_forms(start_service, answer):
    start_service("--zone", "Asia/Tokyo")

    def check(text, command, field):
        text, value = text.split("=")
        read = json.loads(answer(command.format(text.replace("_", " "))))[field]
        seconds, microseconds = read["seconds"], read["microseconds"]
        assert seconds * 1000000 + microseconds == Decimal(value) * 1000000, text
        assert seconds * microseconds >= 0 and abs(microseconds) < 1000000

    for text in TIMES.split():
        check(text, "--json at utc '{}'", "utc")
    for text in SPANS.split():
        answer(f"deviation next set RTC 2099-01-01 {text.split('=')[0]}")
        check(text, "--json deviation next get RTC", "deviation")
    for text in ("366d", "31622400"):
        answer(f"--timeout {text} timezone get")


@pytest.mark.parametrize("words", ["status", "--help", "--version"])
@pytest.mark.parametrize(
    "output, reason", [("/dev/full", "No space left on device"), ("&-", "Bad file descriptor")]
)
def test_output_that_cannot_be_written_is_an_error(words, output, reason, environment, run):
    del environment["CHRONAL_SOCKET"]
    status, _, errors = run("sh", "-c", f'"$0" {words} >{output}', CHRONALCTL)
    assert (status, errors) == (3, f"chronalctl: cannot write to standard output: {reason}\n")


@pytest.fixture
def runtime_directory(environment, directory):
    """The default place of the service, which no other overrides."""
    del environment["CHRONAL_SOCKET"]
    environment["XDG_RUNTIME_DIR"] = str(directory / "run")
    (directory / "run").mkdir(mode=0o700)
    return directory / "run"


def test_the_service_is_looked_for_in_three_places(
    runtime_directory, environment, start, start_service, answer
):
    start(SIMD, "--zone", "Asia/Tokyo").wait_for(f"^listening on {runtime_directory}/chronal.sock$")
    start_service("--zone", "Europe/Paris", "--socket", "by_variable")
    start_service("--zone", "Europe/Rome", "--socket", "by_option")
    assert "Asia/Tokyo" in answer("timezone get")
    environment["CHRONAL_SOCKET"] = "by_variable"
    assert "Europe/Paris" in answer("timezone get")
    assert "Europe/Rome" in answer("--socket by_option timezone get")
    environment["CHRONAL_SOCKET"] = ""
    answer("timezone set Asia/Seoul")
    assert "Asia/Seoul" in answer("timezone get")


def test_without_any_socket_a_service_is_simulated(runtime_directory, environment, answer, complaint):
    assert answer("timezone get").startswith("zone  UTC\n")
    runtime_directory.rmdir()
    assert answer("timezone get").startswith("zone  UTC\n")
    del environment["XDG_RUNTIME_DIR"]
    assert answer("timezone get").startswith("zone  UTC\n")
    assert "\nProbably NTP is not in use: the service in this process" in complaint(1, "ntp start")


def test_a_reminder_is_printed_if_a_simulated_service_loses_something(environment, chronalctl):
    del environment["CHRONAL_SOCKET"]
    reminder = "chronalctl: the service is simulated in this process and ends with it; "
    for command in ("timezone set Asia/Tokyo", "timezone set Nowhere", "settings set --value 5",
                    "monitor --for 10ms", "--json ref-time subscribe RTC --for 10ms"):
        assert chronalctl(command)[2].count(reminder) == 1
    for command in ("status", "ref-time get RTC", "at utc 2026-03-29", "help timezone set"):
        assert chronalctl(command)[2] == ""


def test_a_socket_without_a_listener_is_an_error(runtime_directory, start, chronalctl):
    service = start(SIMD)
    service.wait_for("^listening")
    service.stop(signal.SIGKILL)
    place = runtime_directory / "chronal.sock"
    assert chronalctl("--timeout 100ms timezone set Asia/Tokyo") == (3, "", (
        f"chronalctl: no service at {place} within 100ms: Connection refused\n"
        "A service that was killed has left this socket behind. "
        f"To simulate one there: chronal-simd --socket {place}\n"
    ))


@pytest.mark.parametrize(
    "options, said",
    [
        ("--socket it --timeout 0.1 status", "To simulate one there: chronal-simd --socket it"),
        ("--socket . --timeout 0.1s status", "To simulate one there: chronal-simd --socket ./chronal.sock"),
        ("--socket file --timeout 100000us status", "file is not a socket"),
        ("--socket none/it --timeout 100ms status", "There is no directory none"),
        ("--socket it --timeout 100ms monitor NTP", "To simulate one there: chronal-simd --socket it"),
        ("--socket it monitor --for 0.1", "To simulate one there: chronal-simd --socket it"),
    ],
)
def test_without_a_service_the_wait_ends_with_advice(options, said, directory, complaint):
    (directory / "file").touch()
    reason = r"chronalctl: no service at \S+ within 100ms: [A-Z][A-Za-z ]+\n"
    assert re.search(f"{reason}{said}\n$", complaint(3, options))


def test_programs_find_the_reason_in_fields(chronalctl):
    status, output, _ = chronalctl("--json --timeout 100ms timezone get")
    error = {"status": 3, "number": -2, "text": "no service at it within 100ms: No such file or directory",
             "advice": "To simulate one there: chronal-simd --socket it"}
    assert status == 3 and json.loads(output) == {"command": "timezone get", "error": error}


def test_a_service_that_comes_late_is_found(environment, start_service, start):
    environment["NUB_DEBUG"] = "*:5000"
    asking = start(CHRONALCTL, "--timeout", PATIENCE, "timezone", "get")
    asking.wait_for("not connected: No such file or directory$")
    start_service()
    asking.wait_for("^zone +UTC$")
    assert asking.popen.wait(PATIENCE) == 0


def test_a_service_that_does_not_answer_is_not_waited_for_for_ever(start_service, complaint):
    start_service().pause()
    assert complaint(3, "--timeout 0.3 status").endswith("no answer from the service at it within 300ms\n")


def test_a_service_that_goes_away_is_told_with_the_reason(environment, start_service, start):
    service = start_service()
    service.pause()
    environment["NUB_DEBUG"] = "*:5000"
    asking = start(CHRONALCTL, "--timeout", PATIENCE, "timezone", "get")
    asking.wait_for("message 1 sent")
    service.stop(signal.SIGKILL)
    assert asking.popen.wait(PATIENCE) == 3
    reason = "went away before it answered: Connection reset by peer"
    asking.wait_for(f"^chronalctl: the service at it {reason}$")


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
        header = struct.pack(">4I4B", 40, 29032007, 31032007, 26032014, 2, 1, 0, 0)
        service.sendall(header + asked[20:32] + struct.pack(">Ii", number + offset, 0))
    assert asking.popen.wait(PATIENCE) == status
    asking.wait_for("message received for 1 handlers")
    asking.wait_for(said)


HOSTILE = (
    b"\x1b[2J good\rbad\nchronalctl: forged\x7f \xc2\x9b31m \x9b31m "  # control characters
    + "\u061c \u200f \u202egnp.exe \u2066 \u2028chronalctl: forged".encode()  # directions, a separator
    + "\u00ad\u0600\u180e\ufff9\U0001d173\U000e0041".encode()  # invisible ones
    + b"\xff\xfe \xc0\x9b \xe0\x82\x9b \xf0\x80\x82\x9b \xed\xa0\xae \xf4\x90\x80\x80 \xe2\x80"  # no UTF-8
)
# Letters stay.
SHOWN = (
    r"Zürich 東京 🕰 \x1b[2J good\x0dbad\x0achronalctl: forged\x7f \u009b31m \x9b31m "
    r"\u061c \u200f \u202egnp.exe \u2066 \u2028chronalctl: forged"
    r"\u00ad\u0600\u180e\ufff9\U0001d173\U000e0041"
    r"\xff\xfe \xc0\x9b \xe0\x82\x9b \xf0\x80\x82\x9b \xed\xa0\xae \xf4\x90\x80\x80 \xe2\x80"
)


def assert_harmless(output):
    output.encode()  # fails if it was not UTF-8
    assert {c for c in output if unicodedata.category(c) in ("Cc", "Cf", "Cs", "Zl", "Zp")} <= {"\n"}
    assert "chronalctl: forged" not in output.splitlines()


@pytest.mark.parametrize("program", [CHRONALCTL, SIMD], ids=["chronalctl", "chronal-simd"])
def test_no_argument_controls_the_terminal(program, run):
    words = "{} --{} --zone={} --refuse={} --speed={} --timeout={} --socket={}/none"
    commands = "ref-time get {};status {};at utc {};settings set --value {};--socket {} --timeout 1ms status"
    for line in words.split() + commands.split(";"):
        given = [word.encode().replace(b"{}", HOSTILE) for word in line.split()]
        status, output, errors = run(program, *given)
        assert status in (1, 2, 3) and errors
        assert_harmless(output)
        assert_harmless(errors)
        assert run(program, "--json", *given)[1].isascii()


@pytest.mark.parametrize("variable", ["NUB_DEBUG", "CHRONAL_SOCKET", "XDG_RUNTIME_DIR"])
def test_no_variable_controls_the_terminal(variable, environment, directory, start, chronalctl):
    text = HOSTILE[12:80]  # short enough for a socket
    (directory / os.fsdecode(text)).mkdir()
    del environment["CHRONAL_SOCKET"]
    environment["XDG_RUNTIME_DIR"] = "."
    environment[variable] = text
    service = start(SIMD)  # does not read CHRONAL_SOCKET
    service.wait_for("listening")
    service.stop(signal.SIGKILL)
    assert_harmless(service.output.decode())
    errors = chronalctl("--timeout 1ms timezone set Nowhere")[2]
    assert errors
    assert_harmless(errors)


def test_a_text_that_the_service_keeps_is_shown_escaped(environment, start_service, chronalctl):
    environment["NUB_DEBUG"] = "*:5000"
    service = start_service("--verbose")
    del environment["NUB_DEBUG"]
    assert chronalctl(["ntp", "set", "Zürich 東京 🕰 ".encode() + HOSTILE])[1] == "done\n"
    for words in ("settings get", "status"):
        assert re.search("ntp server +(.*)", chronalctl(words)[1])[1] == SHOWN
        assert chronalctl(f"--json {words}")[1].isascii()
    service.stop()
    assert_harmless(service.output.decode())
    assert SHOWN in service.output.decode()
