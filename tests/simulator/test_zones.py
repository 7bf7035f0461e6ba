"""Compares how the simulator reads the time-zone database with Python and the C library."""

import datetime
import os
import pathlib
import random
import shutil
import subprocess
import time
import zoneinfo

import pytest

DAY = 86400
EPOCH = datetime.datetime(1970, 1, 1)
END = 253402300800  # 10000-01-01
# The years go past the lists of fat files, 32-bit times, and the 400 years computed from a rule.
YEARS = (1970, 2026, 2037, 2038, 2040, 2100, 2199, 2395, 2400, 2437, 2438, 2800, 5000, 9997)
SEED = 2026


def moment(year):
    return int((datetime.datetime(year, 1, 1) - EPOCH).total_seconds())


class Reference:
    """One zone as Python reads it."""

    def __init__(self, directory, name):
        with open(directory / name, "rb") as file:
            self.zone = zoneinfo.ZoneInfo.from_file(file)

    def deviation(self, utc):
        aware = (EPOCH + datetime.timedelta(seconds=utc)).replace(tzinfo=self.zone)
        return int(self.zone.fromutc(aware).utcoffset().total_seconds())

    def utc(self, local):
        """Returns the earliest UTC of a local time, or None if there is none."""
        naive = EPOCH + datetime.timedelta(seconds=local)
        guesses = (naive.replace(tzinfo=self.zone, fold=fold).utcoffset() for fold in (0, 1))
        candidates = {local - int(guess.total_seconds()) for guess in guesses}
        return min((utc for utc in candidates if utc + self.deviation(utc) == local), default=None)

    def changes(self, begin, end, step=9 * DAY):
        """Yields each change of the deviation that lasts longer than a step."""
        for low in range(begin, end, step):
            high = low + step
            before = self.deviation(low)
            if self.deviation(high) == before:
                continue
            while high - low > 1:
                middle = (low + high) // 2
                low, high = (middle, high) if self.deviation(middle) == before else (low, middle)
            yield high


@pytest.fixture(params=["system", "slim"], name="database", scope="module")
def database_fixture(request, tmp_path_factory):
    system = pathlib.Path("/usr/share/zoneinfo")
    if request.param == "system":
        return system
    directory = tmp_path_factory.mktemp("slim")
    zic = shutil.which("zic", path=os.environ["PATH"] + ":/usr/sbin")
    subprocess.run([zic, "-b", "slim", "-d", directory, system / "tzdata.zi"], check=True)
    return directory


@pytest.fixture(name="zones", scope="module")
def zones_fixture(database):
    return sorted(
        str(path.relative_to(database))
        for path in database.glob("**/*")
        if path.is_file()
        and path.read_bytes()[:4] == b"TZif"
        and path.relative_to(database).parts[0] not in ("right", "posix", "localtime")
    )


def ask(database, questions):
    """Returns the answer to each question (kind, zone, seconds)."""
    result = subprocess.run(
        [os.environ["ZONE_ANSWERS"]],
        env={**os.environ, "TZDIR": str(database)},
        input="".join("{} {} {}\n".format(*question) for question in questions),
        stdout=subprocess.PIPE,
        check=True,
        text=True,
        timeout=120,
    )
    return dict(zip(questions, result.stdout.splitlines(), strict=True))


def test_deviations_agree_with_python(database, zones):
    chance = random.Random(SEED)
    print("seed", SEED)
    years = [moment(year) for year in YEARS]
    questions = [
        ("at", name, chance.choice([low, low, moment(2026)]) + chance.randrange(2 * 365 * DAY))
        for name in zones
        for low in years
    ]
    answers = ask(database, questions)
    references = {name: Reference(database, name) for name in zones}
    wrong = []
    for question, answer in answers.items():
        _, name, utc = question
        begin, deviation, _ = map(int, answer.split())
        reference = references[name]
        same = reference.deviation(utc) == reference.deviation(max(begin, 0)) == deviation
        if not same:
            wrong.append((question, answer, reference.deviation(utc)))
    assert not wrong
    assert len(answers) > 5000


def test_daylight_saving_agrees_with_the_c_library(database, zones, monkeypatch):
    monkeypatch.setenv("TZDIR", str(database))
    questions = [
        ("at", name, moment(year) + day * DAY)
        for name in zones
        for year in YEARS
        for day in (10, 190)
    ]
    answers = ask(database, questions)
    wrong = []
    for (_, name, utc), answer in answers.items():
        if os.environ.get("TZ") != name:
            monkeypatch.setenv("TZ", name)
            time.tzset()
        expected = time.localtime(utc)
        if answer.split()[1:] != [str(expected.tm_gmtoff), str(expected.tm_isdst)]:
            wrong.append((name, utc, answer, expected.tm_gmtoff, expected.tm_isdst))
    monkeypatch.undo()
    time.tzset()
    assert not wrong


def test_changes_and_local_times_around_them_agree_with_python(database, zones):
    expected = {}
    repeated = skipped = 0
    for name in zones:
        reference = Reference(database, name)
        for year in YEARS:
            begin = moment(year)
            changes = list(reference.changes(begin, begin + 2 * 365 * DAY))
            for last, change in zip([begin, *changes], changes):
                expected["next", name, last] = (change, reference.deviation(change))
                expected["next", name, change - 1] = (change, reference.deviation(change))
                for local in (
                    change + deviation + around
                    for deviation in (reference.deviation(change - 1), reference.deviation(change))
                    for around in (-1, 0, 600)
                ):
                    utc = reference.utc(local)
                    expected["utc", name, local] = utc
                    skipped += utc is None
                    repeated += utc is not None and utc < change <= local - reference.deviation(
                        change
                    )
    answers = ask(database, list(expected))
    wrong = []
    for question, right in expected.items():
        answer = answers[question]
        if question[0] == "next":
            same = answer.split()[:2] == [str(number) for number in right]
        else:
            same = answer == ("skipped" if right is None else str(right))
        if not same:
            wrong.append((question, answer, right))
    assert not wrong
    assert min(skipped, repeated) > 1000


def test_no_change_is_found_after_the_last_one(database, zones):
    questions = [("next", name, moment(year)) for name in zones for year in (2090, 9990)]
    none = [question for question, answer in ask(database, questions).items() if answer == "none"]
    assert none
    for _, name, begin in none:
        assert not list(Reference(database, name).changes(begin, begin + 8 * 365 * DAY))
