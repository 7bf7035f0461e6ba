"""A terminal does not hold up the service."""

import os
import pty

import pytest
from conftest import CHRONALCTL, SIMD


@pytest.fixture
def terminal():
    """The program's end of a terminal that is never read."""
    try:
        unread, end = pty.openpty()
    except OSError as error:
        pytest.skip(f"needs a terminal, but this machine has none: {error}")
    yield end
    os.close(end)
    os.close(unread)


def test_a_terminal_that_is_not_read_does_not_hold_up_the_service(
    terminal, environment, start, chronalctl
):
    environment["CHRONAL_SOCKET"] = "it"
    words = ["--socket", "it", "--verbose", "--period", "1ms"]
    service = start(SIMD, *words, stdout=terminal, stderr=terminal)
    monitor = start(CHRONALCTL, "monitor", "RTC")
    monitor.wait_for("^current-time", 300)  # more lines than the terminal buffers
    assert chronalctl("timezone", "get").returncode == 0
    assert service.stop() == 0
