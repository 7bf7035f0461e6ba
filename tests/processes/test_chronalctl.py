"""What chronalctl sends and prints, how it finds the service, and how it fails."""

import fcntl
import json
import os
import re
import signal
import struct
import termios
import time
import unicodedata
from decimal import Decimal
from pathlib import Path

import pytest
from conftest import CHRONALCTL, PATIENCE, SIMD, eventually

# Commands, some with the message that the service then gets; further messages; and what is printed,
# unless that is "done". Fractions of seconds count only from a tenth of a second on.
CONVERSATION = []
COMMANDS = {}  # by the name of their message
for part in (Path(__file__).parent / "conversation.txt").read_text().split("$ ")[1:]:
    typed, *lines = part.splitlines()
    command, _, message = typed.partition("  -> ")
    messages = [f"-> {message}"] * bool(message) + [s for s in lines if s[:3] in ("-> ", "<- ")]
    shown = [line for line in lines if line not in messages] or ["done"]
    CONVERSATION.append((command, messages, shown))
    COMMANDS.update({s.split()[1]: command for s in messages if s[0] == "-"})


def test_a_conversation_takes_place_as_written(start_service, answer):
    options = "--zone Europe/Berlin --start-time 2026-01-10 --speed 0.001 --period 10ms --verbose"
    service = start_service(*options.split())
    for command, messages, shown in CONVERSATION:
        before = len(service.output)
        printed = re.sub(r"\.0\d\d(\d{3})?(?='|Z?\")", "", answer(command))
        assert re.sub(r'"microseconds":\d{1,5},', "", printed).splitlines() == shown
        assert eventually(lambda: service.count(" connected$") == service.count(" disconnected$"))
        log = re.sub(r"\.0\d\d'", "'", service.output[before:].decode())
        log = re.sub(r"^client \d+ (\S+ \w+) #\d+:\d+", r"\1", log, flags=re.M).splitlines()
        assert [message for message in messages if message not in log] == [], log


def test_any_command_can_be_refused(start_service, complaint):
    start_service(*(f"--refuse={name}" for name in COMMANDS))
    for command in COMMANDS.values():
        refused = r'chronalctl: the service refused "([A-Za-z -]+)": -13 \(Permission denied\)\n'
        name = re.fullmatch(refused, complaint(1, command))[1]
        assert command.startswith(name.replace("settings get", "settings"))


REFUSALS = [
    ("RefTime DateTimeSettings", "ref-time get RTC", "RTC NTP DVB TTX ATSC settings", "settings"),
    ("Timezone NextTimeDeviationChange", "timezone get", "zone next change",
     "timezone next_deviation"),
]


@pytest.mark.parametrize("names, first, rows, parts", REFUSALS)
def test_a_status_shows_what_is_not_refused(names, first, rows, parts, start_service, chronalctl):
    start_service(*(f"--refuse=cmd{name}Fetch" for name in names.split()))
    status, output, errors = chronalctl("status")
    assert status == 1 and f'refused "{first}": -13' in errors
    refused = re.findall(r"^(.*?)  +refused: -13 \(Permission denied\)$", output, re.M)
    shown, error = map(json.loads, chronalctl("status --json")[1].splitlines())
    assert " ".join(refused) == rows and error["command"] == "status"
    assert " ".join(part for part in shown if shown[part] == {"refused": -13}) == parts
    assert ("refused" in shown["sources"][3]) == ("TTX" in rows)


