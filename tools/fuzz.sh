#!/usr/bin/env bash
# Runs the libFuzzer targets (tests/fuzz/*_fuzz.cc) for a while each, two at
# a time, and prints one line per target: executions, coverage, findings.
#
#   tools/fuzz.sh [SECONDS] [NAME...]      (default 60 seconds, every target)
#
# Needs clang (the fuzz section of CMakeLists.txt builds the targets with
# -fsanitize=fuzzer,address,undefined).  Corpora are kept in
# ${DOC_FUZZ_DIR:-/tmp/docfuzz}/NAME, so a later run goes on from them;
# a crash leaves crash-* files there and the log NAME.log.
set -uo pipefail
cd "$(dirname "$0")/.."
BUILD=$(realpath "${BUILD:-build}")
secs=${1:-60}
shift || true
names=("$@")
if [ ${#names[@]} = 0 ]; then
    for f in tests/fuzz/*_fuzz.cc; do names+=("$(basename "$f" .cc)"); done
fi
dir=${DOC_FUZZ_DIR:-/tmp/docfuzz}
mkdir -p "$dir"
cmake --build "$BUILD" --target fuzz >/dev/null || exit 1

pids=()
for n in "${names[@]}"; do
    mkdir -p "$dir/$n"
    (
        cd "$dir/$n"
        "$BUILD/fuzz/$n" -max_total_time="$secs" -max_len=8192 -rss_limit_mb=2048 \
            -timeout=10 -print_final_stats=1 . >"$dir/$n.log" 2>&1
        echo $? >"$dir/$n.rc"
    ) &
    pids+=($!)
    if [ ${#pids[@]} -ge 2 ]; then wait "${pids[0]}"; pids=("${pids[@]:1}"); fi
done
wait
status=0
for n in "${names[@]}"; do
    rc=$(cat "$dir/$n.rc" 2>/dev/null || echo 1)
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/$n.log" | tail -1)
    cov=$(grep -o 'cov: [0-9]*' "$dir/$n.log" | tail -1 | cut -d' ' -f2)
    corpus=$(ls "$dir/$n" | grep -vc '^crash-\|^leak-\|^timeout-\|^oom-')
    found=$(ls "$dir/$n" | grep -c '^crash-\|^leak-\|^timeout-\|^oom-')
    printf '%-18s %4ss  %10s execs  cov %5s  corpus %5s  findings %s\n' "$n" "$secs" "${execs:-?}" "${cov:-?}" "$corpus" "$found"
    [ "$rc" != 0 ] || [ "$found" != 0 ] && status=1
done
exit $status
