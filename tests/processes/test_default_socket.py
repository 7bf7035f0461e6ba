"""chronalctl finds the service where chronal-simd listens by default, and reports a missing one."""

import signal

import pytest

SIMULATED = b"chronalctl: the service is simulated in this process and ends with it; "


@pytest.fixture
def runtime_directory(environment, directory):
    made = directory / "run"
    made.mkdir(mode=0o700)
    environment["XDG_RUNTIME_DIR"] = str(made)
    return made


def zone(result):
    """Returns the zone that "timezone get" printed; it must print nothing on standard error."""
    assert (result.returncode, result.stderr) == (0, b"")
    return result.stdout.split()[1].decode()


def test_the_service_in_the_default_place_keeps_a_setting(
    runtime_directory, start_service, chronalctl
):
    start_service()
    set_zone = chronalctl("timezone", "set", "Asia/Tokyo")
    assert (set_zone.returncode, set_zone.stdout, set_zone.stderr) == (0, b"done\n", b"")
    assert zone(chronalctl("timezone", "get")) == "Asia/Tokyo"


def test_an_option_overrides_the_variable_which_overrides_the_default_place(
    runtime_directory, environment, directory, start_service, chronalctl
):
    by_option, by_variable = directory / "option", directory / "variable"
    start_service("--zone", "Asia/Tokyo")
    start_service("--zone", "Europe/Paris", "--socket", by_variable)
    start_service("--zone", "Europe/Rome", "--socket", by_option)
    assert zone(chronalctl("timezone", "get")) == "Asia/Tokyo"
    environment["CHRONAL_SOCKET"] = str(by_variable)
    assert zone(chronalctl("timezone", "get")) == "Europe/Paris"
    assert zone(chronalctl("--socket", by_option, "timezone", "get")) == "Europe/Rome"
    environment["CHRONAL_SOCKET"] = ""
    assert zone(chronalctl("timezone", "get")) == "Asia/Tokyo"


@pytest.mark.parametrize("default_place", ["empty", "absent", "not set"])
def test_without_any_socket_the_service_is_simulated(
    default_place, runtime_directory, environment, chronalctl
):
    if default_place == "absent":
        runtime_directory.rmdir()
    elif default_place == "not set":
        del environment["XDG_RUNTIME_DIR"]
    assert zone(chronalctl("timezone", "get")) == "UTC"


@pytest.mark.parametrize(
    "command, says_so",
    [
        ("timezone set Asia/Tokyo", True),
        ("timezone set Nowhere", True),
        ("settings set --value 5", True),
        ("ref-time lock DVB", True),
        ("ntp set pool.example", True),
        ("monitor --for 1ms", True),
        ("ref-time subscribe RTC --for 1ms", True),
        ("status", False),
        ("ref-time get RTC", False),
        ("at utc 2026-03-29", False),
        ("help timezone set", False),
    ],
)
def test_a_reminder_is_printed_if_a_simulated_service_loses_something(command, says_so, chronalctl):
    for words in (command.split(), ["--json", *command.split()]):
        result = chronalctl(*words)
        announcements = [line for line in result.stderr.splitlines() if line.startswith(SIMULATED)]
        assert len(announcements) == says_so
        assert SIMULATED not in result.stdout


def test_a_socket_without_a_listener_is_an_error(
    runtime_directory, start_service, chronalctl
):
    start_service().stop(signal.SIGKILL)
    result = chronalctl("--timeout", "100ms", "timezone", "set", "Asia/Tokyo")
    assert (result.returncode, result.stdout) == (3, b"")
    place = bytes(runtime_directory / "chronal.sock")
    assert result.stderr.splitlines() == [
        b"chronalctl: no service at " + place + b" within 100ms: Connection refused",
        b"A service that was killed has left this socket behind. "
        b"To simulate one there: chronal-simd --socket " + place,
    ]


def test_a_file_at_the_path_of_the_socket_is_named(runtime_directory, chronalctl):
    (runtime_directory / "chronal.sock").touch()
    result = chronalctl("--timeout", "100ms", "timezone", "get")
    assert result.returncode == 3
    assert b"chronal.sock is not a socket" in result.stderr
