"""Back-pressure: each command is answered or refused, however many are sent at once."""

import re

import pytest
from conftest import SANITIZED

MEGABYTE = 1024  # in the kilobytes that /proc shows


@pytest.fixture(params=["memory", "socket"])
def service(request, environment, start_service):
    """The client's service: a process, or None for the service inside the client."""
    if request.param == "memory":
        return None
    environment["CHRONAL_SOCKET"] = "it"
    return start_service("--socket", "it")


def settle(client):
    """Waits until all accepted commands are answered; returns the client's output."""
    refusals = 0
    while True:
        client.tell("fetch")
        said = client.wait_for(r"^(answer|not sent|\d+ of the burst not answered)$", refusals + 1)
        if said[0] != b"not sent":
            assert said[0] == b"answer"
            return client.output.decode()
        refusals += 1


def memory(process, field):
    """Returns a field of the process's status, in kilobytes."""
    with open(f"/proc/{process.popen.pid}/status") as status:
        return int(re.search(rf"^{field}:\s*(\d+)", status.read(), re.M)[1])


@pytest.mark.parametrize("count", [2_000, 20_000, 200_000])
@pytest.mark.parametrize("inside", [False, True], ids=["outside", "inside a callback"])
def test_every_command_of_a_burst_is_answered_once_or_refused(service, count, inside, start_client):
    client = start_client("burst", count) if inside else start_client()
    client.wait_for("^up$")
    if not inside:
        client.tell(f"burst {count}")
    refused = int(client.wait_for(r"^burst sent, (\d+) refused$")[1])
    assert refused < count
    output = settle(client)
    assert "stray" not in output and "down" not in output


@pytest.mark.skipif(SANITIZED, reason="sanitizers keep freed memory")
def test_long_texts_cost_a_bounded_amount_of_memory_which_is_given_back(service, start_client):
    client = start_client()
    client.wait_for("^up$")
    processes = [client] if service is None else [client, service]
    client.tell("burst 20 60000")  # makes the allocator create its arenas
    settle(client)
    before = [memory(process, "VmRSS") for process in processes]
    client.tell("burst 5000 60000")  # 300 MB
    client.wait_for("^burst sent", 2)
    output = settle(client)
    assert "stray" not in output and "down" not in output
    for process, least in zip(processes, before):
        assert memory(process, "VmHWM") < least + 6 * MEGABYTE
        assert memory(process, "VmRSS") < least + 2 * MEGABYTE
