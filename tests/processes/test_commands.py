"""Each command of chronalctl is answered or refused, and shown to others."""

import json
import re

import pytest

# The service's name of a command, the command, another that shows its effect, and a line of that.
COMMANDS = [
    ("cmdRefTimeSet", "ref-time set NTP 2026-03-29T00:00Z", "ref-time get ntp", "^utc .*-29 00:0"),
    ("cmdRefTimeSet", "ref-time set ATSC @-90 --negate", "ref-time get ATSC", "^utc .*-01 00:01:"),
    ("cmdRefTimeSet", "ref-time set DVB 2026-03-29T02:00Z", "status", r"^DVB +'2026-03-29 02.* \+2h$"),
    ("cmdRefLocalTimeSet", "ref-time set-local DVB @5400 --value 7", "ref-time get DVB", "^value +7$"),
    ("cmdRefLocalTimeSet", "ref-time set-local DVB @5400 --deviation +1h", "status", "^DVB .* 00:30:"),
    ("cmdRefTimeFetch", "ref-time get RTC", None, "^utc +'2026-01-10 00:0"),
    ("cmdRefTimeFetch", "ref-time get Teletext", None, "^valid +no$"),
    ("cmdRefTimeAt", "ref-time at TTX 2026-03-29T01:00Z", None, "^utc +'2026-03-29 01:00:00"),
    ("cmdRefTimeSubscribe", "ref-time subscribe DVB --count 1", None, "^current-time +source DVB"),
    ("cmdRefTimeUnsubscribe", "ref-time unsubscribe DVB", None, "^done$"),
    ("cmdRefTimeLock", "ref-time lock ATSC", None, "^done$"),
    ("cmdRefTimeUnlock", "ref-time unlock ATSC", None, "^done$"),
    ("cmdSendDaylightsavingInfo", "dst announce RTC 2026-01-15 2026-01-20 3h 1h", "status", r"\+3h from"),
    ("cmdNextTimeDeviationChangeSet", "deviation next set RTC 2026-02-02 -1h30m", "status", "-1h.30m from"),
    ("cmdNextTimeDeviationChangeFetch", "deviation next get RTC", None, r"^deviation +\+2h$"),
    ("cmdUTCTimeAt", "at utc 2026-03-29T01:00Z", None, "^local +'2026-03-29 03:00:00"),
    ("cmdLocaltimeAt", "at local 2026-03-29T03:00", None, "^utc +'2026-03-29 01:00:00"),
    ("cmdDateTimeNtpSet", "ntp set a.example", "settings get", "^ntp server +a.example\nntp used +yes$"),
    ("cmdDateTimeNtpSet", "ntp set a.example --off", "settings get", "^ntp used +no$"),
    ("cmdDateTimeNtpStart", "ntp start", None, "^done$"),
    ("cmdDateTimeSettingsFetch", "settings get", None, "^ntp server +pool.example$"),
    ("cmdDateTimeSettingsSet", "settings set --value -5", "settings get", "^value +-5$"),
    ("cmdDateTimeSettingsSet", "settings set --time3 @1", "settings get", "^ntp server +pool.example$"),
    ("cmdDateTimeSettingsSet", "settings set --time3 @1.5", "settings get", "^time3 .*00:00:01.500'$"),
    ("cmdDateTimeAutoTimeSet", "auto-time On", "settings get", "^automatic time +yes$"),
    ("cmdTimezoneSyncEnableSet", "timezone sync on", "settings get", "^zone sync +yes$"),
    ("cmdTimezoneSet", "timezone set Asia/Tokyo", "timezone get", "^zone +Asia/Tokyo$"),
    ("cmdTimezoneSet", "timezone set Asia/Tokyo", "status", "^zone +Asia/Tokyo$"),
    ("cmdTimezoneFetch", "timezone get", None, "^zone +Europe/Berlin$"),
    ("cmdTimeInit", "time-init", None, "^done$"),
]


@pytest.mark.parametrize("name, command, look, line", COMMANDS)
def test_a_command_is_answered(name, command, look, line, service, answer):
    service("--zone", "Europe/Berlin", "--period", "10ms", "--start-time", "2026-01-10 01:00+01")
    answer("ntp set pool.example")
    said = answer(command)
    assert look is None or said == "done\n"
    assert re.search(line, answer(look) if look else said, re.M)


@pytest.mark.parametrize("name, command", dict.fromkeys(row[:2] for row in COMMANDS))
def test_a_command_is_refused(name, command, service, complaint):
    service("--refuse", name)
    refused = r'chronalctl: the service refused "[A-Za-z -]+": -13 \(Permission denied\)\n'
    assert re.fullmatch(refused, complaint(1, command))


