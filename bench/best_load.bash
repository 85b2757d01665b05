# Sourced by the load benchmarks.  best_load TABLE FILE runs FILE through
# docsql ($DOCSQL) three times, each after TRUNCATE TABLE, and sets BEST to
# the fastest run's wall seconds and RUNS to all three (" 0.123 ...").
best_load() {
    local run start end t
    BEST=""
    RUNS=""
    for run in 1 2 3; do
        "$DOCSQL" -X -q -c "TRUNCATE $1" >/dev/null
        start=$(date +%s.%N)
        "$DOCSQL" -X -q -f "$2"
        end=$(date +%s.%N)
        t=$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')
        RUNS="$RUNS $(printf '%.3f' "$t")"
        if [ -z "$BEST" ] || awk -v t="$t" -v b="$BEST" 'BEGIN { exit !(t < b) }'; then BEST=$t; fi
    done
}