# What was done before, a command with one of these words, and what is advised.
ADVICE = [
    ("", "{} INVAL", ["ref-time get", "ref-time lock"], "the service has no source INVAL; .*RTC,"),
    ("", "monitor RTC INVAL", [""], "the service does not have all of RTC INVAL"),
    ("", "ref-time at DVB {}", ["@-0.000001", "@253402300800"], "'{}' is not within.*1970 to 9999"),
    ("", "ref-time set NTP @1 --negate", [""], "'@1', negated, is not within"),
    ("", "ref-time set NTP @0 --deviation {}", ["-24h1us", "+24h1us"], "'{}' is too large"),
    ("", "ref-time set-local NTP {}", ["@1", "@253402304400"], "'{}' is not within"),
    ("", "at local {}", ["2026-03-29T02:30"], "'{}' does not exist"),
    ("", "ref-time set-local NTP {} --deviation -5h", ["@253402300799"], "'{}' is not within"),
    ("", "dst announce RTC @5 {} 2h 1h", ["@4", "@5"], "'@5' is not before '{}'"),
    ("", "dst announce RTC @5 {} 2h 1h", ["@-1"], "'{}' is not within"),
    ("ref-time lock DVB", "{}", ["ref-time set DVB @0", "ref-time set-local DVB @86400",
     "deviation next set DVB @0 1h", "dst announce DVB @0 @1 2h 1h"],
     "DVB is locked;.*: chronalctl ref-time unlock DVB$"),
    ("ref-time lock DVB", "time-init", [""], "a source is locked"),
    ("", "ntp start", [""], "NTP is not in use; to use it"),
    ("", "ntp set ''", [""], "NTP needs a server"),
    ("ntp set pool.example", "settings set --server ''", [""], "NTP is in use"),
    ("ntp set pool.example; ref-time lock NTP", "ntp start", [""], "NTP is locked"),
    ("", "timezone set {}", ["{ZONE}", "x"], "the service does not know.* zone '{}'"),
    ("", "timezone set {}", ["0" * 65000], "the zone.* more than 255"),
    ("", "{}" + "0" * 256, ["ntp set ", "settings set --server "], "the server.* more than 255"),
]


@pytest.mark.parametrize("before, command, words, advice", ADVICE, ids=[row[3] for row in ADVICE])
def test_a_refusal_says_what_is_probably_wrong(
    before, command, words, advice, start_service, answer, complaint
):
    start_service("--zone", "Europe/Berlin")
    for earlier in filter(None, before.split("; ")):
        assert answer(earlier) == "done\n"
    for word in words:
        expected = advice.replace("{}", re.escape(word))
        assert re.search(f"^Probably {expected}", complaint(1, command.replace("{}", word)), re.M)


# A command with one of these words, and what is said.
ERRORS = [
    ("{}", [""], 'missing command after "chronalctl".*of: status'),
    ("{}", ["frob", "help frob"], "'frob' is not a command.*one of: status"),
    ("ref-time", [""], 'missing command after "chronalctl ref-time".*one of: get, set'),
    ("ref-time get", [""], "SOURCE is required"),
    ("monitor NTP {}", ["GPS"], "'GPS' is not a source;.*RTC,.* TTX or ATSC"),
    ("{}", ["--frob", "status --frob"], "not expected: --frob"),
    ("status timezone get", [""], "not expected: timezone get$"),
    ("at utc 2026-{}", ["02-30", "13-01"], "'2026-{}' is not a date"),
    ("at utc 2026-03-29T{}Z", ["24:00", "00:60", "00:00:60"], "T{}Z' has an invalid time"),
    ("at utc 2026-03-29T01:00{}", ["+01:60", "-25:00"], "'2026.*{}' has an invalid offset"),
    ("at utc {}", ["tomorrow", "2026-0329", "2026-03-29T01:0000", "0" * 100000],
     "'{}' is not a time;.*2026-03-29T01:00:00Z.* Europe/Berlin.* now or "),
    ("at utc '{}'", ["2026-03-29 noon", "@0 Europe/", "@0 a" + "/a" * 9999], "ends in an unknown"),
    ("at utc '{}'", ["2026-03-29T02:30 Europe/Berlin"], "'{}' does not exist: the clocks skip it"),
    ("at utc {}", ["+5", "-P1M", "-P1W", "now+", "+P", "-P1DT", "+PT1.5H"], "is not a span;.*PT1"),
    ("at utc {}", ["@1e3", "@"], "'{}' is not a number of seconds"),
    ("at utc {}", ["@9223372036854775808", "+9223372036854775807s"], "does not fit into 64 bits"),
    ("at local 2026-03-29T01:00{}", ["Z", "+01"], "is not a local.*\"{}\""),
    ("at local {}", ["now", "'+1h UTC'"], "is not a local time; expected"),
    ("at local @0 {}", ["--later --earlier", "--earlier --later"], "--earlier excludes --later"),
    ("timezone list {}", ["nowhere"], r"no time zone in /\S+ matches '\*{}\*'"),
    ("deviation next set RTC @0 '{}'", ["90", "1h.5m", "1h..05m", "5m1h", "5m5m", "", "5", "m"],
     r"'{}' is not a span;.*\+1h30m"),
    ("deviation next set RTC @0 {}", ["106751991167301d", "9223372036854775807s1000ms",
     "9223372036854775808s"], "does not fit into 64 bits"),
    ("monitor --count 0", [""], "'0' is not a whole number from 1"),
    ("monitor --for {}", ["0", "0.0", "0ms"], "'{}' is not a time to wait"),
    ("monitor --for {}", ["1e3", "+5", "-PT1S", "PT", "0" * 65], "is not a duration;.*0.5, or"),
    ("monitor --for {}", ["366d1s", "31622401", "P367D"], "'{}' is longer than a year"),
    ("auto-time maybe", [""], "'maybe' is not a state; expected on, off or get"),
    ("settings set", [""], "At least 1 option"),
    ("settings set --value 1e9", [""], "'1e9' is not a whole number from"),
    ("timezone set", [""], "See: chronalctl timezone set --help"),
    ("--socket {} status", ["''"], "is not a path"),
    ("--socket {} status", ["0" * 108], "has 108 characters;.* at most 107$"),
    ("timezone set {}", ["0" * 65001], "ZONE: has 65001 characters; .*room for 65000$"),
]


