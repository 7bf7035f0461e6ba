# For the scripts that test processes: starts them, waits for what they say, and leaves none behind.
# Needs $case, the name of the case that runs.
# shellcheck shell=bash

# In the environment, and in a long path of folders for what is temporary, there may be anything.
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

# launch NAME COMMAND...: reads NAME.in, if that is there, and writes NAME.out.
launch()
{
    local output=$folder/$1.out input=$folder/$1.in
    [[ -e $input ]] || input=/dev/null
    : > "$output"
    "${@:2}" < "$input" > "$output" 2>&1 &
    pids[$1]=$!
}

# await NAME PATTERN [COUNT]: until so many lines of NAME match, for $bound seconds at most.
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

# finish NAME: waits for its end and gives its exit status.
finish()
{
    local status=0
    wait "${pids[$1]}" || status=$?
    unset "pids[$1]"
    return "$status"
}

# finishes STATUS NAME: waits for its end, which has that status.
finishes()
{
    local status=0
    finish "$2" || status=$?
    ((status == $1)) || fail "$2 ended with $status instead of $1"
}

# stop SIGNAL NAME
stop()
{
    kill "-$1" "${pids[$2]}"
    finish "$2"
}
