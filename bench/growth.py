"""Measures what one message costs while the number of something grows, and draws it.

Usage: growth.py [--quick]
"""

from pathlib import Path
import re
import resource
import subprocess
import sys
import tempfile

LIMIT = 1.3
ROOT = Path(__file__).parent.parent
BUILT = ROOT / "build/release/bench"
CASE = re.compile(r"^([a-z]+) (\d+) (\d+) (\S+)$", re.M)  # kind, number, units, nanoseconds


def measure(messages, rounds, work):
    """Instructions and the least processor time for one unit of each case, {kind: {number: ...}}.
    The units are messages; of texts, bytes."""
    command = [BUILT / "growth", work, str(messages)]
    times, instructions = {}, {}
    for _ in range(rounds):
        printed = subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout
        for kind, number, units, time in CASE.findall(printed):
            least = times.setdefault(kind, {})
            cost = float(time) / int(units)
            least[int(number)] = min(cost, least.get(int(number), cost))
    subprocess.run(
        ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={work}/dump", *command],
        check=True, stdout=subprocess.DEVNULL)
    for dump in Path(work).glob("dump.*"):
        text = dump.read_text()
        if title := re.search(r"^desc: Trigger: Client Request: (\S+) (\d+) (\d+)", text, re.M):
            total = int(re.search(r"^totals: (\d+)", text, re.M)[1])
            instructions.setdefault(title[1], {})[int(title[2])] = total / int(title[3])
    return instructions, times


def growth(costs, number):
    """A cost as a multiple of the least of the smaller cases."""
    return costs[number] / min(cost for other, cost in costs.items() if other <= number)


def report(instructions, times):
    """Prints a table; gives the points of the plot, a block for each kind."""
    print(f"{'':12} {'number':>8} {'instructions':>14} {'growth':>8} {'nanoseconds':>14} {'growth':>8}")
    blocks = []
    for kind, time in times.items():
        counts = instructions[kind]
        for number in time:
            print(f"{kind:12} {number:8} {counts[number]:14.1f} {growth(counts, number):8.2f} "
                  f"{time[number]:14.1f} {growth(time, number):8.2f}")
        most = max(growth(counts, number) for number in counts)
        print(f"{'':12} at most {LIMIT:.2f} times the instructions of a smaller case: {most:.2f}  "
              f"{'reached' if most <= LIMIT else 'missed'}")
        first = min(time)
        blocks.append("\n".join(
            f"{kind} {max(number, 1)} {counts[number] / counts[first]:.3f} "
            f"{time[number] / time[first]:.3f}" for number in time))
    return "\n\n\n".join(blocks) + "\n"


def main(quick):
    # 256 clients and their service are in one process.
    resource.setrlimit(resource.RLIMIT_NOFILE, (4096, resource.getrlimit(resource.RLIMIT_NOFILE)[1]))
    plot = BUILT / "growth.svg" if quick else ROOT / "docs/growth.svg"
    with tempfile.TemporaryDirectory() as work:
        points = Path(work) / "points"
        points.write_text(report(*measure(64 if quick else 4096, 1 if quick else 5, work)))
        drawn = subprocess.run(
            ["gnuplot", "-e", f"points = '{points}'; plot = '{work}/plot.svg'", ROOT / "bench/growth.gnuplot"])
        if drawn.returncode == 0:
            plot.write_bytes((Path(work) / "plot.svg").read_bytes())
    return drawn.returncode


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:] == ["--quick"]))