def test_a_monitor_is_refused(service, complaint):
    service("--refuse", "cmdRefTimeSubscribe")
    assert 'refused "ref-time subscribe NTP": -13' in complaint(1, "monitor NTP")


def test_settings_that_are_not_given_stay(service, answer):
    service()
    for command in ("ntp set pool.example", "settings set --value -5", "settings set --time3 @1.5"):
        answer(command)
    settings = json.loads(answer("settings get --json"))
    assert (settings["value"], settings["ntp_server"]) == (-5, "pool.example")
    assert settings["time3"] == dict(seconds=1, microseconds=500000, text="'1970-01-01 00:00:01.500'")


def test_a_status_has_the_zone_and_the_sources_for_programs(service, answer):
    service("--zone", "Asia/Tokyo")
    status = json.loads(answer("status --json"))
    assert (status["answer"], status["timezone"]["zone"]) == ("status", "Asia/Tokyo")
    assert [each["source"] for each in status["sources"]] == ["RTC", "NTP", "DVB", "TTX", "ATSC"]


@pytest.mark.parametrize(
    "name, row, count, part",
    [
        ("cmdRefTimeFetch", "TTX", 5, lambda status: status["sources"][3]),
        ("cmdTimezoneFetch", "zone", 1, lambda status: status["timezone"]),
        ("cmdNextTimeDeviationChangeFetch", "next change", 1, lambda status: status["next_deviation"]),
        ("cmdDateTimeSettingsFetch", "settings", 1, lambda status: status["settings"]),
    ],
)
def test_a_status_shows_what_is_not_refused(name, row, count, part, service, chronalctl):
    service("--refuse", name)
    status = chronalctl("status")
    assert status.returncode == 1
    assert re.match(b'chronalctl: the service refused ".* get', status.stderr)
    refused = re.findall(r"^(.*?)  +refused: -13 \(Permission denied\)$", status.stdout.decode(), re.M)
    assert row in refused and len(refused) == count and status.stdout.count(b"\n") > 9
    shown, error = map(json.loads, chronalctl("status", "--json").stdout.splitlines())
    assert part(shown)["refused"] == -13 and error["error"]["status"] == 1


# What was done before, a command, and what is advised.
@pytest.mark.parametrize(
    "before, command, advice",
    [
        ("", "ref-time get INVAL", "the service has no source INVAL;.*DVB"),
        ("", "ref-time subscribe INVAL", "the service has no source INVAL"),
        ("", "monitor RTC INVAL", "the service does not have all of RTC INVAL"),
        ("", "ref-time at DVB @-0.000001", "'@-0.000001' is not within.*1970 to 9999"),
        ("", "at utc @253402300800", "'@253402300800' is not within"),
        ("", "ref-time set NTP @1 --negate", "'@1', negated, is not within"),
        ("", "ref-time set NTP @0 --deviation -24h1us", "'-24h1us' is too large"),
        ("", "ref-time set-local NTP @1", "'@1' is not within"),
        ("", "at local 2026-03-29T02:30", "'2026-03-29T02:30' does not exist"),
        ("", "dst announce RTC @5 @4 2h 1h", "'@5' is not before '@4'"),
        ("ref-time lock DVB", "ref-time set DVB @0", "DVB is locked;.*chronalctl ref-time unlock DVB$"),
        ("ref-time lock DVB", "deviation next set DVB @0 1h", "DVB is locked"),
        ("ref-time lock DVB", "dst announce DVB @0 @1 2h 1h", "DVB is locked"),
        ("ref-time lock DVB", "time-init", "a source is locked"),
        ("", "ntp start", "NTP is not in use; to use it"),
        ("", "ntp set ''", "NTP needs a server"),
        ("ntp set pool.example", "settings set --server ''", "NTP is in use"),
        ("ntp set pool.example; ref-time lock NTP", "ntp start", "NTP is locked"),
        ("", "timezone set {ZONE}", "the service does not know.* zone '{ZONE}'"),
        ("", f"timezone set {'0' * 65000}", "the zone.* more than 255"),
        ("", f"ntp set {'0' * 65000}", "the server.* more than 255"),
        ("", f"settings set --server {'0' * 65000}", "the server.* more than 255"),
    ],
    ids=lambda text: text[:40],
)
def test_a_refusal_says_what_is_probably_wrong(before, command, advice, service, answer, complaint):
    service("--zone", "Europe/Berlin")
    for earlier in filter(None, before.split("; ")):
        assert answer(earlier) == "done\n"
    assert re.search(f"^Probably {advice}", complaint(1, command), re.M)


def test_a_refusal_by_a_service_in_this_process_tells_how_to_keep_one(complaint):
    assert "\nProbably NTP is not in use: the service in this process" in complaint(1, "ntp start")
