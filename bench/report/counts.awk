# Reads callgrind's dumps. One line for each: whose, operation, instructions of library, host
# platform, allocator and the rest; allocations, releases, and what must not happen: locks, system
# calls, formatted texts. Each counted for one call, of `repetitions`; what happens now and then
# counts as happening.

function named(field,    at)
{
    at = index(field, ")")
    if (length(field) > at)
        names[kind, substr(field, 1, at)] = substr(field, at + 2)
    return names[kind, substr(field, 1, at)]
}

function rounded_up(value)
{
    return value > int(value) ? int(value) + 1 : value
}

function report()
{
    if (who == "")
        return
    printf "%s %s", who, operation
    for (i = 1; i <= columns; ++i)
        printf " %d", i <= 4 ? count[column[i]] / repetitions : rounded_up(count[column[i]] / repetitions)
    print ""
}

BEGIN { columns = split("library host allocator rest allocations releases hindrances", column) }

FNR == 1 { report(); split("", names); split("", count); who = "" }
/^desc: Trigger: Client Request: / { who = $5; operation = $6 }
/^c?ob=/ { kind = "ob"; name = named(substr($0, index($0, "=") + 1)) }
/^ob=/ { object = name }
/^c?fn=/ { kind = "fn"; name = named(substr($0, index($0, "=") + 1)) }
/^fn=/ { caller = name }

/^calls=/ {
    times = substr($1, length("calls=") + 1)
    if (name ~ /^(malloc|calloc|realloc|memalign|aligned_alloc|posix_memalign)$/)
        count["allocations"] += times
    else if (name == "free")
        count["releases"] += times
    else if (name ~ /mutex_(try)?lock|rwlock_|spin_lock|sem_|cond_|pthread_once|__cxa_guard|printf/)
        count["hindrances"] += times
    getline # what the callee costs, which has lines of its own
    next
}

/^[0-9+*-]/ {
    if (object ~ /libchronal-api/)
        part = "library"
    else if (object ~ /libfabric-host/)
        part = "host"
    else if (caller ~ /^_?(int_)?(malloc|calloc|free)|^operator (new|delete)|^_int_|^tcache|^sysmalloc|^unlink_chunk|^checked_request2size/)
        part = "allocator"
    else
        part = "rest"
    count[part] += $2
    count["hindrances"] += $3 # system calls
}

END { report() }
