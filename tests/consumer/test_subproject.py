"""Tests this tree as a part of another project."""

import os
import shlex

import pytest
from consumer import SOURCE, blocks, compile_cpp, run, write_project

# All use the same build directory, so that the later ones reuse the objects of the first.
ADD_SUBDIRECTORY = f"add_subdirectory({SOURCE} chronal)"
FETCH_CONTENT = f"""include(FetchContent)
FetchContent_Declare(chronal-api SOURCE_DIR {SOURCE} BINARY_DIR ${{CMAKE_BINARY_DIR}}/chronal)
FetchContent_MakeAvailable(chronal-api)"""
(CMAKE, *_), (CLIENT, *_) = blocks("README.md", "cmake"), blocks("README.md", "cpp")
PACKAGE, LIBRARIES = "find_package(chronal-api REQUIRED)", "chronal::api chronal::devkit"


@pytest.fixture(name="directory", scope="module")
def fixture_directory(tmp_path_factory):
    return tmp_path_factory.mktemp("parent")


def configure(directory, way, *options, libraries=LIBRARIES, rest=""):
    """Configures the README's project, including the tree by `way`; returns program and output."""
    assert PACKAGE in CMAKE and LIBRARIES in CMAKE
    cmake = CMAKE.replace(PACKAGE, "enable_testing()\n" + way).replace(LIBRARIES, libraries) + rest
    program = write_project(directory, cmake, CLIENT)
    return program, run("cmake", "--fresh", "-S", directory, "-B", directory / "build", *options)


@pytest.mark.parametrize("way", [ADD_SUBDIRECTORY, FETCH_CONTENT], ids=["directory", "content"])
def test_readme_client_is_the_only_program_built(way, directory, tmp_path):
    program, _ = configure(directory, way)
    build = program.parent
    run("cmake", "--build", build)
    assert run(program).startswith("NTP says '")

    assert "-Werror" not in (build / "build.ninja").read_text()
    assert "Total Tests: 0" in run("ctest", "--test-dir", build, "-N")
    run("cmake", "--install", build, "--prefix", tmp_path)
    assert not list(tmp_path.iterdir())
    files = [path for path in build.rglob("*") if path.is_file() and "CMakeFiles" not in path.parts]
    programs = [path for path in files if os.access(path, os.X_OK) and ".so" not in path.name]
    assert programs == [program]


def test_the_simulator_is_built_only_when_it_is_linked(tmp_path):
    program, _ = configure(tmp_path, ADD_SUBDIRECTORY, libraries="chronal::api")
    commands = run("cmake", "--build", program.parent, "--", "-n")
    assert "libchronal-api.so" in commands and "simulator" not in commands


def test_an_installed_package_is_found_beside_the_tree(tmp_path):
    installation = tmp_path / "installation"
    run("cmake", "--install", os.environ["BUILD_DIRECTORY"], "--prefix", installation)
    both = f"{ADD_SUBDIRECTORY}\nset(CMAKE_UNITY_BUILD ON)\n{PACKAGE}"
    configure(tmp_path, both, f"-DCMAKE_PREFIX_PATH={installation}")


def test_the_library_alone_needs_no_time_zone_library(tmp_path):
    toolchain = tmp_path / "toolchain.cmake"
    toolchain.write_text(
        f"""set(CMAKE_CXX_COMPILER {os.environ["CXX"]})
        set(CMAKE_FIND_ROOT_PATH {tmp_path})
        set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
        set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)"""
    )
    option = f"-DCMAKE_TOOLCHAIN_FILE={toolchain}"
    output = configure(tmp_path, ADD_SUBDIRECTORY, option, libraries="chronal::api")[1]
    assert "there is no chronal::devkit, because" in output


@pytest.mark.parametrize("absolute", ["LIBDIR", "INCLUDEDIR"])
def test_an_absolute_directory_stays_where_it_is(absolute, directory, tmp_path):
    directories = {"LIBDIR": "lib", "INCLUDEDIR": "include", absolute: tmp_path / "elsewhere"}
    options = [f"-DCMAKE_INSTALL_{name}={value}" for name, value in directories.items()]
    program, _ = configure(directory, ADD_SUBDIRECTORY, "-DCHRONAL_INSTALL=ON", *options,
                           f"-DCMAKE_INSTALL_PREFIX={tmp_path}/prefix",
                           rest="include(GNUInstallDirs)\nchronal_program(clock)\n")
    run("cmake", "--build", program.parent)
    # A package directory inside the prefix moves with it.
    prefix = tmp_path / ("prefix" if absolute == "LIBDIR" else "moved")
    run("cmake", "--install", program.parent, "--prefix", prefix)

    found = write_project(tmp_path / "client", CMAKE, CLIENT)
    config = next(tmp_path.rglob("chronal-api-config.cmake")).parent
    run("cmake", "-S", tmp_path / "client", "-B", found.parent, f"-Dchronal-api_DIR={config}")
    run("cmake", "--build", found.parent)
    where = {"PKG_CONFIG_PATH": str(next(tmp_path.rglob("chronal-devkit.pc")).parent)}
    flags = run("pkg-config", "--cflags", "--libs", "chronal-devkit", env=where)
    libraries = run("pkg-config", "--variable=libdir", "chronal-devkit", env=where).strip()
    linked = tmp_path / "clock"
    compile_cpp(found.parents[1] / "clock.cpp", "-o", linked, *shlex.split(flags),
                f"-Wl,-rpath,{libraries}")
    for client in (prefix / "bin/clock", found, linked):
        assert run(client).startswith("NTP says '")
