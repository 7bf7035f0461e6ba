# Reads the budget, then the counts: a row for each operation, with where its instructions are
# spent. Fails when one is above its budget, when one has no budget, and when a budget has none.

FILENAME != "-" { if (!/^#/) limit[$1] = $2; next }
{ total[$1, $2] = $3 + $4 + $5 + $6 }
$1 == "own" { order[++count] = $2; parts[$2] = sprintf("%8d %8d %9d %6d", $3, $4, $5, $6) }

END {
    printf "%-28s %8s %8s %9s %6s %6s %6s %6s %6s\n", "instructions", "library", "host",
        "allocator", "rest", "total", "floor", "ratio", "budget"
    for (i = 1; i <= count; ++i) {
        name = order[i]
        own = total["own", name]
        floor = ratio = "-"
        if (("floor", name) in total) {
            floor = total["floor", name]
            ratio = sprintf("%.2f", own / floor)
        }
        most = name in limit ? limit[name] : "-"
        over = most == "-" || own > most + 0
        worst = worst || over
        printf "%-28s %s %6d %6s %6s %6s%s\n", name, parts[name], own, floor, ratio, most,
            over ? "  above the budget" : ""
    }
    for (name in limit)
        if (!(("own", name) in total)) {
            print name ": in the budget, but not counted"
            worst = 1
        }
    exit worst || count == 0
}
