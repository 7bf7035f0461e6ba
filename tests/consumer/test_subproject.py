"""Tests this tree as a part of another project."""

import os

import pytest
from consumer import (
    SOURCE,
    blocks,
    build_with_find_package,
    build_with_pkg_config,
    check_readme_client,
    run,
    write_project,
)

# Both use the same build directory, so that the second reuses the first one's objects.
ADD_SUBDIRECTORY = f"add_subdirectory({SOURCE} chronal)"
FETCH_CONTENT = f"""include(FetchContent)
FetchContent_Declare(chronal-api SOURCE_DIR {SOURCE} BINARY_DIR ${{CMAKE_BINARY_DIR}}/chronal)
FetchContent_MakeAvailable(chronal-api)"""


@pytest.fixture(name="directory", scope="module")
def fixture_directory(tmp_path_factory):
    return tmp_path_factory.mktemp("parent")


def configure(directory, way, *options, libraries="chronal::api chronal::devkit"):
    """Configures the README's project, including the tree by `way`; returns program and output."""
    cmake = blocks("README.md", "cmake")[0]
    assert "find_package(chronal-api REQUIRED)" in cmake
    assert "chronal::api chronal::devkit" in cmake
    cmake = cmake.replace("find_package(chronal-api REQUIRED)", "enable_testing()\n" + way)
    cmake = cmake.replace("chronal::api chronal::devkit", libraries)
    program = write_project(directory, cmake, blocks("README.md", "cpp")[0])
    return program, run("cmake", "--fresh", "-S", directory, "-B", directory / "build", *options)


@pytest.mark.parametrize(
    "way", [ADD_SUBDIRECTORY, FETCH_CONTENT], ids=["add_subdirectory", "FetchContent"]
)
def test_readme_client_is_the_only_program_built(way, directory, tmp_path):
    program, _ = configure(directory, way)
    build = program.parent
    run("cmake", "--build", build)
    check_readme_client(program)

    assert "-Werror" not in (build / "build.ninja").read_text()
    assert "Total Tests: 0" in run("ctest", "--test-dir", build, "-N")
    run("cmake", "--install", build, "--prefix", tmp_path)
    assert not list(tmp_path.iterdir())
    programs = [
        path
        for path in build.rglob("*")
        if path.is_file() and os.access(path, os.X_OK) and ".so" not in path.name
        and "CMakeFiles" not in path.parts
    ]
    assert programs == [program]


def test_the_simulator_is_built_only_when_it_is_linked(tmp_path):
    program, _ = configure(tmp_path, ADD_SUBDIRECTORY, libraries="chronal::api")
    commands = run("cmake", "--build", program.parent, "--", "-n")
    assert "libchronal-api.so" in commands
    assert "simulator" not in commands


def test_an_installed_package_is_found_beside_the_tree(tmp_path):
    installation = tmp_path / "installation"
    run("cmake", "--install", os.environ["BUILD_DIRECTORY"], "--prefix", installation)
    both = ADD_SUBDIRECTORY + "\nset(CMAKE_UNITY_BUILD ON)\nfind_package(chronal-api REQUIRED)"
    configure(tmp_path, both, f"-DCMAKE_PREFIX_PATH={installation}")


def test_the_library_alone_needs_no_time_zone_library(tmp_path):
    toolchain = tmp_path / "toolchain.cmake"
    toolchain.write_text(
        f"""set(CMAKE_CXX_COMPILER {os.environ["CXX"]})
        set(CMAKE_FIND_ROOT_PATH {tmp_path})
        set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
        set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)"""
    )
    _, output = configure(
        tmp_path, ADD_SUBDIRECTORY, f"-DCMAKE_TOOLCHAIN_FILE={toolchain}", libraries="chronal::api"
    )
    assert "there is no chronal::devkit, because" in output


@pytest.mark.parametrize("absolute", ["LIBDIR", "INCLUDEDIR"])
def test_an_absolute_directory_stays_where_it_is(absolute, directory, tmp_path):
    directories = {"LIBDIR": "lib", "INCLUDEDIR": "include"}
    directories[absolute] = tmp_path / "elsewhere"
    options = [f"-DCMAKE_INSTALL_{name}={value}" for name, value in directories.items()]
    program, _ = configure(directory, ADD_SUBDIRECTORY, "-DCHRONAL_INSTALL=ON",
                           f"-DCMAKE_INSTALL_PREFIX={tmp_path}/prefix", *options)
    run("cmake", "--build", program.parent)
    # A package directory inside the prefix moves with it.
    prefix = tmp_path / ("prefix" if absolute == "LIBDIR" else "moved")
    run("cmake", "--install", program.parent, "--prefix", prefix)
    build_with_find_package(tmp_path / "find-package", tmp_path)
    build_with_pkg_config(tmp_path / "pkg-config", tmp_path)


def test_a_program_finds_an_absolute_library_directory(tmp_path):
    (tmp_path / "library.cpp").write_text("int answer() { return 0; }")
    (tmp_path / "program.cpp").write_text("int answer(); int main() { return answer(); }")
    (tmp_path / "CMakeLists.txt").write_text(
        f"""cmake_minimum_required(VERSION 3.25)
        project(program LANGUAGES CXX)
        include(GNUInstallDirs)
        include({SOURCE}/cmake/ChronalProgram.cmake)
        add_library(library SHARED library.cpp)
        install(TARGETS library)
        add_executable(program program.cpp)
        target_link_libraries(program PRIVATE library)
        chronal_program(program)"""
    )
    run("cmake", "-S", tmp_path, "-B", tmp_path / "build", "-DCHRONAL_INSTALL=ON",
        f"-DCMAKE_INSTALL_LIBDIR={tmp_path}/elsewhere")
    run("cmake", "--build", tmp_path / "build")
    run("cmake", "--install", tmp_path / "build", "--prefix", tmp_path / "prefix")
    run(tmp_path / "prefix/bin/program")
