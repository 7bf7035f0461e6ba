"""The manual pages and the completions that lie beside the programs."""

import os
import re
import shutil
from pathlib import Path

import pytest
from conftest import CHRONALCTL, SIMD
from test_chronalctl import COMMANDS, CONVERSATION

COMMON = {"--socket", "--json", "--timeout", "--version", "--help"}
GROUPS = "status monitor ref-time deviation dst at settings ntp auto-time time-init timezone"
COMPLETE = r"""
source "$1"
compopt() { :; }  # works in a completion only
COMP_WORDS=("${@:2}") COMP_CWORD=$(($# - 2))
"_${2//-/_}"
printf '%s\n' "${COMPREPLY[@]}"
"""


@pytest.mark.parametrize("program", [CHRONALCTL, SIMD], ids=["chronalctl", "chronal-simd"])
def test_the_files_have_no_errors(program, run):
    assert '\n.SH "EXIT STATUS"\n' in Path(f"{program}.1").read_text()
    path = Path(program)
    for tool, *words in (
        ("man", "--warnings", "-l", f"{program}.1"),
        ("zsh", "-n", path.with_name(f"_{path.name}")),
        ("fish", "-n", f"{program}.fish"),
    ):
        if shutil.which(tool):
            assert run(tool, *words)[::2] == (0, "")


def test_the_manual_lists_every_command():
    refusable = set(re.findall("cmd[A-Z][A-Za-z]*", Path(f"{SIMD}.1").read_text()))
    assert sorted(refusable) == sorted(COMMANDS)
    page = Path(f"{CHRONALCTL}.1").read_text().replace(r"\-", "-")
    listed = set(re.findall(r"^\\fB([a-z].*?)\\fR", page, re.M)) - {"chronalctl", "monitor"}
    used = {f"{command} " for command, *_ in CONVERSATION}
    assert [name for name in listed if not any(each.startswith(f"{name} ") for each in used)] == []
    assert [each for each in used if not any(each.startswith(f"{name} ") for name in listed)] == []


@pytest.mark.parametrize(
    "line, completed",
    [
        ("chronalctl ", GROUPS),
        ("chronalctl ref-time s", "set set-local subscribe"),
        ("chronalctl --json deviation next set T", "TTX"),
        ("chronalctl timezone sync ", "on off get"),
        ("chronalctl timezone set europe/berl", "Europe/Berlin"),
        ("chronal-simd --zone asia/toky", "Asia/Tokyo"),
        ("chronalctl monitor --c", "--count"),
        ("chronalctl monitor --count ", ""),
        ("chronalctl ref-time get d", "DVB"),
        ("chronalctl --socket pl", "place"),
        ("chronalctl --socket = pl", "place"),  # as bash splits it
        ("chronal-simd --refuse cmdUTC", "cmdUTCTimeAt"),
        ("chronal-simd --z", "--zone"),
    ],
)
def test_bash_completes_words(line, completed, environment, directory, run):
    environment["PATH"] = f"{Path(CHRONALCTL).parent}:{os.environ['PATH']}"
    (directory / "place").touch()
    words = line.split(" ")
    program = CHRONALCTL if words[0] == "chronalctl" else SIMD
    said = run("bash", "-c", COMPLETE, "bash", f"{program}.bash", *words)[1].split()
    assert [word for word in said if word not in COMMON] == completed.split()


@pytest.mark.skipif(not shutil.which("fish"), reason="needs fish")
def test_fish_completes_words(run):
    script = f"source {CHRONALCTL}.fish; complete -C 'chronalctl ref-time s'"
    lines = run("fish", "--no-config", "-c", script)[1].splitlines()
    assert [line.split("\t")[0] for line in lines] == ["set", "set-local", "subscribe"]