@pytest.mark.parametrize("command, words, said", ERRORS, ids=[row[2] for row in ERRORS])
def test_an_error_says_what_was_wrong_and_what_is_expected(command, words, said, complaint):
    for word in words:
        expected = said.replace("{}", re.escape(word))
        assert re.search(expected, complaint(2, command.replace("{}", word)), re.M)


def test_help_is_given(answer):
    for command in ("--help", "help"):
        assert re.search(r"(?s)^ +ref-time .*^Exit status: 0 done", answer(command), re.M)
    for command in ("ref-time set -h", "help ref-time set"):
        assert re.search("(?s)^Usage: chronalctl ref-time set .*--timeout", answer(command), re.M)
    assert re.match("chronalctl [0-9]", answer("--version"))


TIMES = """2026-03-29T01:00:00Z=1774746000 2026-03-29_01:00=1774746000 2026-03-29=1774742400
    2026-03-29T03:30:00+02:30=1774746000 2026-03-29_03:00+02=1774746000 2000-02-29=951782400
    2026-03-29T00:00-01=1774746000 2026-03-29T01:00:00,25=1774746000.25 @1.5=1.5
    9999-12-31T23:59:59.999999Z=253402300799.999999 @1774746000.123456999=1774746000.123456
    2026-03-29T03:59:00.123456789+0259=1774746000.123456 2026-03-29T23:59+24:00=1774742340
    20260329T010000Z=1774746000 20260329=1774742400 20260329_0300+0200=1774746000
    20260329T010000,5=1774746000.5 2026-03-29T03:00_Europe/Berlin=1774746000 @0_UTC=0"""
SPANS = """+1h30m=5400 -90s=-90 1d=86400 1h30min=5400 1h2m3s4ms5us=3723.004005 -250ms=-0.25
    1500ms=1.5 +1h.30m.00s.250ms=5400.25 -05:30=-19800 +0100=3600 1us=0.000001 0=0 -0d1h30s=-3630
    0d.02h=7200 1s.250ms.005us=1.250005
    PT1H30M=5400 -P0DT1H1M0,5S=-3660.5 +PT90M=5400 P1D=86400 PT0.000001S=0.000001 -PT30S=-30"""


