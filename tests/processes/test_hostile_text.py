"""The programs print no text, from whatever source, that controls or deceives a terminal."""

import json
import os
import signal
import unicodedata

import pytest
from conftest import SIMD

HOSTILE = {
    "escape": b"\x1b[2J",
    "carriage return": b"good\rbad",
    "new line": b"good\nchronalctl: forged",
    "delete": b"\x7f",
    "C1": "\x9b31m".encode(),
    "C1 as a byte": b"\x9b31m",
    "Arabic letter mark": "\u061c".encode(),
    "right-to-left mark": "\u200f".encode(),
    "override": "\u202egnp.exe".encode(),
    "isolate": "\u2066".encode(),
    "line separator": "\u2028chronalctl: forged".encode(),
    "tag": "\U000e0041".encode(),
    "invisible": "\u00ad\u0600\u180e\ufff9\U0001d173\U000e0001".encode(),
    "no UTF-8": b"\xff\xfe",
    "overlong": b"\xc0\x9b \xe0\x82\x9b \xf0\x80\x82\x9b",
    "surrogate": b"\xed\xa0\xae",
    "beyond Unicode": b"\xf4\x90\x80\x80",
    "cut off": b"\xe2\x80",
}

# A line break that gets through makes this a line of its own.
FORGED = "chronalctl: forged"


def assert_harmless(output):
    text = output.decode()  # raises if it is not UTF-8
    unseen = {c for c in text if unicodedata.category(c) in ("Cc", "Cf", "Cs", "Zl", "Zp")}
    assert unseen <= {"\n"}
    assert FORGED not in text.splitlines()


def assert_harmless_json(output):
    assert output.isascii()
    for line in output.splitlines():
        json.loads(line)


@pytest.fixture(params=HOSTILE.values(), ids=HOSTILE.keys())
def hostile(request):
    return request.param


@pytest.mark.parametrize(
    "words",
    [
        "{}",
        "--{}",
        "--timeout {} status",
        "--socket {} --timeout 1ms status",
        "--socket {}/none --timeout 1ms status",
        "ref-time get {}",
        "status {}",
        "at utc {}",
        "settings set --value {}",
        "timezone set {}",
    ],
)
def test_arguments_of_chronalctl(words, hostile, chronalctl):
    given = [hostile if word == "{}" else word.encode() for word in words.split()]
    given = [word.replace(b"{}", hostile) for word in given]
    result = chronalctl(*given)
    assert result.returncode in (1, 2, 3)
    assert_harmless(result.stderr)
    assert_harmless_json(chronalctl("--json", *given).stdout)


@pytest.mark.parametrize("words", ["--{}", "--zone {}", "--socket {}/none", "--refuse {}", "--speed {}"])
def test_arguments_of_chronal_simd(words, hostile, run):
    given = [word.encode().replace(b"{}", hostile) for word in words.split()]
    result = run(SIMD, *given)
    assert result.returncode in (1, 2) and result.stderr
    assert_harmless(result.stdout)
    assert_harmless(result.stderr)


@pytest.mark.parametrize("variable", ["NUB_DEBUG", "CHRONAL_SOCKET", "XDG_RUNTIME_DIR"])
def test_the_environment(variable, hostile, environment, directory, start_service, chronalctl):
    place = directory / os.fsdecode(hostile)
    place.mkdir()
    environment["XDG_RUNTIME_DIR"] = str(directory)
    environment[variable] = hostile if variable == "NUB_DEBUG" else bytes(place)
    service = start_service()  # chronal-simd does not read CHRONAL_SOCKET
    service.stop(signal.SIGKILL)
    assert_harmless(service.output)
    result = chronalctl("--timeout", "1ms", "timezone", "set", "Nowhere")
    assert result.stderr
    assert_harmless(result.stderr)


def test_settings_of_the_service(hostile, environment, start_service, chronalctl):
    environment["NUB_DEBUG"] = "*:5000"
    service = start_service("--verbose", "--socket", "it")
    environment["CHRONAL_SOCKET"] = "it"
    assert chronalctl("ntp", "set", hostile).stdout == b"done\n"
    for words in (["settings", "get"], ["status"]):
        shown = chronalctl(*words)
        assert_harmless(shown.stdout)
        assert_harmless(shown.stderr)
        assert_harmless_json(chronalctl("--json", *words).stdout)
    read = json.loads(chronalctl("--json", "settings", "get").stdout)["ntp_server"]
    assert read == hostile.decode(errors="replace") or "\ufffd" in read
    assert service.stop() == 0
    assert_harmless(service.output)


def test_letters_stay_and_other_characters_are_escaped(start_service, environment, chronalctl):
    start_service("--socket", "it")
    environment["CHRONAL_SOCKET"] = "it"
    chronalctl("ntp", "set", "Zürich 東京 🕰\x1b\u202e\U000e0041".encode() + b"\xff")
    shown = chronalctl("settings", "get").stdout.decode()
    assert r"Zürich 東京 🕰\x1b\u202e\U000e0041\xff" in shown
