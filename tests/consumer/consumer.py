"""Builds projects outside this tree that use the library as its documents describe."""

import os
import re
import shlex
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(__file__).resolve().parents[2]
FLAGS = shlex.split(os.environ.get("CXXFLAGS", ""))
EMULATOR = shlex.split(os.environ.get("EMULATOR", ""))


def run(*command, env=(), **options):
    """Returns what a command prints on either stream; fails with that text if the command does."""
    environment = {**os.environ, **dict(env)}
    for name in ("NUB_DEBUG", "CHRONAL_SOCKET", "DESTDIR"):
        environment.pop(name, None)
    done = subprocess.run([str(word) for word in command], env=environment, text=True, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        pytest.fail(f"{shlex.join(done.args)} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def compile_cpp(*arguments):
    return run(os.environ["CXX"], *FLAGS, *arguments)


def blocks(document, language):
    """Returns the code blocks of a language in a document of this tree."""
    text = (SOURCE / document).read_text()
    return re.findall(rf"^```{language}\n(.*?)^```", text, re.MULTILINE | re.DOTALL)


def write_project(directory, cmake, source):
    """Writes a project from a document's CMake block and a source; returns its program's path."""
    directory.mkdir(exist_ok=True)
    name = re.search(r"add_executable\(\S+ ([^ )]+)\)", cmake).group(1)
    (directory / name).write_text(source)
    if "project(" not in cmake:
        cmake = f"cmake_minimum_required(VERSION 3.25)\nproject(consumer LANGUAGES CXX)\n{cmake}"
    (directory / "CMakeLists.txt").write_text(cmake)
    return directory / "build" / Path(name).stem
