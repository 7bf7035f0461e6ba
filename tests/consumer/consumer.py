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


def run(*command, **options):
    """Returns what a command prints on either stream; fails with that text if the command does."""
    environment = {
        name: value
        for name, value in os.environ.items()
        if name not in ("NUB_DEBUG", "CHRONAL_SOCKET", "DESTDIR")
    }
    environment.update(options.pop("env", {}))
    done = subprocess.run(
        [str(word) for word in command],
        env=environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
        **options,
    )
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


def check_readme_client(program):
    assert run(program).startswith("NTP says '")


def build_with_find_package(directory, installation):
    (cmake, *_), (source, *_) = blocks("README.md", "cmake"), blocks("README.md", "cpp")
    program = write_project(directory, cmake, source)
    config = next(installation.rglob("chronal-api-config.cmake"))
    run("cmake", "-S", directory, "-B", directory / "build", "-DCMAKE_CXX_STANDARD=11",
        f"-Dchronal-api_DIR={config.parent}")
    run("cmake", "--build", directory / "build")
    check_readme_client(program)


def build_with_pkg_config(directory, installation):
    directory.mkdir()
    where = {"PKG_CONFIG_PATH": str(next(installation.rglob("chronal-devkit.pc")).parent)}
    package = run("pkg-config", "--cflags", "--libs", "chronal-devkit", env=where)
    libraries = run("pkg-config", "--variable=libdir", "chronal-devkit", env=where).strip()
    for number, block in enumerate(blocks("README.md", "cpp")):
        source = directory / f"{number}.cpp"
        source.write_text(block)
        compile_cpp("-std=c++11", source, "-o", source.with_suffix(""), *shlex.split(package),
                    f"-Wl,-rpath,{libraries}")
        check_readme_client(source.with_suffix(""))