def test_times_spans_and_durations_are_read_in_many_forms(start_service, answer):
    start_service("--zone", "Asia/Tokyo")

    def check(text, value, command, field):
        read = json.loads(answer(command.format(text.replace("_", " "))))[field]
        seconds, microseconds = read["seconds"], read["microseconds"]
        assert seconds * 1000000 + microseconds == Decimal(value) * 1000000, text
        assert seconds * microseconds >= 0 and abs(microseconds) < 1000000
        return read["iso"]

    def check_span(text, value):
        answer(f"deviation next set RTC 2099-01-01 {text}")
        return check(text, value, "--json deviation next get RTC", "deviation")

    for text, value in (row.split("=") for row in TIMES.split()):
        iso = check(text, value, "--json at utc '{}'", "utc")
        assert check(iso, value, "--json at utc '{}'", "utc") == iso
    for text, value in (row.split("=") for row in SPANS.split()):
        assert check_span(iso := check_span(text, value), value) == iso
    for text, value in (("now", 0), ("+5min", 300), ("-PT1H", -3600), ("now-1d", -86400)):
        begun = int(time.time())
        read = json.loads(answer(f"at utc {text} --json"))["utc"]["seconds"] - value
        assert begun <= read <= time.time()
    for text in ("366d", "31622400", f"{'0' * 63}5", "P366D"):
        answer(f"--timeout {text} timezone get")


# A local time in Berlin, a choice, the UTC that is meant, and what is said of such a time.
CHANGES = [
    ("2026-10-25T02:30", "", "2026-10-25T00:30:00Z", "twice"),
    ("2026-10-25T02:59:59", "--later", "2026-10-25T01:59:59Z", "twice"),
    ("2026-03-29T02:00", "--earlier", "2026-03-29T00:00:00Z", "never"),
    ("2026-03-29T02:59:59", "--later", "2026-03-29T01:59:59Z", "never"),
    ("9999-12-31T23:59:59", "--later", "9999-12-31T22:59:59Z", "once"),
]


def test_one_of_two_moments_is_chosen_where_the_clocks_change(start_service, chronalctl, answer):
    start_service("--zone", "Europe/Berlin", "--speed", "0.001")
    for local, choice, utc, occurs in CHANGES:
        for command in ("at local", "ref-time set-local DVB"):
            _, output, said = chronalctl(f"{command} {local} {choice} --json")
            times = output if "at" in command.split() else answer("ref-time get DVB --json")
            fault = {"twice": "occurs twice", "never": "does not exist", "once": None}[occurs]
            other = "" if choice else "; to take the other: --later"
            assert said == (f"chronalctl: '{local}' {fault}; {utc} is taken{other}\n" * bool(fault))
            assert json.loads(output)["occurs"] == occurs
            assert json.loads(times)["utc"]["iso"].startswith(utc[:-1])
    answer("ref-time set-local DVB 2026-10-25T02:30 --later --deviation -PT1H30M")
    assert "utc        '2026-10-25 04:00" in answer("ref-time get DVB")
    said = chronalctl("at utc '2026-10-25T02:30 Europe/Berlin'")[2]
    assert "Berlin' occurs twice; 2026-10-25T00:30:00Z is taken, not 2026-10-25T01:30:00Z\n" in said


def test_a_source_without_a_time_says_so(start_service, chronalctl, complaint):
    start_service()
    for command in ("ref-time get TTX", "deviation next get TTX"):
        said = "chronalctl: TTX has no time\nTo set it: chronalctl ref-time set TTX TIME\n"
        assert chronalctl(command) == (4, "", said) and complaint(4, command) == said
        assert json.loads(chronalctl(f"{command} --json")[1].splitlines()[0])["source"] == "TTX"


def test_the_zones_of_the_database_are_listed(environment, directory, answer):
    environment["TZDIR"] = str(directory)
    for name in ("Mine/There", "Mine/Here", "posix/Mine"):
        (directory / name).parent.mkdir(exist_ok=True)
        (directory / name).symlink_to("/usr/share/zoneinfo/Asia/Tokyo")
    (directory / "Mine/HERE.txt").write_text("not a zone")
    assert answer("timezone list HERE") == "Mine/Here\nMine/There\n"
    assert json.loads(answer("timezone list 'mine/H*' --json")) == ["Mine/Here"]


