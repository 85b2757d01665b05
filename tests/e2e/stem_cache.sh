#!/usr/bin/env bash
# The per-process stem cache across sessions: a change of the WordNet tables
# committed by one session reaches another session's next stemming call,
# while a snapshot that does not see the change keeps the old stems.
set -euo pipefail
psql -X -q -c "CREATE EXTENSION document"

# Session A: one long-lived psql, so one server process and one cache.
coproc A { psql -X -q -A -t 2>&1; }
ask() {
    printf '%s\n\\echo __END__\n' "$1" >&"${A[1]}"
    local line out=""
    while IFS= read -r line <&"${A[0]}"; do
        [ "$line" = "__END__" ] && break
        [ -n "$line" ] && out=$line
    done
    printf '%s' "$out"
}
fails=0
check() {  # check WHAT GOT WANT
    if [ "$2" = "$3" ]; then echo "ok   $1: $2"; else echo "FAIL $1: got '$2', want '$3'"; fails=$((fails + 1)); fi
}
B() { psql -X -q -A -t -c "$1"; }

check "A stems boxes" "$(ask "SELECT StemWord('boxes');")" "box"
check "A stems boxes again (cached)" "$(ask "SELECT StemWord('boxes');")" "box"
check "A's cache was used" "$(ask "SELECT hits > 0 FROM dt_StemCacheStats();")" "t"
B "INSERT INTO wordnet_excl VALUES ('boxes', 'boxing')"
check "A sees B's committed change" "$(ask "SELECT StemWord('boxes');")" "boxing"

# A repeatable-read transaction keeps its snapshot's stems.
ask "BEGIN ISOLATION LEVEL REPEATABLE READ;" >/dev/null
check "A in a snapshot" "$(ask "SELECT StemWord('boxes');")" "boxing"
B "DELETE FROM wordnet_excl WHERE inflected = 'boxes' AND base = 'boxing'"
check "A's snapshot does not see B's delete" "$(ask "SELECT StripAndStemText('boxes');")" "boxing"
ask "COMMIT;" >/dev/null
check "A after its snapshot" "$(ask "SELECT StemWord('boxes');")" "box"

# A base form removed and put back by B.
B "DELETE FROM wordnet_stems WHERE stem = 'church'"
check "A without church" "$(ask "SELECT StemWord('churches');")" "churches"
B "INSERT INTO wordnet_stems VALUES ('church')"
check "A with church again" "$(ask "SELECT StemWord('churches');")" "church"

# TRUNCATE and reload of the exception table.
B "CREATE TEMP TABLE keep AS SELECT * FROM wordnet_excl; TRUNCATE wordnet_excl; INSERT INTO wordnet_excl SELECT * FROM keep"
check "A after truncate and reload" "$(ask "SELECT StemWord('mice');")" "mouse"
B "TRUNCATE wordnet_excl"
check "A after truncate" "$(ask "SELECT StemWord('mice');")" "mice"

printf '\\q\n' >&"${A[1]}"
wait "${A_PID:-}" 2>/dev/null || true  # the coproc may be gone already
echo "$fails failures"
[ "$fails" = 0 ]
