"""Turns the results of the benchmarks into tables and a plot."""

from collections import Counter
import math
import operator
import re
import statistics
import subprocess

REPETITIONS = 100  # of each operation, as in instructions.cpp
PARTS = ("library", "host", "allocator", "rest")
ALLOCATIONS = r"(malloc|calloc|realloc|memalign|aligned_alloc|posix_memalign)$"
HINDRANCES = r"mutex_(try)?lock|rwlock_|spin_lock|sem_|cond_|pthread_once|__cxa_guard|printf"
ALLOCATOR = (r"_?(int_)?(malloc|calloc|free)|operator (new|delete)|_int_|tcache|sysmalloc"
             "|unlink_chunk|checked_request2size")

LEGEND = """
send     into a middleware that drops the message; peers: the same fields, made into a message
         that is ready to be sent; -by-N: from N threads at once, time per message of all threads
receive  from the middleware to the application's callback; peers: the same fields, decoded
encode   and decode: between a record and a frame; peers: between a message and its bytes
text     beside the calls of the platform and snprintf() alone, for a time with gmtime_r()
ARM      strong symbols only; inline functions of the headers, which others may share, are extra
"""


def counts_of(dump):
    """Reads one of callgrind's dumps: the name of an operation, and the counts of one call of it.
    They are instructions by where they are spent, allocations, releases, and hindrances, which are
    locks, system calls and formatted texts. Events are rounded up, so that rare ones show. Dumps of
    preparations have no name and yield nothing."""
    title = re.search(r"^desc: Trigger: Client Request: (\S+) (\S+)", dump, re.M)
    if not title:
        return None
    names, total = {}, Counter()
    library = function = callee = ""
    lines = iter(dump.splitlines())
    for line in lines:
        key, _, value = line.partition("=")
        if key in ("ob", "cob", "fn", "cfn"):
            # "(id) name" where a name occurs first, "(id)" later.
            number, _, name = value.partition(" ")
            name = names.setdefault((key[-2:], number), name)
            if key == "ob":
                library = name
            elif key == "fn":
                function = name
            else:
                callee = name
        elif key == "calls":
            calls = int(value.split()[0])
            total["allocations"] += calls * bool(re.match(ALLOCATIONS, callee))
            total["releases"] += calls * (callee == "free")
            total["hindrances"] += calls * bool(re.search(HINDRANCES, callee))
            next(lines)  # the cost of the callee, which has lines of its own
        elif re.match(r"[\d+*-]", line):
            cost, system_calls = (line.split() + ["0"])[1:3]
            total["library" if "libchronal-api" in library else
                  "host" if "libfabric-host" in library else
                  "allocator" if re.match(ALLOCATOR, function) else "rest"] += int(cost)
            total["hindrances"] += int(system_calls)
    counts = {part: total[part] // REPETITIONS for part in PARTS}
    counts["instructions"] = sum(counts.values())
    counts["unallocated"] = counts["instructions"] - counts["allocator"]
    for event in ("allocations", "releases", "hindrances"):
        counts[event] = math.ceil(total[event] / REPETITIONS)
    return f"{title[2]}/{title[1]}", counts


def check_instructions(counts, file, accept):
    """Prints the counts. Returns an error message unless each operation has a budget and is within
    it, no budget is left over, or the counts are accepted as the new budget."""
    budget = dict(re.findall(r"^(\w\S*) (\d+)$", file.read_text(), re.M))
    own = {name[:-4]: each for name, each in counts.items() if name.endswith("/own")}
    good = bool(own)
    row = "{:28} {:>8} {:>8} {:>9} {:>6} {:>6} {:>6} {:>6} {:>6}{}"
    print(row.format("instructions", *PARTS, "total", "floor", "ratio", "budget", ""))
    for name, each in own.items():
        total, limit = each["instructions"], budget.pop(name, "-")
        floor = counts.get(name + "/floor", {}).get("instructions", "-")
        ratio = "-" if floor == "-" else f"{total / floor:.2f}"
        over = limit == "-" or total > int(limit)
        good = good and not over
        print(row.format(name, *(each[part] for part in PARTS), total, floor, ratio, limit,
                         "  above the budget" if over else ""))
    for name in budget:
        print(f"{name}: in the budget, but not counted")
    if accept:
        lines = [f"{name} {each['instructions']}\n" for name, each in own.items()]
        file.write_text("# Instructions that an operation may take; "
                        "set by scripts/bench --instructions --accept\n" + "".join(lines))
    elif budget or not good:
        return (f"scripts/bench: not as in bench/{file.name}. "
                "If that is intended: scripts/bench --instructions --accept")
    return None


def values_of(results):
    """All results as one mapping of names to numbers; times are in nanoseconds."""
    values = {}

    def add_times(benchmarks):
        runs = {}
        for each in sorted(benchmarks, key=lambda each: each["family_index"]):
            if each["run_type"] == "iteration":
                # Where several threads share the work, real time counts; elsewhere it would include
                # the time that other programs had the CPU.
                name, shared, _ = each["run_name"].partition("/real_time")
                runs.setdefault(name, []).append(each["real_time" if shared else "cpu_time"])
        for name, times in runs.items():
            values["min/" + name] = min(times)
            values["median/" + name] = statistics.median(times)

    add_times(results["times"]["benchmarks"])
    one_cpu, all_cpus = results["round_trip"], results["under_way"]
    for variant, key in (("own", "memory"), ("floor", "threads")):
        values[f"min/round-trip/{variant}"] = one_cpu[key]["best_median_ns"]
        values[f"median/round-trip/{variant}"] = one_cpu[key]["median_ns"]
        values[f"p99/round-trip/{variant}"] = one_cpu[key]["p99_ns"]
        values[f"of-floor/round-trip/{variant}"] = one_cpu[key]["of_floor"]
        values[f"per-second/round-trip/{variant}"] = all_cpus[key]["per_second"]
    values["of-floor/socket/one-cpu"] = one_cpu["socket"]["of_floor"]
    values["of-floor/socket/all-cpus"] = all_cpus["socket"]["of_floor"]
    values["flooded/p99"] = results["fairness"]["p99_ratio"]
    add_times(results["round_trips"]["benchmarks"])

    values |= {f"{key}/{name}": count for name, counts in results["counts"].items()
               for key, count in counts.items()}
    values["record/decode/ref-time-data/own"] = (values["instructions/decode/ref-time-data/own"]
                                                 - values["instructions/decode/nothing/own"])
    values |= {f"arm-text/{option}": size for option, size in results["arm_text"].items()}
    return values


def print_times(values):
    """Prints a row for each operation, and one more for each peer after the first."""
    def times(variant):
        return [values.get(f"{kind}/{operation}/{variant}", math.nan) for kind in ("min", "median")]

    def cells(numbers, width, digits):
        return "".join(" " * width if math.isnan(each) else
                       f"{each:{width}.{digits if each < 10 ** (4 - digits) else 0}f}"
                       for each in numbers)

    def ratios(some, others):
        return cells([one / other for one, other in zip(some, others)], 7, 2)

    peers = {}
    for operation, variant in re.findall("^min/(.*)/(.*)$", "\n".join(values), re.M):
        peers.setdefault(operation, []).extend({variant} - {"own", "floor"})
    print(f"{'nanoseconds':30}{'own':>18}{'floor':>18}{'own/floor':>14}  "
          f"{'peer':32}{'peer/own':>14}")
    print(" " * 30 + f"{'min':>9}{'median':>9}" * 2 + f"{'min':>7}{'median':>7}" + " " * 16
          + f"{'min':>9}{'median':>9}{'min':>7}{'median':>7}")
    for operation in peers:
        own, floor = times("own"), times("floor")
        line = f"{operation:30}{cells(own + floor, 9, 1)}{ratios(own, floor)}"
        for variant in peers[operation] or [""]:
            peer = times(variant)
            print(f"{line:80}  {variant:14}{cells(peer, 9, 1)}{ratios(peer, own)}".rstrip())
            line = ""


def print_targets(values, lines):
    """Prints each line of bench/reach beside what was measured."""
    def shown(value):
        return f"{value:.0f}" if value.is_integer() else f"{value:.2f}"

    print(f"{'reach':70}{'limit':>19} {'measured':>10}")
    missed = ""
    for line in lines:
        if line.startswith("because"):
            if missed:
                print("    " + line.removeprefix("because").lstrip())
        elif line and not line.startswith("#"):
            relation, limit, name, divisor, title = line.split(maxsplit=4)
            print(f"{title:70}{relation.replace('-', ' '):>9} {shown(float(limit)):>9}", end=" ")
            missed = ""
            if name not in values or divisor not in {"1", *values}:
                print(f"{'-':>10}  not measured")
                continue
            value, limit = values[name] / values.get(divisor, 1), float(limit)
            if not {"at-most": operator.le, "at-least": operator.ge,
                    "exactly": operator.eq}[relation](value, limit):
                by = abs(value - limit)
                missed = "missed by " + (f"{100 * by / limit:.1f} %" if limit else shown(by))
            print(f"{shown(value):>10}  {missed or 'reached'}")


def draw(values, script, plot):
    """Draws the minima as multiples of the floor's. Callbacks that are not overridden, operations
    of several threads and frames that no peer was measured with are left out."""
    points = []
    names = "\n".join(values)
    for operation in re.findall("^min/(?!.*(?:-default/|-by-))(.*)/floor$", names, re.M):
        floor = values[f"min/{operation}/floor"]
        ratios = [values.get(f"min/{operation}/{variant}", math.nan) / floor
                  for variant in ("own", "sd-bus", "sd-bus-daemon", "protobuf", "put_time")]
        if not operation.startswith(("encode/", "decode/")) or not all(map(math.isnan, ratios[1:])):
            columns = " ".join(f"{each:.3f}" for each in ratios)
            points.append(f'{len(points) + 1} "{operation}" {columns}')
    commands = ["$points << END", *points, "END", f'plot = "{plot}"', f'load "{script}"', ""]
    subprocess.run(["gnuplot"], input="\n".join(commands), text=True, check=True)


def print_all(values, directory, plot):
    print_times(values)
    print(LEGEND)
    own, floor = ([values[f"{kind}/round-trip/{variant}"] for kind in ("p99", "per-second")]
                  for variant in ("own", "floor"))
    print(f"round trips in memory: 99 % within {own[0] / 1000:.1f} us on one CPU (floor: "
          f"{floor[0] / 1000:.1f} us); on all CPUs, {own[1]:.0f} per second with 64 in flight "
          f"(floor: {floor[1]:.0f})\n")
    print_targets(values, (directory / "reach").read_text().splitlines())
    draw(values, directory / "plot.gnuplot", plot)
