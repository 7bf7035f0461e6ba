"""How chronalctl reads its arguments: times, spans and durations, and what is wrong with others."""

import json
import re

import pytest


@pytest.mark.parametrize(
    "command, said",
    [
        ("", 'missing command after "chronalctl".*of: status'),
        ("frob", "'frob' is not a command.*one of: status"),
        ("ref-time", 'after "chronalctl ref-time".*one of: get, set'),
        ("deviation x", "'x' is not a command.*one of: next"),
        ("ref-time get", "SOURCE is required"),
        ("ref-time get GPS", "'GPS' is not a source;.*RTC,.* TTX or ATSC"),
        ("monitor NTP GPS", "'GPS' is not a source"),
        ("ref-time get DVB NTP", "not expected: NTP"),
        ("status --frob", "not expected: --frob"),
        ("status timezone get", "not expected: timezone get$"),
        ("--frob", "not expected: --frob"),
        ("help frob", "'frob' is not a command.*one of: status"),
        ("at utc 2026-02-30", "'2026-02-30' is not a date"),
        ("at utc 2026-03-29T24:00Z", "'2026-03-29T24:00Z' has an invalid time"),
        ("at utc 2026-03-29T00:59:60Z", "'2026-03-29T00:59:60Z' has an invalid time"),
        ("at utc 2026-03-29T01:00+01:60", r"'2026-03-29T01:00\+01:60' has an invalid offset"),
        ("at utc now", "'now' is not a time;.*2026-03-29T01:00:00Z"),
        (f"at utc {'0' * 100000}", "is not a time"),
        ("at local 2026-03-29T01:00Z", "'2026-03-29T01:00Z' is not a local.*\"Z\""),
        ("at utc @9223372036854775808", "does not fit into 64 bits"),
        ("deviation next set RTC @0 90", r"'90' is not a span;.*\+1h30m"),
        ("deviation next set RTC @0 1h.5m", r"'1h\.5m' is not a span"),
        ("deviation next set RTC @0 5m1h", "'5m1h' is not a span"),
        ("deviation next set RTC @0 ''", "'' is not a span"),
        ("deviation next set RTC @0 106751991167301d", "does not fit into 64 bits"),
        ("deviation next set RTC @0 9223372036854775807s1000ms", "does not fit into 64 bits"),
        ("monitor --count 0", "'0' is not a whole number from 1"),
        ("monitor --for 0", "'0' is not a time to wait"),
        ("monitor --for 1441m1d", "'1441m1d' is not a duration"),
        ("monitor --for 1e3", "'1e3' is not a duration"),
        ("monitor --for 367d", "'367d' is longer than a year"),
        ("auto-time maybe", "'maybe' is neither on nor off"),
        ("settings set", "At least 1 option"),
        ("settings set --value 1e9", "'1e9' is not a whole number from"),
        ("--timeout 0 status", "'0' is not a time to wait"),
        ("--timeout nan status", "'nan' is not a duration;.*0.5, or units"),
        ("--timeout 100000000 status", "is longer than a year"),
        (f"--timeout {'0' * 100000} status", "is not a duration"),
        ("timezone set", "See: chronalctl timezone set --help"),
        ("--socket '' status", "is not a path"),
        (f"--socket {'0' * 130} status", "has 130 characters;.* at most 107$"),
        (f"timezone set {'0' * 65001}", "ZONE: has 65001 characters; .*room for 65000$"),
        (f"ntp set {'0' * 65001}", "SERVER: has 65001"),
        (f"settings set --server {'0' * 65001}", "server: has 65001"),
    ],
    ids=lambda text: text[:40],
)
def test_an_error_says_what_was_wrong_and_what_is_expected(command, said, complaint):
    assert re.search(said, complaint(2, command), re.M)


@pytest.mark.parametrize(
    "command, line",
    [
        ("--help", "^ +ref-time "),
        ("-h", "^ +ref-time "),
        ("help", "^ +ref-time "),
        ("ref-time set -h", "^Usage: chronalctl ref-time set "),
        ("help ref-time set", "^Usage: chronalctl ref-time set "),
        ("--version", "^chronalctl [0-9]"),
    ],
)
def test_help_is_given(command, line, answer):
    assert re.search(line, answer(command), re.M)


@pytest.mark.parametrize(
    "text, seconds, microseconds",
    [
        ("2026-03-29T01:00:00Z", 1774746000, 0),
        ("2026-03-29 01:00", 1774746000, 0),
        ("2026-03-29T03:30:00+02:30", 1774746000, 0),
        ("2026-03-29T01:00:00,25", 1774746000, 250000),
        ("2026-03-29", 1774742400, 0),
        ("2000-02-29", 951782400, 0),
        ("9999-12-31T23:59:59.999999Z", 253402300799, 999999),
        ("@1774746000.5", 1774746000, 500000),
        ("@1774746000.123456999", 1774746000, 123456),
        ("2026-03-29T03:00:00.123456789+0200", 1774746000, 123456),
        ("2026-03-29 03:00+02", 1774746000, 0),
    ],
)
def test_a_time_is_read(text, seconds, microseconds, answer):
    read = json.loads(answer(f"--json at utc '{text}'"))["utc"]
    assert (read["seconds"], read["microseconds"]) == (seconds, microseconds)


@pytest.mark.parametrize(
    "text, seconds, microseconds",
    [
        ("+1h30m", 5400, 0),
        ("-90s", -90, 0),
        ("1d", 86400, 0),
        ("1h30min", 5400, 0),
        ("1h2m3s4ms5us", 3723, 4005),
        ("-250ms", 0, -250000),
        ("1500ms", 1, 500000),
        ("+1h.30m.00s.250ms", 5400, 250000),
        ("-05:30", -19800, 0),
        ("+0100", 3600, 0),
        ("1us", 0, 1),
        ("0", 0, 0),
        ("-0d1h30s", -3630, 0),
    ],
)
def test_a_span_is_read(text, seconds, microseconds, service, answer):
    service("--zone", "Asia/Tokyo")
    assert answer(f"deviation next set RTC 2099-01-01 {text}") == "done\n"
    read = json.loads(answer("--json deviation next get RTC"))["deviation"]
    assert (read["seconds"], read["microseconds"]) == (seconds, microseconds)


@pytest.mark.parametrize("text", ["366d", "31622400"])
def test_a_duration_may_be_that_of_a_leap_year(text, answer):
    assert answer(f"--timeout {text} timezone get").startswith("zone ")
