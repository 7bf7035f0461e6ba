"""A monitor shows what happens, comes through the loss of the service, and ends when it should."""

import json
import re
import signal

import pytest
from conftest import CHRONALCTL, PATIENCE

LOST = "number -104  reason Connection reset by peer"


def test_a_monitor_shows_what_others_do(start_service, start, answer):
    start_service(*"--zone Europe/London --start-time 2026-03-29T00:59:50Z --speed 0.001".split())
    words, programs = start(CHRONALCTL, "monitor"), start(CHRONALCTL, "monitor", "--json")
    words.wait_for("^connected$")
    programs.wait_for('^{"connection":"connected"}$')
    answer("ref-time set DVB 2026-01-01")
    answer("timezone set Asia/Tokyo")
    answer("dst announce RTC 2000-01-01 2030-01-01 2h 1h")
    utc = "'2026-03-29 00:59:50'"
    shown = (
        "broadcast-time  time '2026-01-01 00:00:00'",
        f"timezone-change  zone Asia/Tokyo  time {utc}",
        f"deviation-change  deviation \\+9h  utc {utc}  local '2026-03-29 09:59:50'",
        "daylight-saving  dst 1",
    )
    for line in shown:
        line = re.sub("'(.*?)'", r"'\1.0\\d\\d'", line)
        words.wait_for(f"^{line}$")
        name, first = re.match("([a-z-]+)  ([a-z]+)", line).groups()
        told = json.loads(programs.wait_for(f'^{{"notification":"{name}".*')[0])
        assert first in told
    assert told == {"notification": "daylight-saving", "dst": 1}
    assert [words.stop(signal.SIGINT), programs.stop()] == [0, 0]


def test_a_monitor_ends_after_so_many_notifications(start_service, start):
    start_service("--period", "1ms")
    monitor = start(CHRONALCTL, "monitor", "RTC", "rtc", "--count", "2")
    assert monitor.popen.wait(PATIENCE) == 0
    assert monitor.count("^current-time  source RTC ") == 2 and monitor.output.count(b"\n") == 3


def test_a_subscription_shows_nothing_else(start_service, start, answer):
    start_service("--period", "10ms")
    monitor = start(CHRONALCTL, "ref-time", "subscribe", "RTC")
    monitor.wait_for("^current-time")
    answer("timezone set Asia/Tokyo")
    monitor.wait_for(r"^current-time .* deviation \+9h")
    assert monitor.count("timezone|deviation-change") == 0


def test_a_monitor_outlives_the_service(start_service, start):
    monitor = start(CHRONALCTL, "monitor", "RTC", "NTP")
    monitor.wait_for("^not-connected  number -2  reason No such file or directory$")
    assert monitor.count("source") == 0
    for again in range(1, 3):
        service = start_service("--period", "1ms")
        monitor.wait_for("^connected$", again)
        for source in ("NTP", "RTC"):
            seen = f"^current-time  source {source} "
            monitor.wait_for(seen, monitor.count(seen) + 2)
        service.stop(signal.SIGKILL)
        for lost in ("", "source RTC  ", "source NTP  "):
            monitor.wait_for(f"^not-connected  {lost}{LOST}$", again)
    start_service()
    monitor.wait_for("^connected$", 3)
    assert monitor.stop(signal.SIGTERM) == 0


def test_a_loss_is_told_to_programs_with_its_source(start_service, start):
    start_service("--drop-after", "1")
    monitor = start(CHRONALCTL, "monitor", "DVB", "--json")
    lost = json.loads(monitor.wait_for('^.*"not-connected","source".*$', 2)[0])
    assert lost == {"connection": "not-connected", "source": "DVB", "number": -104,
                    "reason": "Connection reset by peer"}


def test_a_monitor_is_refused(start_service, complaint):
    start_service("--refuse", "cmdRefTimeSubscribe")
    assert 'refused "ref-time subscribe NTP": -13' in complaint(1, "monitor NTP")


# A second is far more than a connection takes.
@pytest.mark.parametrize("is_read", [True, False])
def test_a_monitor_ends_in_time_even_if_nobody_reads(is_read, start_service, start, stalled):
    start_service()
    command = (CHRONALCTL, "monitor", "RTC", "--for", "1s")
    assert start(*command, **({} if is_read else stalled[0])).popen.wait(PATIENCE) == 0


def test_a_monitor_whose_lines_nobody_reads_ends_when_told_to(start_service, start, stalled):
    service = start_service("--verbose")
    monitor = start(CHRONALCTL, "monitor", "RTC", "NTP", **stalled[0])
    service.wait_for("^client [0-9] connected$", 3)
    assert monitor.stop() == 0


def test_a_monitor_ends_if_its_output_cannot_be_written(start_service, start):
    start_service()
    monitor = start("sh", "-c", 'exec "$@" >/dev/full', "sh", CHRONALCTL, "monitor")
    monitor.wait_for("^chronalctl: cannot write to standard output: No space left on device$")
    assert monitor.popen.wait(PATIENCE) == 3
