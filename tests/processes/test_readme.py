"""What README.md and then docs/two-processes.md print can be typed and gives the output shown."""

import os
import re
from pathlib import Path

SOURCE = Path(os.environ["SOURCE_DIRECTORY"])


def comparable(lines):
    """Removes what differs from run to run, including the order: a monitor runs concurrently."""
    lines = [re.sub(r":\d\d\.\d{3}'", ":..'", line) for line in lines]
    return sorted(re.sub(r"/\S+(/chronal/chronal\.sock)$", r"\1", line) for line in lines)


def prepare(directory, environment):
    """Makes a checkout with this build for the one of scripts/demo, and a compiler for C++11."""
    checkout, programs = directory / "checkout", directory / "bin"
    (checkout / "build").mkdir(parents=True)
    (checkout / "build/demo").symlink_to(os.environ["BUILD_DIRECTORY"])
    for entry in SOURCE.iterdir():
        if entry.name != "build":
            (checkout / entry.name).symlink_to(entry)
    programs.mkdir()
    command = f'exec {os.environ["CXX"]} {os.environ["CXXFLAGS"]} -std=c++11 "$@"'
    (programs / "c++").write_text(f"#!/bin/sh\n{command}\n")
    (programs / "c++").chmod(0o755)
    environment["PATH"] = f"{programs}:{environment['PATH']}"
    del environment["CHRONAL_SOCKET"]
    return checkout


def test_each_block_works_from_top_to_bottom(directory, environment, start):
    checkout = prepare(directory, environment)
    shell = start("bash", "--norc", cwd=checkout)  # keeps its state from block to block

    def type_block(number, text):
        """Types lines to their end; none of the commands may fail."""
        shell.tell(f"trap 'echo FAILED: $BASH_COMMAND' ERR\n{text}\ntrap - ERR\necho end {number}")
        shell.wait_for(f"^end {number}$")
        assert shell.count("^FAILED: ") == 0

    def type_command(command, shown):
        before = shell.output
        shell.tell(command)
        shell.wait_for("\n", before.count(b"\n") + len(shown))
        said = shell.output[len(before) :].decode().splitlines()
        assert comparable(said) == comparable(shown), command

    # The prose before each block of code, its language and its text.
    pages = [(SOURCE / page).read_text() for page in ("README.md", "docs/two-processes.md")]
    parts = re.split(r"^```(\w*)\n", "".join(pages), flags=re.M)
    assert re.findall(r"^\S+", parts[2], re.M) == ["scripts/demo", "scripts/test"]
    assert parts[5::4].count("console") == 1
    for number, (before, language, text) in enumerate(zip(parts[4::4], parts[5::4], parts[6::4])):
        if language in ("cpp", "cmake"):
            (directory / re.findall(r"`~/(\S+)`", before)[-1]).write_text(text)
        elif language == "sh":
            type_block(number, text)
        else:
            for command in re.split(r"^\$ ", text, flags=re.M)[1:]:
                type_command(command.splitlines()[0], command.splitlines()[1:])
            type_block(number, "wait")
    assert shell.count("^NTP says '") == 2  # built in two ways

    share = directory / "chronal/share"
    for name in ("chronalctl", "chronal-simd"):
        for path in (f"man/man1/{name}.1", f"bash-completion/completions/{name}",
                     f"zsh/site-functions/_{name}", f"fish/vendor_completions.d/{name}.fish"):
            assert (share / path).is_file()
