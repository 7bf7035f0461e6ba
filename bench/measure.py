"""Runs the benchmarks that scripts/bench has built, and reports the results."""

import argparse
import contextlib
import json
import os
from pathlib import Path
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile

import report

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/release/bench"
# On one CPU a round trip never waits for another CPU to wake up.
ONE_CPU = ("taskset", "-c", str(min(os.sched_getaffinity(0))))


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{shlex.join(map(str, command))} failed:\n{done.stdout}{done.stderr}")
    return done.stdout


def instruction_counts(work):
    """Counts repeat exactly, on any machine: they depend on neither time nor load, and the C
    library is kept from choosing its string functions by the processor."""
    tunables = "glibc.cpu.hwcaps=-AVX2,-AVX512VL,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM"
    run("valgrind", "--quiet", "--tool=callgrind", "--collect-systime=yes",
        f"--callgrind-out-file={work}/callgrind", BUILD / "bench-instructions",
        env={"PATH": os.environ["PATH"], "GLIBC_TUNABLES": tunables})
    dumps = sorted(work.glob("callgrind.*"), key=lambda path: int(path.suffix[1:]))
    return dict(filter(None, (report.counts_of(dump.read_text()) for dump in dumps)))


@contextlib.contextmanager
def message_bus(work):
    """A message bus of our own, which ends with this program, however that ends."""
    command = ["setpriv", "--pdeathsig", "KILL", "--", *ONE_CPU, "dbus-daemon", "--session",
               "--nofork", "--nopidfile", "--print-address", f"--address=unix:path={work}/bus"]
    pipe = subprocess.PIPE
    with subprocess.Popen(command, stdout=pipe, stderr=pipe, text=True) as daemon:
        try:
            address = daemon.stdout.readline().strip()
            os.environ["CHRONAL_BENCH_BUS"] = address or sys.exit(daemon.stderr.read())
            yield
        finally:
            daemon.terminate()


def arm_text(option, work):
    """Bytes of code of the commands, the receivers and what they share, compiled for ARM with the
    release build's options and `option`. Connection handling is not counted, nor are inline
    functions of the headers of the platform, Boost and the C++ library, which are weak symbols."""
    source = ROOT / "common/fw/chronal/api/src/api-chronal-service-adapter.cpp"
    entries = json.loads((ROOT / "build/release/compile_commands.json").read_text())
    command = next(entry["command"] for entry in entries if entry["file"] == str(source))
    run("arm-linux-gnueabihf-g++", *shlex.split(command)[1:], "-Wno-psabi", option, "-g0",
        "-o", work / "arm.o", cwd=ROOT / "build/release")
    symbols = run("arm-linux-gnueabihf-nm", "-SC", "-t", "d", "--defined-only", work / "arm.o")
    excluded = (r"\.LTHUNK|non-virtual thunk"
                "|chronal::UserAdapter::(~?UserAdapter|on|setServiceInterface)")
    return sum(int(size) for size, name in re.findall(r"^\d+ (\d+) [tT] (.*)", symbols, re.M)
               if not re.match(excluded, name))


def measure(work, quick):
    repetitions, seconds, rounds = (2, 0.001, 1) if quick else (20, 0.04, 30)

    def times(name_filter, *prefix):
        return json.loads(run(
            *prefix, BUILD / "bench-time", "--benchmark_format=json",
            f"--benchmark_filter={name_filter}", f"--benchmark_repetitions={repetitions}",
            f"--benchmark_min_time={seconds}", "--benchmark_enable_random_interleaving=true"))

    def latencies(program, *prefix):
        return json.loads(run(*prefix, BUILD / program, work, str(rounds)))

    with message_bus(work):
        results = {"times": times("-^round-trip"), "round_trips": times("^round-trip", *ONE_CPU)}
    results |= {"round_trip": latencies("round-trip", *ONE_CPU),
                "under_way": latencies("round-trip"), "fairness": latencies("fairness"),
                "counts": instruction_counts(work), "arm_text": {}}
    if shutil.which("arm-linux-gnueabihf-g++"):
        results["arm_text"] = {option: arm_text(option, work) for option in ("-O2", "-Os")}
    return results


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="See scripts/bench.")
    for flag in ("--quick", "--instructions", "--accept"):
        parser.add_argument(flag, action="store_true")
    parser.add_argument("--json", type=argparse.FileType("w"), metavar="FILE")
    options = parser.parse_args()
    if options.accept and not options.instructions:
        parser.error("--accept goes with --instructions")
    if options.instructions and (options.quick or options.json):
        parser.error("--instructions goes with neither --quick nor --json")

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # after cleaning up
    with tempfile.TemporaryDirectory() as directory:
        if options.instructions:
            sys.exit(report.check_instructions(instruction_counts(Path(directory)),
                                               ROOT / "bench/instruction-budget", options.accept))
        print("Measuring; this takes some minutes and wants a machine that does nothing else",
              file=sys.stderr)
        results = measure(Path(directory), options.quick)
    file, plot = BUILD / "bench.json", ROOT / "docs/benchmark.svg"
    if options.quick:
        file, plot = BUILD / "quick.json", BUILD / "quick.svg"
    with options.json or file.open("w") as out:
        json.dump(results, out, indent=1)
    report.print_all(report.values_of(results), ROOT / "bench", plot)
    print(f"\nWritten: {out.name}, {plot}")


main()