def test_lines_fit_a_terminal(environment, start_service, start, answer):
    start_service()
    answer(f"ntp set {'ä' * 99}")
    for width, variable in ((50, None), (33, "33"), (20, "1")):
        environment.update({"COLUMNS": variable} if variable else {})
        for words in ("at utc --help", "ntp get"):
            ours, its = os.openpty()
            fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("4H", 24, 50, 0, 0))
            assert start(CHRONALCTL, *words.split(), stdout=its).wait() == 0
            shown, whole = os.read(ours, 65536).decode(), answer(words)
            assert max(len(line) for line in shown.splitlines()) <= width
            assert max(len(line) for line in whole.splitlines()) > 80
            assert "\n      " in shown and "".join(shown.split()) == "".join(whole.split())
            for end in (ours, its):
                os.close(end)


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


def test_without_any_socket_a_service_is_simulated(
    runtime_directory, environment, answer, chronalctl, complaint
):
    assert answer("timezone get").startswith("zone  UTC\n")
    runtime_directory.rmdir()
    assert answer("timezone get").startswith("zone  UTC\n")
    del environment["XDG_RUNTIME_DIR"]
    # What changes something or waits is of no use there.
    reminder = "chronalctl: the service is simulated in this process and ends with it; "
    for command in ("timezone set Asia/Tokyo", "timezone set Nowhere", "settings set --value 5",
                    "monitor --for 10ms", "--json ref-time subscribe RTC --for 10ms"):
        assert chronalctl(command)[2].count(reminder) == 1
    for command in ("status", "ref-time get RTC", "at utc 2026-03-29", "help timezone set"):
        answer(command)
    assert "\nProbably NTP is not in use: the service in this process" in complaint(1, "ntp start")


def test_a_socket_without_a_listener_is_an_error(runtime_directory, start, complaint):
    service = start(SIMD)
    service.wait_for("^listening")
    service.stop(signal.SIGKILL)
    place = runtime_directory / "chronal.sock"
    assert complaint(3, "--timeout 100ms timezone get") == (
        f"chronalctl: no service at {place} within 100ms: Connection refused\n"
        "A service that was killed has left this socket behind. "
        f"To simulate one there: chronal-simd --socket {place}\n"
    )
    place.unlink()
    place.symlink_to("nowhere")
    complaint(3, "--timeout 100ms timezone get")


@pytest.mark.parametrize(
    "options, said",
    [
        ("--socket it --timeout 0.1 status", "To simulate one there: chronal-simd --socket it"),
        ("--socket . --timeout 0.1s status", "To .* there: chronal-simd --socket ./chronal.sock"),
        ("--socket file --timeout 100000us status", "file is not a socket"),
        ("--socket none/it --timeout 100ms status", "There is no directory none"),
        (f"--socket {'0' * 107} --timeout 100ms status", "To simulate one there: .* 0+"),
        ("--timeout 100ms monitor NTP", "To simulate one there: chronal-simd --socket it"),
        ("monitor --for 0.1", "To simulate one there: chronal-simd --socket it"),
    ],
)
def test_without_a_service_the_wait_ends_with_advice(options, said, directory, complaint):
    (directory / "file").touch()
    reason = r"chronalctl: no service at \S+ within 100ms: [A-Z][A-Za-z ]+\n"
    assert re.search(f"{reason}{said}\n$", complaint(3, options))


def test_programs_find_the_reason_in_fields(chronalctl):
    _, output, _ = chronalctl("--json --timeout 100ms timezone get")
    text = "no service at it within 100ms: No such file or directory"
    advice = "To simulate one there: chronal-simd --socket it"
    error = {"status": 3, "number": -2, "text": text, "advice": advice}
    assert json.loads(output) == {"command": "timezone get", "error": error}


def test_a_service_that_does_not_answer_is_not_waited_for_for_ever(start_service, complaint):
    start_service().pause()
    said = complaint(3, "--timeout 1.001 status")
    assert said == "chronalctl: no answer from the service at it within 1s.001ms\n"


