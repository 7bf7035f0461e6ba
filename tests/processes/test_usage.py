"""chronal-simd reports wrong option values together with the expected ones."""

import pytest
from conftest import SIMD


@pytest.mark.parametrize(
    "option, value, complaint",
    [
        ("--socket", "", "path; expected for example /run/chronal.sock"),
        ("--zone", "Foo", "time zone of this system; expected for example Europe/Berlin"),
        ("--period", "x", "duration; expected seconds, such as 5 or 0.5, or units, such as 250ms"),
        ("--period", "0s", "period; expected whole milliseconds, from 1ms to a day"),
        ("--period", "0.0005", "period; expected"),
        ("--period", "1441min", "period; expected"),
        ("--start-time", "now", "time; expected for example 2026-03-29T01:00:00Z"),
        ("--speed", "nan", "number from 0.001 to 1000000"),
        ("--speed", "0", "number from"),
        ("--drop-after", "x", "whole number from 1 to "),
        ("--drop-after", "0", "whole number from 1 to "),
        ("--refuse", "cmdNo", "command; expected one of: cmdRefTimeSet, "),
    ],
)
def test_a_wrong_value_is_named_with_the_expected_one(option, value, complaint, run):
    result = run(SIMD, option, value)
    assert (result.returncode, result.stdout) == (2, b"")
    said = result.stderr.decode()
    assert said.startswith(f"chronal-simd: {option}: '{value}' is not a {complaint}")
    assert said.endswith("\nSee: chronal-simd --help\n")
