"""Tests an installation in a prefix that was not known when it was built."""

import os

import pytest
from consumer import build_with_find_package, build_with_pkg_config, run


@pytest.fixture(name="prefix", scope="module")
def fixture_prefix(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    run("cmake", "--install", os.environ["BUILD_DIRECTORY"], "--prefix", prefix)
    return prefix


@pytest.mark.parametrize("build", [build_with_find_package, build_with_pkg_config])
def test_readme_client_runs(build, prefix, tmp_path):
    build(tmp_path / "client", prefix)


def test_programs_find_their_libraries(prefix):
    programs = list((prefix / "bin").iterdir())
    assert programs
    for program in programs:
        run(program, "--version")


def test_programs_have_manual_pages_and_completions(prefix):
    share = prefix / "share"
    for program in (prefix / "bin").iterdir():
        assert (share / "man/man1" / f"{program.name}.1").is_file()
        assert (share / "bash-completion/completions" / program.name).is_file()
        assert (share / "zsh/site-functions" / f"_{program.name}").is_file()
        assert (share / "fish/vendor_completions.d" / f"{program.name}.fish").is_file()
