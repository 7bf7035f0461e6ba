# Helpers for scripts that test programs: start them, wait for their output, and kill the rest at
# the end. They need $case, the name of the running case.
# shellcheck shell=bash

# The caller's environment must not matter; TMPDIR could be too long for the path of a socket.
unset NUB_DEBUG CHRONAL_SOCKET XDG_RUNTIME_DIR
folder=$(mktemp -d /tmp/chronal-XXXXXX)
mkfifo "$folder/nothing"
exec {nothing}<> "$folder/nothing"
declare -A pids=()

clean_up()
{
    local status=$? name
    for name in "${!pids[@]}"; do
        kill -KILL "${pids[$name]}" 2> /dev/null || true
    done
    wait
    [[ $status -eq 0 ]] || tail -n 20 "$folder"/*.out || true
    rm -rf "$folder"
}
trap clean_up EXIT

fail()
{
    echo "${case:?}: $*" >&2
    exit 1
}

# launch NAME COMMAND...: starts the command, which reads NAME.in, if any, and writes NAME.out.
launch()
{
    local output=$folder/$1.out input=$folder/$1.in
    [[ -e $input ]] || input=/dev/null
    : > "$output"
    "${@:2}" < "$input" > "$output" 2>&1 &
    pids[$1]=$!
}

# await NAME PATTERN [COUNT]: waits until COUNT lines of NAME match, at most $bound seconds.
await()
{
    local deadline=$((SECONDS + ${bound-30}))
    until (($(count "$1" "$2") >= ${3-1})); do
        ((SECONDS < deadline)) || fail "waited in vain for $1 to say '$2' ${3-1} times"
        read -rt 0.02 -u "$nothing" || true
    done
}

count()
{
    grep -cE -e "$2" "$folder/$1.out" || true
}

# finish NAME: waits for the end of NAME and returns its exit status.
finish()
{
    local status=0
    wait "${pids[$1]}" || status=$?
    unset "pids[$1]"
    return "$status"
}

# finishes STATUS NAME: waits for the end of NAME and fails on any other status.
finishes()
{
    local status=0
    finish "$2" || status=$?
    ((status == $1)) || fail "$2 ended with $status instead of $1"
}

# stop SIGNAL NAME: sends the signal and finishes NAME.
stop()
{
    kill "-$1" "${pids[$2]}"
    finish "$2"
}
