"""The manual pages and the completions that lie beside the programs."""

import re
import shutil
from pathlib import Path

import pytest
from conftest import CHRONALCTL, SIMD
from test_commands import COMMANDS

COMMON = {"--socket", "--json", "--timeout", "--version", "--help"}
COMMAND_GROUPS = "status monitor ref-time deviation dst at settings ntp auto-time time-init timezone"
COMPLETE = r"""
source "$1"
compopt() { :; }  # works in a completion only
COMP_WORDS=("${@:2}") COMP_CWORD=$(($# - 2))
"_${2//-/_}"
printf '%s\n' "${COMPREPLY[@]}"
"""

programs = pytest.mark.parametrize("program", [CHRONALCTL, SIMD])


def needs(tool):
    return pytest.mark.skipif(not shutil.which(tool), reason=f"needs {tool}")


@programs
def test_a_manual_page_lists_exit_statuses(program):
    assert '\n.SH "EXIT STATUS"\n' in Path(f"{program}.1").read_text()


@needs("man")
@programs
def test_a_manual_page_has_no_errors(program, run):
    result = run("man", "--warnings", "-l", f"{program}.1")
    assert (result.returncode, result.stderr) == (0, b"")


@pytest.mark.parametrize("shell", [pytest.param(name, marks=needs(name)) for name in ("zsh", "fish")])
@programs
def test_a_shell_accepts_its_completion(program, shell, run):
    path = Path(program)
    completion = path.with_name(f"_{path.name}" if shell == "zsh" else f"{path.name}.fish")
    assert run(shell, "-n", completion).returncode == 0


def test_what_can_be_refused_is_listed_and_tested():
    listed = re.findall("cmd[A-Z][A-Za-z]*", Path(f"{SIMD}.1").read_text())
    assert set(listed) == {name for name, *_ in COMMANDS}


def test_every_command_in_the_manual_is_tested():
    page = Path(f"{CHRONALCTL}.1").read_text().replace(r"\-", "-")
    listed = set(re.findall(r"^\\fB([a-z].*?)\\fR", page, re.M)) - {"chronalctl", "status", "monitor"}
    assert len(listed) > 15
    for command in listed:
        assert any(f"{row[1]} ".startswith(f"{command} ") for row in COMMANDS), command


@pytest.mark.parametrize(
    "line, completed",
    [
        ("chronalctl ", COMMAND_GROUPS),
        ("chronalctl ref-time s", "set set-local subscribe"),
        ("chronalctl --json deviation next set T", "TTX"),
        ("chronalctl timezone sync ", "on off"),
        ("chronalctl monitor --c", "--count"),
        ("chronalctl monitor --count ", ""),
        ("chronalctl ref-time get d", "DVB"),
        ("chronalctl --socket pl", "place"),
        ("chronalctl --socket = pl", "place"),  # as bash splits it
        ("chronal-simd --refuse cmdUTC", "cmdUTCTimeAt"),
        ("chronal-simd --z", "--zone"),
    ],
)
def test_bash_completes_words(line, completed, directory, run):
    (directory / "place").touch()
    words = line.split(" ")
    program = CHRONALCTL if words[0] == "chronalctl" else SIMD
    said = run("bash", "-c", COMPLETE, "bash", f"{program}.bash", *words).stdout.decode().split()
    assert [word for word in said if word not in COMMON] == completed.split()


@needs("fish")
def test_fish_completes_words(run):
    script = f"source {CHRONALCTL}.fish; complete -C 'chronalctl ref-time s'"
    lines = run("fish", "--no-config", "-c", script).stdout.decode().splitlines()
    assert [line.split("\t")[0] for line in lines] == ["set", "set-local", "subscribe"]
