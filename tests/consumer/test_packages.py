"""Installs the packages that scripts/package has built, and uses what they contain."""

import shlex
import shutil

import pytest
from consumer import SOURCE, blocks, compile_cpp, run, write_project

ARM = "arm-linux-gnueabihf"


def packages(architecture):
    found = list((SOURCE / "build/packages").glob(f"*_{architecture}.deb"))
    if not found:
        pytest.skip(f"no packages for {architecture}; first: scripts/package")
    return found


def build_client(directory, root, *options, **environment):
    (cmake, *_), (source, *_) = blocks("README.md", "cmake"), blocks("README.md", "cpp")
    program = write_project(directory, cmake, source)
    (config,) = root.glob("usr/lib/*/cmake/chronal-api")
    run("cmake", "-S", directory, "-B", program.parent, f"-Dchronal-api_DIR={config}", *options,
        env=environment)
    run("cmake", "--build", program.parent)
    return program


def test_native_packages(tmp_path):
    root, database = tmp_path / "root", tmp_path / "dpkg"
    root.mkdir()
    # With the database of this system, dpkg finds the packages that ours depend on.
    shutil.copytree("/var/lib/dpkg", database, ignore=shutil.ignore_patterns("lock*", "Lock"))
    dpkg = ("dpkg", f"--admindir={database}", f"--instdir={root}", "--force-not-root",
            "--no-triggers")
    debs = packages(run("dpkg", "--print-architecture").strip())
    run(*dpkg, "--install", *debs)

    (libraries,) = root.glob("usr/lib/*/pkgconfig")
    flags = run("pkg-config", "--cflags", "--libs", "chronal-devkit",
                env={"PKG_CONFIG_PATH": str(libraries)})
    found, linked = build_client(tmp_path / "client", root), tmp_path / "clock"
    compile_cpp(tmp_path / "client/clock.cpp", "-o", linked, *shlex.split(flags))
    where = {"LD_LIBRARY_PATH": str(libraries.parent)}
    for client in (found, linked):
        assert run(client, env=where).startswith("NTP says '")
    for program in (root / "usr/bin").iterdir():
        run(program, "--version", env=where)
        assert (root / "usr/share/man/man1" / f"{program.name}.1.gz").is_file()
        assert (root / "usr/share/bash-completion/completions" / program.name).is_file()

    run(*dpkg, "--purge", *(deb.name.partition("_")[0] for deb in debs))
    assert not list(root.iterdir())


@pytest.mark.skipif(not shutil.which(f"{ARM}-g++"), reason=f"{ARM}-g++ is not installed")
def test_arm_packages(tmp_path):
    root, debs = tmp_path / "root", packages("armhf")
    shutil.copytree(SOURCE / f"build/sysroot/{ARM}", root, symlinks=True)
    for deb in debs:
        run("dpkg-deb", "-x", deb, root)
    (root / "lib").symlink_to(f"/usr/{ARM}/lib")
    program = build_client(tmp_path / "client", root, "-DCMAKE_SKIP_RPATH=ON", CXXFLAGS="",
                           CMAKE_TOOLCHAIN_FILE=f"{SOURCE}/cmake/toolchains/{ARM}.cmake")
    client = run("qemu-arm", "-L", root, "-E", f"LD_LIBRARY_PATH=/usr/lib/{ARM}", program)
    assert client.startswith("NTP says '")
