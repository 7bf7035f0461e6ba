# Reads the values; writes a line for each operation to be drawn, which are those with a floor, but
# neither callbacks that are not overridden nor several threads, and of the many kinds of frames
# those that peers are measured with: row, operation, then the minima of
# own, sd-bus, sd-bus over a daemon, protobuf and std::put_time as multiples of the floor's, "?"
# where there is none.

$1 ~ /^min\// { time[substr($1, 5)] = $2 }
$1 ~ /^min\/.*\/floor$/ && $1 !~ /-unheard\/|-by-/ {
    sub(/^min\//, "", $1)
    sub(/\/floor$/, "", $1)
    order[++rows] = $1
}

END {
    whos = split("own sd-bus sd-bus-daemon protobuf put_time", who)
    for (i = 1; i <= rows; ++i) {
        line = ""
        peers = 0
        for (j = 1; j <= whos; ++j) {
            name = order[i] "/" who[j]
            peers += j > 1 && name in time
            line = line " " (name in time ? sprintf("%.3f", time[name] / time[order[i] "/floor"]) : "?")
        }
        if (peers || order[i] !~ /^(en|de)code\//)
            printf "%d \"%s\"%s\n", ++drawn, order[i], line
    }
}
