"""Builds the tests of docs/testing.md against an installation, in the two ways that it shows."""

import os
import shlex

import pytest
from consumer import FLAGS, SOURCE, blocks, run


@pytest.fixture(name="project")
def fixture_project(tmp_path):
    document = SOURCE / "docs/testing.md"
    run("/usr/bin/python3", SOURCE / "tests/testing/extract.py", document, tmp_path)
    run("cmake", "--install", os.environ["BUILD_DIRECTORY"], "--prefix", tmp_path / "prefix")
    return tmp_path


def test_with_cmake(project):
    run("cmake", "-S", project, "-B", project / "build", f"-DCMAKE_PREFIX_PATH={project}/prefix")
    run("cmake", "--build", project / "build")
    assert "PASSED" in run(project / "build/clock-test")


def test_with_pkg_config(project):
    libraries = next(project.rglob("chronal-testing.pc")).parents[1]
    (command,) = blocks("docs/testing.md", "sh")
    command = command.replace("g++", shlex.join([os.environ["CXX"], *FLAGS]), 1)
    where = {"PKG_CONFIG_PATH": str(libraries / "pkgconfig"), "LD_LIBRARY_PATH": str(libraries)}
    run("sh", "-c", command, cwd=project, env=where)
    assert "PASSED" in run(project / "clock-test", env=where)
