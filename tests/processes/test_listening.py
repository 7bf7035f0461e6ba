"""The simulated service listens at its socket, or explains why it cannot."""

import fcntl
import os
import signal

import pytest
from conftest import SIMD


@pytest.fixture
def refusal(run):
    """refusal(PLACE): returns the error of a service that cannot listen at PLACE."""

    def refusal(place):
        result = run(SIMD, "--socket", place)
        assert result.returncode == 1
        start = f"chronal-simd: {place}: "
        assert result.stderr.decode().startswith(start)
        return result.stderr.decode()[len(start) :].strip()

    return refusal


def test_only_the_owner_may_use_the_socket(directory, start_service):
    os.umask(0)
    start_service("--socket", directory / "socket")
    assert (directory / "socket").stat().st_mode & 0o777 == 0o600


def test_the_socket_of_a_running_service_is_not_taken(directory, start_service, refusal):
    running = start_service("--socket", directory / "socket")
    assert refusal(directory / "socket") == "in use by a running service"
    running.popen.send_signal(signal.SIGSTOP)
    assert refusal(directory / "socket") == "in use by a running service"


def test_a_file_is_not_taken_for_a_socket(directory, start_service, refusal):
    (directory / "socket").write_text("precious")
    assert refusal(directory / "socket") == "is there already and is not a socket"
    assert (directory / "socket").read_text() == "precious"


def test_a_file_that_has_replaced_the_socket_is_kept(directory, start_service):
    running = start_service("--socket", directory / "socket")
    (directory / "socket").unlink()
    (directory / "socket").write_text("precious")
    assert running.stop() == 0
    assert (directory / "socket").read_text() == "precious"


def test_two_services_do_not_start_at_one_path(directory, refusal):
    with open(directory / "socket.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        assert refusal(directory / "socket").startswith("another service is starting here")


def test_a_lock_is_not_left_behind(directory, start_service):
    start_service("--socket", directory / "socket")
    assert not (directory / "socket.lock").exists()


def test_a_file_is_not_taken_for_a_lock(directory, start_service):
    (directory / "socket.lock").write_text("precious")
    start_service("--socket", directory / "socket")
    assert (directory / "socket.lock").read_text() == "precious"


# Any user who may read a directory can lock it.
def test_a_locked_directory_does_not_matter(directory, start_service):
    locked = os.open(directory, os.O_RDONLY)
    fcntl.flock(locked, fcntl.LOCK_EX)
    start_service("--socket", directory / "socket")
    os.close(locked)


def test_a_missing_directory_is_named(directory, refusal):
    assert refusal(directory / "none" / "socket") == (
        "cannot create a file in its directory: No such file or directory"
    )


@pytest.mark.parametrize("name", ["", "/"])
def test_a_directory_names_the_socket_in_it(name, directory, environment, start_service, start_client):
    running = start_service("--socket", f"{directory}{name}")
    running.wait_for(f"^listening on {directory}/chronal.sock$")
    environment["CHRONAL_SOCKET"] = str(directory)
    start_client().wait_for("^up$")


# The address of a socket holds 107 characters.
def test_the_longest_path_is_served(directory, environment, start_service, start_client):
    deep = directory / ("d" * (107 - len(str(directory)) - len("//socket")))
    deep.mkdir()
    place = deep / "socket"
    assert len(str(place)) == 107
    start_service("--socket", place)
    environment["CHRONAL_SOCKET"] = str(place)
    start_client().wait_for("^up$")
