# Reads the values, then bench/reach: each of its lines beside what was measured.

function shown(value)
{
    return sprintf(value == int(value) ? "%d" : "%.2f", value)
}

# By how much, of the limit.
function missed(value, limit,    by)
{
    by = value > limit ? value - limit : limit - value
    return "missed by " (limit == 0 ? shown(by) : sprintf("%.1f %%", 100 * by / limit))
}

BEGIN {
    said["at-most"] = "at most"
    said["at-least"] = "at least"
    said["exactly"] = "exactly"
}

FILENAME == "-" { value[$1] = $2; next }
/^#/ || NF == 0 { next }
$1 == "because" {
    sub(/^because +/, "    ")
    if (missing)
        print
    next
}
!header++ { printf "%-70s%19s %10s\n", "reach", "limit", "measured" }

{
    relation = $1; limit = $2; name = $3; per = $4
    for (i = 1; i <= 4; ++i)
        sub(/^[^ ]+ +/, "")
    printf "%-70s%9s %9s", $0, said[relation], shown(limit)
    if (!(name in value) || (per != 1 && !(per in value))) {
        printf " %10s  not measured\n", "-"
        missing = 0
        next
    }
    is = value[name] / (per == 1 ? 1 : value[per])
    reached = relation == "at-most" ? is <= limit : relation == "at-least" ? is >= limit : is == limit
    missing = !reached
    printf " %10s  %s\n", shown(is), reached ? "reached" : missed(is, limit)
}