# A result, which is taken with the ids of the command and where a result is expected.
@pytest.mark.parametrize(
    "command, offset, status, said",
    [
        ("time-init", 0, 0, "^done$"),
        ("time-init", 1, 3, "went away before it answered: Connection reset by peer$"),
        ("timezone get", 0, 3, "answered with result instead of timezone$"),
    ],
    ids=["the answer", "the answer to another command", "an answer of another kind"],
)
def test_only_the_answer_is_taken(command, offset, status, said, environment, listener, start):
    environment["NUB_DEBUG"] = "*:5000"
    asking = start(CHRONALCTL, "--timeout", PATIENCE, *command.split())
    with listener.accept()[0] as service:
        asked = service.recv(4096)
        (number,) = struct.unpack(">I", asked[32:36])
        header = struct.pack(">4I4B", 40, 29032007, 31032007, 26032014, 2, 1, 0, 0)
        service.sendall(header + asked[20:32] + struct.pack(">Ii", number + offset, 0))
        asking.wait_for("message received for 1 handlers")
    assert asking.wait() == status
    asking.wait_for(said)


HOSTILE = (
    b"\x1b[2J good\rbad\nchronalctl: forged\x7f \xc2\x9b31m \x9b31m "
    + "\u061c \u200f \u202egnp.exe \u2066 \u2028chronalctl: forged".encode()
    + "\u00ad\u0600\u180e\ufff9\U0001d173\U000e0041".encode()
    + b"\xff\xfe \xc0\x9b \xe0\x82\x9b \xf0\x80\x82\x9b \xed\xa0\xae \xf4\x90\x80\x80 \xe2\x80"
)
SHOWN = (
    r"\x1b[2J good\x0dbad\x0achronalctl: forged\x7f \u009b31m \x9b31m "
    r"\u061c \u200f \u202egnp.exe \u2066 \u2028chronalctl: forged"
    r"\u00ad\u0600\u180e\ufff9\U0001d173\U000e0041"
    r"\xff\xfe \xc0\x9b \xe0\x82\x9b \xf0\x80\x82\x9b \xed\xa0\xae \xf4\x90\x80\x80 \xe2\x80"
)


def is_harmless(output):
    # A category of controls, of formats, of surrogates, of separators of lines or of paragraphs.
    return {c for c in output if unicodedata.category(c) in "Cc Cf Cs Zl Zp".split()} <= {"\n"}


@pytest.mark.parametrize("program", [CHRONALCTL, SIMD], ids=["chronalctl", "chronal-simd"])
def test_no_argument_controls_the_terminal(program, run):
    options = "{};--{};--zone={};--refuse={};--timeout={};--socket={}/none"
    commands = "ref-time get {};status {};at utc {};settings set --value {}"
    for line in f"{options};{commands};--timeout 1ms --socket {{}} status".split(";"):
        given = [word.encode().replace(b"{}", HOSTILE) for word in line.split()]
        status, output, errors = run(program, *given)
        assert status in (1, 2, 3) and errors and is_harmless(output) and is_harmless(errors)
        assert "chronalctl: forged" not in errors.splitlines()
        assert run(program, "--json", *given)[1].isascii()


@pytest.mark.parametrize("variable", ["NUB_DEBUG", "CHRONAL_SOCKET", "XDG_RUNTIME_DIR"])
def test_no_variable_controls_the_terminal(variable, environment, directory, start, chronalctl):
    text = HOSTILE[12:80]  # short enough for a socket
    (directory / os.fsdecode(text)).mkdir()
    environment |= {"CHRONAL_SOCKET": "", "XDG_RUNTIME_DIR": ".", variable: text}
    service = start(SIMD)  # does not read CHRONAL_SOCKET
    service.wait_for("listening")
    service.stop(signal.SIGKILL)
    errors = chronalctl("--timeout 1ms timezone set Nowhere")[2]
    assert errors and is_harmless(errors) and is_harmless(service.output.decode())


def test_a_text_that_the_service_keeps_is_shown_escaped(environment, start_service, chronalctl):
    environment["NUB_DEBUG"] = "*:5000"
    service = start_service("--verbose")
    del environment["NUB_DEBUG"]
    assert chronalctl(["ntp", "set", "Zürich 東京 🕰".encode() + HOSTILE])[1] == "done\n"
    for words in ("settings get", "status"):
        assert f" Zürich 東京 🕰{SHOWN}\n" in chronalctl(words)[1]
        assert chronalctl(f"--json {words}")[1].isascii()
    service.stop()
    assert is_harmless(service.output.decode()) and SHOWN in service.output.decode()
