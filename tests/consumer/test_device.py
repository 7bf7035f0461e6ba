"""Follows docs/porting.md to the letter, for a device as different from ours as it allows."""

import os
import re
from pathlib import Path

from consumer import EMULATOR, SOURCE, blocks, compile_cpp, run, write_project

HERE = Path(__file__).parent / "device"

EXPECTED = """\
12 handlers
sent 31032014 26032007 0 by -1/42: {size} bytes
releasing "Europe/Berlin"
ids filled in
releasing "Asia/Tokyo"
caught: no more events
NTP says '2026-03-28 11:40:00.250', with ids of the event
api-chronal-service-adapter:N:onServiceDisconnected(): Called: Reason is 5.
0 handlers
"""


def test_the_recipe_works_as_documented(tmp_path):
    device, build, project = tmp_path / "device", tmp_path / "library", tmp_path / "application"
    for name in ("include/fabric", "include/nub", "lib"):
        (device / name).mkdir(parents=True)
    for header in re.findall(r"`((?:fabric|nub)/\w+\.h)`", (SOURCE / "docs/porting.md").read_text()):
        (device / "include" / header).write_text(f'#include "{HERE}/device.h"\n')
    for library in ("nub", "fabric"):
        compile_cpp("-shared", "-fPIC", f"-Wl,-soname,lib{library}.so", HERE / f"{library}.cpp",
                    "-o", device / f"lib/lib{library}.so")
    (device / "toolchain.cmake").write_text(
        ("set(CMAKE_SYSTEM_NAME Linux)\n" if EMULATOR else "")
        + "".join(f"set(CMAKE_{language}_COMPILER {os.environ[name]})\n"
                  for language, name in (("C", "CC"), ("CXX", "CXX")) if os.environ.get(name))
    )

    def printed(language):
        return [text.replace("/opt/device", str(device)).replace("build/device", str(build))
                for text in blocks("docs/porting.md", language)]

    def run_on_device(program):
        # On a device, too, the loader knows where the libraries are.
        path = f"LD_LIBRARY_PATH={device}/lib"
        return run(*(EMULATOR + ["-E", path] if EMULATOR else ["env", path]), program)

    platform, consumer = printed("cmake")
    build_library, with_find_package, with_pkg_config = printed("sh")
    (device / "platform.cmake").write_text(platform)
    run("bash", "-euc", build_library, cwd=SOURCE)
    run_on_device(build / "tests/layout-test")

    found = write_project(project, consumer, (HERE / "client.cpp").read_text())
    run("bash", "-euc", with_find_package, cwd=project)
    compiler = {"CXX": f"{os.environ['CXX']} {os.environ['CXXFLAGS']}"}
    run("bash", "-euc", with_pkg_config, cwd=project, env=compiler)
    expected = EXPECTED.format(size=24 if EMULATOR else 32)
    for program in (found, project / found.name):
        assert re.sub(r"adapter:\d+:", "adapter:N:", run_on_device(program)) == expected
