# Reads the values. One row for each operation, and one more for each peer after the first.

function cell(value)
{
    return value == "" ? sprintf("%9s", "") : sprintf(value < 1000 ? "%9.1f" : "%9.0f", value)
}

function ratio(a, b)
{
    return a == "" || b == "" ? sprintf("%7s", "") : sprintf(a / b < 100 ? "%7.2f" : "%7.0f", a / b)
}

function pair(operation, who)
{
    return cell(time["min", operation, who]) cell(time["median", operation, who])
}

function ratios(operation, who, other)
{
    return ratio(time["min", operation, who], time["min", operation, other]) \
        ratio(time["median", operation, who], time["median", operation, other])
}

$1 ~ /^(min|median)\// {
    parts = split($1, part, "/")
    operation = part[2]
    for (i = 3; i < parts; ++i)
        operation = operation "/" part[i]
    who = part[parts]
    time[part[1], operation, who] = $2
    if (!(operation in known)) {
        known[operation] = 1
        order[++operations] = operation
    }
    if (part[1] == "min" && who != "own" && who != "floor")
        peers[operation] = peers[operation] " " who
}

END {
    printf "%-30s%18s%18s%14s  %-14s%18s%14s\n", "nanoseconds", "own", "floor", "own/floor",
        "peer", "", "peer/own"
    printf "%-30s%9s%9s%9s%9s%7s%7s  %-14s%9s%9s%7s%7s\n", "", "min", "median", "min", "median",
        "min", "median", "", "min", "median", "min", "median"
    for (i = 1; i <= operations; ++i) {
        operation = order[i]
        line = sprintf("%-30s", operation) pair(operation, "own") pair(operation, "floor") \
            ratios(operation, "own", "floor")
        count = split(peers[operation], peer, " ")
        for (j = 1; j <= count; ++j) {
            printf "%-80s  %-14s%s%s\n", line, peer[j], pair(operation, peer[j]),
                ratios(operation, peer[j], "own")
            line = ""
        }
        if (count == 0) {
            sub(/ +$/, "", line)
            print line
        }
    }
}
