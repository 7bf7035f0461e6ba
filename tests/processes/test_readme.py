"""The commands in README.md can be typed from top to bottom and print the output shown."""

import os
import re
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(os.environ["SOURCE_DIRECTORY"])


@pytest.fixture
def checkout(directory):
    """This checkout with this build in place of the one that scripts/demo makes."""
    place = directory / "checkout"
    (place / "build").mkdir(parents=True)
    (place / "build/demo").symlink_to(os.environ["BUILD_DIRECTORY"])
    for entry in SOURCE.iterdir():
        if entry.name != "build":
            (place / entry.name).symlink_to(entry)
    return place


class Shell:
    """A newcomer's shell, which keeps its state from block to block."""

    def __init__(self, process):
        self.process = process
        self.blocks = 0

    def run(self, text):
        """Runs lines to their end; none of the commands may fail."""
        self.blocks += 1
        self.process.send(f"trap 'echo FAILED: $BASH_COMMAND' ERR\n{text}\ntrap - ERR\n")
        self.process.send(f"echo end of block {self.blocks}\n")
        self.process.wait_for(f"^end of block {self.blocks}$")
        assert b"\nFAILED: " not in b"\n" + self.process.output

    def type(self, command, answers):
        """Types one command, waits for the given number of lines and returns them."""
        before = len(self.process.output)
        self.process.send(command + "\n")
        self.process.wait_for(r"\n", self.process.output.count(b"\n", 0, before) + answers)
        return self.process.output[before:].decode().splitlines()


@pytest.fixture
def shell(directory, environment, start, checkout):
    """Starts in the checkout and compiles with this build's compiler and sanitizers."""
    programs = directory / "bin"
    programs.mkdir()
    (programs / "c++").write_text(f'#!/bin/sh\nexec {os.environ["CXX"]} {os.environ["CXXFLAGS"]} "$@"\n')
    (programs / "c++").chmod(0o755)
    environment["PATH"] = f"{programs}:{environment['PATH']}"
    return Shell(start("bash", "--norc", cwd=checkout, stdin=subprocess.PIPE))


def blocks(markdown):
    """Returns the prose before each block of code, its language and its text."""
    parts = re.split(r"^```(\w*)\n", markdown, flags=re.M)
    return list(zip(parts[0::4], parts[1::4], parts[2::4]))


def commands(console):
    """Returns the commands of a console block, each with the lines shown after it."""
    parts = re.split(r"^\$ ", console, flags=re.M)[1:]
    return [(part.splitlines()[0], part.splitlines()[1:]) for part in parts]


def comparable(lines):
    """Removes what differs from run to run, including the order: a monitor runs concurrently."""
    lines = [re.sub(r":\d\d\.\d{3}'", ":..'", line) for line in lines]
    return sorted(re.sub(r"/\S+(/chronal/chronal\.sock)$", r"\1", line) for line in lines)


def test_each_block_works_from_top_to_bottom(directory, shell):
    (_, _, done), *rest = blocks((SOURCE / "README.md").read_text())
    assert re.findall(r"^\S+", done, re.M) == ["scripts/demo", "scripts/test"]
    assert [language for _, language, _ in rest].count("console") == 1
    for before, language, text in rest:
        if language in ("cpp", "cmake"):
            name = re.findall(r"`~/(\S+)`", before)[-1]
            (directory / name).write_text(text)
        elif language == "sh":
            shell.run(text)
        else:
            for command, shown in commands(text):
                assert comparable(shell.type(command, len(shown))) == comparable(shown), command
            shell.run("wait")
    output = shell.process.output.decode()
    assert len(re.findall("^NTP says '", output, re.M)) == 2  # built in two ways
