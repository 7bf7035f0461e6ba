# Reads what bench/growth has printed, "points=FILE" and callgrind's dumps. A row for each case: per
# message (of texts: per byte), the instructions and the least processor time of all runs, and what
# both have grown to, as a multiple of the least of the smaller cases. Writes the points of the plot:
# kind, number, both as a multiple of the smallest case.

function grown(cost, i, first,    j, least)
{
    least = cost[first]
    for (j = first; j < i; ++j)
        least = cost[j] < least ? cost[j] : least
    return cost[i] / least
}

/^desc: Trigger: Client Request: / { key = $5 " " $6; units = $7; next }
/^totals: / { instructions[row[key]] = $2 / units; next }
NF == 4 && /^[a-z]+ / {
    key = $1 " " $2
    if (!(key in row)) {
        row[key] = ++rows
        kind[rows] = $1
        number[rows] = $2
    }
    i = row[key]
    if (!(i in time) || $4 / $3 < time[i])
        time[i] = $4 / $3
}

END {
    printf "%-12s %8s %14s %8s %14s %8s\n", "", "number", "instructions", "growth", "nanoseconds", "growth"
    for (i = 1; i <= rows; ++i) {
        first = kind[i] == kind[i - 1] ? first : i
        more = grown(instructions, i, first)
        printf "%-12s %8d %14.1f %8.2f %14.1f %8.2f\n", kind[i], number[i], instructions[i], more,
            time[i], grown(time, i, first)
        printf "%s %d %.3f %.3f\n", kind[i], number[i] ? number[i] : 1,
            instructions[i] / instructions[first], time[i] / time[first] > points
        most = i == first || more > most ? more : most
        if (kind[i + 1] != kind[i]) {
            printf "%-12s at most %.2f times the instructions of a smaller case: %.2f  %s\n", "", limit,
                most, most <= limit ? "reached" : "missed"
            if (i < rows)
                printf "\n" > points
            if (i < rows)
                printf "\n" > points
        }
    }
    exit rows == 0
}
