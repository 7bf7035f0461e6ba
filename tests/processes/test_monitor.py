"""A monitor shows what happens, comes through the loss of the service, and ends when it should."""

import json
import signal

from conftest import CHRONALCTL

LOST = "number -104  reason Connection reset by peer"


def test_a_monitor_shows_what_others_set(service, start, answer):
    service("--zone", "Europe/London")
    monitor = start(CHRONALCTL, "monitor", "--json")
    monitor.wait_for('"connected"')
    answer("ref-time set DVB 2026-03-29T00:59:50Z")
    answer("timezone set Asia/Tokyo")
    for name in ("broadcast-time", "timezone-change", "deviation-change"):
        monitor.wait_for(f'"notification":"{name}"')
    assert monitor.stop(signal.SIGINT) == 0
    shown = [json.loads(line) for line in monitor.output.splitlines()]
    assert shown[0] == {"connection": "connected"}
    shown = {line["notification"]: line for line in shown[1:]}
    assert shown["broadcast-time"]["time"]["seconds"] == 1774745990
    assert shown["timezone-change"]["zone"] == "Asia/Tokyo"


def test_a_monitor_ends_after_so_many_notifications(service, start):
    service("--period", "1ms")
    monitor = start(CHRONALCTL, "monitor", "RTC", "--count", "2")
    assert monitor.wait() == 0
    assert monitor.count("^current-time  source RTC ") == 2
    assert monitor.output.count(b"\n") == 3


def test_a_monitor_says_that_there_is_no_service_yet(service, start):
    monitor = start(CHRONALCTL, "monitor")
    monitor.wait_for("^not-connected  number -2  reason No such file or directory$")
    service()
    monitor.wait_for("^connected$")


def test_a_monitor_outlives_the_service(service, start):
    monitor = start(CHRONALCTL, "monitor", "RTC", "NTP")
    for again in range(1, 4):
        running = service("--period", "20ms")
        monitor.wait_for("^connected$", again)
        for source in ("NTP", "RTC"):
            seen = f"^current-time  source {source} "
            monitor.wait_for(seen, monitor.count(seen) + 2)
        running.stop(signal.SIGKILL)
        for lost in ("", "source RTC  ", "source NTP  "):
            monitor.wait_for(f"^not-connected  {lost}{LOST}$", again)
    service()
    monitor.wait_for("^connected$", 4)
    assert monitor.stop(signal.SIGTERM) == 0


def test_a_loss_is_told_to_programs_with_its_source(service, start):
    service("--drop-after", "1")
    monitor = start(CHRONALCTL, "monitor", "DVB", "--json")
    lost = json.loads(monitor.wait_for('^.*"not-connected","source".*$', 2)[0])
    assert (lost["source"], lost["number"]) == ("DVB", -104)
    assert lost["reason"] == "Connection reset by peer"


# Two seconds are far more than a connection takes.
def test_a_monitor_ends_in_time_even_if_nobody_reads(service, start, stalled):
    service()
    command = (CHRONALCTL, "monitor", "RTC", "--for", "2s")
    monitors = [start(*command), start(*command, **stalled[0])]
    assert [monitor.wait() for monitor in monitors] == [0, 0]


def test_a_monitor_whose_lines_nobody_reads_ends_when_told_to(service, start, stalled):
    running = service("--verbose")
    monitor = start(CHRONALCTL, "monitor", "RTC", "NTP", **stalled[0])
    running.wait_for("^client [0-9] connected$", 3)
    assert monitor.stop() == 0
