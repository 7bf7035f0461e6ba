"""A monitor shows what happens, comes through the loss of the service, and ends when it should."""

import json
import re
import signal

import pytest
from conftest import CHRONALCTL

LOST = "number -104  reason Connection reset by peer"
NOTIFICATIONS = (
    "broadcast-time  time '2026-01-01 00:00:00'",
    "timezone-change  zone Asia/Tokyo  time '2026-03-29 00:59:50'",
    "deviation-change  deviation \\+9h  utc '2026-03-29 00:59:50'  local '2026-03-29 09:59:50'",
    "daylight-saving  dst 1",
)


def test_a_monitor_shows_what_others_do(start_service, monitor, start, answer):
    start_service(*"--zone Europe/London --start-time 2026-03-29T00:59:50Z --speed 0.001".split())
    words, programs = monitor(), monitor("--json")
    subscription = start(CHRONALCTL, "ref-time", "subscribe", "RTC")
    words.wait_for("^connected$")
    programs.wait_for('^{"connection":"connected",')
    for command in ("ref-time set DVB 2026-01-01", "timezone set Asia/Tokyo",
                    "dst announce RTC 2000-01-01 2030-01-01 2h 1h"):
        answer(command)
    for line in NOTIFICATIONS:
        words.wait_for("^" + line.replace("0'", r"0\.0\d\d'") + "$")
        name, field = re.match("([a-z-]+)  ([a-z]+)", line).groups()
        told = json.loads(programs.wait_for(f'^{{"notification":"{name}".*')[0])
        assert field in told
    assert told == {"notification": "daylight-saving", "dst": 1, "arrived": told["arrived"]}
    assert [words.stop(signal.SIGINT), programs.stop(), subscription.stop()] == [0, 0, 0]
    assert subscription.count("^(?!connected|current-time)") == 1  # after the last line


def test_a_monitor_ends_after_so_many_notifications(start_service, monitor):
    start_service("--period", "1ms")
    counting = monitor("RTC", "rtc", "--count", "2", "--timestamps")
    assert counting.wait() == 0 and counting.count("Z  current-time") == 2
    line = r"^(\S{23}Z)  current-time  source RTC  utc '(\S*) (\S*)'"
    arrived, *sent = counting.wait_for(line, 2).groups()
    assert "T".join(map(bytes.decode, sent)) + "Z" <= arrived.decode()


def test_a_monitor_outlives_the_service(start_service, monitor):
    watching = monitor("RTC", "NTP", "ntp")
    watching.wait_for("^not-connected  number -2  reason No such file or directory$")
    for again in range(1, 3):
        service = start_service("--period", "1ms")  # replaces what the killed one has left behind
        watching.wait_for("^connected$", again)
        for source in ("NTP", "RTC"):
            seen = f"^current-time  source {source} "
            watching.wait_for(seen, watching.count(seen) + 2)
        service.stop(signal.SIGKILL)
        for lost in ("", "source RTC  ", "source NTP  "):
            watching.wait_for(f"^not-connected  {lost}{LOST}$", again)
    start_service()
    watching.wait_for("^connected$", 3)
    assert watching.stop(signal.SIGTERM) == 0
    assert watching.output.startswith(b"not-connected  number -2")
    assert watching.count("^not-connected  source NTP  ") == 2
    assert watching.count("number -2 ") <= 3 and watching.count("source.*number -2 ") == 0


def test_a_loss_is_told_to_programs_with_its_source(start_service, monitor):
    service = start_service("--drop-after", "1", "--verbose")
    lost = json.loads(monitor("DVB", "--json").wait_for('^.*"not-connected","source".*$', 2)[0])
    assert lost == {"connection": "not-connected", "source": "DVB", "number": -104,
                    "reason": "Connection reset by peer", "arrived": lost["arrived"]}
    service.wait_for(": client [12] dropped: by the service$")
    assert service.stop() == 0
    service.wait_for("^ended; frames refused: 0, clients dropped: [2-9]")


def test_a_monitor_is_refused(start_service, complaint):
    start_service("--refuse", "cmdRefTimeSubscribe")
    assert 'refused "ref-time subscribe NTP": -13' in complaint(1, "monitor NTP")


# A second is far more than a connection takes.
@pytest.mark.parametrize("is_read", [True, False])
def test_a_monitor_ends_in_time_even_if_nobody_reads(is_read, start_service, monitor, stalled):
    start_service()
    assert monitor("RTC", "--for", "1s", **({} if is_read else stalled[0])).wait() == 0


def test_a_monitor_whose_lines_nobody_reads_ends_when_told_to(start_service, monitor, stalled):
    service = start_service("--verbose")
    unread = monitor("RTC", "NTP", **stalled[0])
    service.wait_for("^client [0-9] connected$", 3)
    assert unread.stop() == 0


def test_a_monitor_ends_if_its_output_cannot_be_written(start_service, start):
    start_service()
    unable = start("sh", "-c", 'exec "$@" >/dev/full', "sh", CHRONALCTL, "monitor")
    assert unable.wait() == 3
    unable.wait_for("^chronalctl: cannot write to standard output: No space left on device$")
