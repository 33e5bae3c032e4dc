#!/usr/bin/env bash
# Copies in many ways from volumes of a spread of geometries, under valgrind: no byte that was never set may decide
# anything or reach an output. Shows what valgrind complains of, and fails. Usage: scripts/valgrind.sh
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=lib/setup.sh
source "$(dirname "$0")/lib/setup.sh"

quarry_need build valgrind
quarry_build valgrind quarry
program=$QUARRY_ROOT/build/valgrind/src/quarry
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT
cd "$work"
runs=0 failed=0 running=()
# One more than there are cores: they are waited for in turn.
jobs=$(($(nproc) + 1))

fail() { printf 'FAILED: %s\n' "$*" >&2; exit 1; }

# run NUMBER STATUS ARGUMENTS...: in a directory of its own. Valgrind must have nothing to say (a status of 77 is its
# own), and the program must end as it does without it. A complaint is looked at again for where the bytes come from.
run() {
    local number=$1 expected=$2 status=0
    local watched=(valgrind --quiet --suppressions="$QUARRY_ROOT/scripts/valgrind.supp" --error-exitcode=77)
    shift 2
    mkdir -p "$work/$number/out" && cd "$work/$number" || return 1
    "${watched[@]}" --log-file=complaints "$program" "$@" >messages 2>&1 || status=$?
    if [ "$status" = 77 ] || [ -s complaints ]; then
        rm -rf out && mkdir out
        local again=0
        "${watched[@]}" --track-origins=yes "$program" "$@" >messages 2>&1 || again=$?
        {
            printf 'valgrind complains (status %s, then %s): quarry %s\n' "$status" "$again" "$*"
            cat complaints messages
        } >&2
        return 1
    fi
    if [ "$status" != "$expected" ]; then
        { printf 'status %s, not %s: quarry %s\n' "$status" "$expected" "$*"; cat messages; } >&2
        return 1
    fi
    touch clean
    rm -rf out
}

# copy STATUS ARGUMENTS...: what is written is looked at as it is written, since valgrind knows of each byte whether it
# was ever set.
copy() {
    [ ${#running[@]} -lt "$jobs" ] || wait_for_first
    runs=$((runs + 1))
    run "$runs" "$@" <&0 &
    running+=($!)
}
wait_for_first() {
    wait "${running[0]}" || failed=$((failed + 1))
    running=("${running[@]:1}")
}

quarry_say "a planted fault"
# faulty STATEMENT COMPLAINT: a program with this statement is found faulty, and for this reason.
faulty() {
    printf '#include <unistd.h>\nint main() { char* bytes = new char[16]; %s }\n' "$1" >planted.cpp
    g++ -O0 -w planted.cpp -o planted
    if (program=$work/planted run faulty 0) 2>planted.log; then fail "valgrind did not complain of: $1"; fi
    grep -q "$2" planted.log || { cat planted.log >&2; fail "valgrind complained of something else"; }
}
faulty 'return write(1, bytes, 16) == 16 ? 0 : 1;' 'Syscall param write(buf) points to uninitialised byte'
faulty 'return bytes[3] == 4 ? 0 : 0 * write(1, "", 0);' 'Conditional jump or move depends on uninitialised value'
echo "found"

quarry_say "the sample disk"
disk=$work/disk.img
xz -dc "$QUARRY_ROOT/samples/disk.img.xz" >"$disk"
sample=(-image "$disk" -offset 0x100000)
for path in /Documents/letter.txt:draft /Pictures/terraces.png /Shortcut/letter.txt '/archive/second name.txt' \
    /packed/bench.log /fragments-a.bin '/Ünïcödé/石切り場.txt'; do
    copy 0 "${sample[@]}" -src "$path" -dst out/copy -meta
    copy 0 -exact "${sample[@]}" -letter C -src "$path" -dst out/copy
done
for mode in -raw -skip_sparse_clusters -md5; do
    copy 0 "${sample[@]}" -src /sparse.bin -dst out/mode -meta -diags log "$mode"
done
for mode in -raw -sparse -md5; do
    copy 0 -exact "${sample[@]}" -src /sparse.bin -dst out/mode -diags log "$mode"
done
copy 0 "${sample[@]}" -cluster 0 20 -dst out/clusters -meta
copy 0 -exact "${sample[@]}" -cluster 0 20 -dst out/clusters
copy 0 -exact -image "$disk" -volumes
copy 255 "${sample[@]}" -src /none -dst out/none
copy 1 -exact "${sample[@]}" -src /none -dst out/none
printf '%s\n' /readme.txt /none /Documents/letter.txt >list
copy 0 "${sample[@]}" -pipe -dst out/ -diags log <list

quarry_say "geometries"
# Sectors and clusters in bytes: a stream, a directory, the same stream strictly; then from a source that is cut short.
for geometry in '512 512' '512 4096' '512 65536' '1024 2048' '2048 4096' '4096 65536'; do
    read -r sector cluster <<<"$geometry"
    volume=$work/volume-$sector-$cluster
    truncate -s 24M "$volume"
    mkntfs --quiet --force --fast --sector-size "$sector" --cluster-size "$cluster" \
        --partition-start 0 --heads 16 --sectors-per-track 63 "$volume" >mkntfs.log 2>&1 || { cat mkntfs.log; exit 1; }
    head -c 5M "$volume" >"$volume-cut"
    # shellcheck disable=SC2016  # names of NTFS
    stream='/$Secure:$SDS' table='/$MFT'
    copy 0 -image "$volume" -src "$stream" -dst out/sds -meta
    copy 0 -exact -image "$volume" -src "$stream" -dst out/sds
    copy 0 -image "$volume-cut" -src "$table" -dst out/mft -meta
done
while [ ${#running[@]} -gt 0 ]; do wait_for_first; done
clean=$(find "$work" -name clean | wc -l)
[ "$failed" = 0 ] || fail "$failed of $runs runs were not clean"
[ "$clean" = "$runs" ] || fail "only $clean of $runs runs were clean"
quarry_say "$runs runs, and valgrind had nothing to say"
