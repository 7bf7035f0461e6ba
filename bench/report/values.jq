# Everything measured, as lines of a name and a number. Times are in nanoseconds.

def median: sort | if length % 2 == 1 then .[length / 2 | floor]
  else (.[length / 2 - 1] + .[length / 2]) / 2 end;

# OPERATION/WHO, as the benchmarks are named, without what Google Benchmark appends.
def name: .run_name | sub("/real_time.*"; "");

# Time that other programs had the CPU does not count, but where several threads share the work.
def nanoseconds: if .run_name | test("/real_time") then .real_time else .cpu_time end;

def times: [.benchmarks[] | select(.run_type == "iteration")] | group_by(.family_index)[]
  | (.[0] | name) as $name | map(nanoseconds)
  | "min/\($name) \(min)", "median/\($name) \(median)";

def round_trip($who): "min/round-trip/\($who) \(.best_median_ns)",
  "median/round-trip/\($who) \(.median_ns)", "p99/round-trip/\($who) \(.p99_ns)",
  "of-floor/round-trip/\($who) \(.of_floor)";

def under_way($who): "per-second/round-trip/\($who) \(.per_second)";

(.times | times),
(.round_trip | (.memory | round_trip("own")), (.threads | round_trip("floor"))),
(.round_trip.socket.of_floor | "of-floor/socket/one-cpu \(.)"),
(.under_way.socket.of_floor | "of-floor/socket/all-cpus \(.)"),
(.under_way | (.memory | under_way("own")), (.threads | under_way("floor"))),
"flooded/p99 \(.fairness.p99_ratio)",
(.round_trips | times),
(.counts as $counts | def total: .library + .host + .allocator + .rest;
  ($counts[] | select(.operation == "decode/nothing") | total) as $nothing
  | $counts[] | select(.operation == "decode/ref-time-data" and .who == "own")
  | "record/decode/ref-time-data/own \(total - $nothing)"),
(.counts[] | "\(.operation)/\(.who)" as $name
  | "instructions/\($name) \(.library + .host + .allocator + .rest)",
    "unallocated/\($name) \(.library + .host + .rest)",
    (del(.operation, .who) | to_entries[] | "\(.key)/\($name) \(.value)")),
(.arm_text // {} | to_entries[] | "arm-text/\(.key) \(.value)")
