#!/usr/bin/env bash
# Insert throughput: 100 real text files entered as documents from the
# client side through docsql (client file pull, scan with stop words and
# WordNet stems, large object with text and term table, ownership trigger).
# Runs under tools/pgserver.sh (bench/run.sh); writes bench/results/insert.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
DOCSQL=$(realpath "${DOC_BUILD:-build}/docsql")
source bench/best_load.bash
work=$(mktemp -d /tmp/docbench.XXXXXX)
chmod 755 "$work"
trap 'rm -rf "$work"' EXIT

# A manual page as a reader sees it; its source when man is missing.
manpage() { MANPAGER=cat MANWIDTH=80 man -l "$1" 2>/dev/null | col -b | grep . || zcat "$1"; }
# The corpus: licences, package copyright files and manual pages, as text.
n=0
add() { # add FILE-CONTENT-COMMAND...
    n=$((n + 1)); "$@" >"$work/doc$n.txt" 2>/dev/null || true
    if [ ! -s "$work/doc$n.txt" ]; then rm -f "$work/doc$n.txt"; n=$((n - 1)); fi
}
for f in /usr/share/common-licenses/*; do [ -f "$f" ] && [ $n -lt 100 ] && add cat "$f"; done
for f in /usr/share/man/man1/*.1.gz /usr/share/man/man8/*.8.gz; do
    [ $n -ge 60 ] && break; [ -f "$f" ] && add manpage "$f"
done
for f in /usr/share/doc/*/copyright; do [ $n -ge 100 ] && break; [ -f "$f" ] && add cat "$f"; done
if [ $n -lt 100 ]; then echo "only $n text files found" >&2; exit 1; fi
bytes=$(cat "$work"/doc*.txt | wc -c)

psql -X -q -c "CREATE EXTENSION IF NOT EXISTS document"
"$DOCSQL" -X -q -c "SET client_min_messages = warning" -c "DROP TABLE IF EXISTS bench_docs" \
    -c "CREATE TABLE bench_docs(id int, body doc)" \
    -c "CREATE TRIGGER bench_docs_lo AFTER INSERT OR UPDATE OR DELETE ON bench_docs FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
{ echo "BEGIN;"; for i in $(seq 1 100); do echo "INSERT INTO bench_docs VALUES ($i, 'format(ascii):$work/doc$i.txt');"; done; echo "COMMIT;"; } >"$work/load.sql"

best_load bench_docs "$work/load.sql"

best=$BEST

runs=$RUNS
stats=$("$DOCSQL" -X -qtA -F' ' -c "SELECT count(*), count(dt_LOOid(body)), sum(DocWordCnt(body)) FROM bench_docs")
docs_s=$(awk -v b="$best" 'BEGIN { print 100 / b }')
mb_s=$(awk -v n="$bytes" -v b="$best" 'BEGIN { print n / 1048576 / b }')
mkdir -p bench/results
{
    echo "Insert throughput through docsql: 100 real text files in one transaction"
    echo "(pull from the client, scan with stop words and WordNet stems, large object with"
    echo " text and term table, ownership trigger); best of 3 runs on a private server."
    echo "machine: $(nproc) cores, $(uname -r)"
    echo "documents: 100, $bytes bytes ($(awk -v n="$bytes" 'BEGIN { printf "%.2f", n / 1048576 }') MB)"
    echo "stored: rows, large objects, term occurrences: $stats"
    echo "runs (s):$runs"
    printf 'best: %.3f s  %.1f documents/s  %.2f MB/s\n' "$best" "$docs_s" "$mb_s"
} | tee bench/results/insert.txt
"$DOCSQL" -X -q -c "DROP TABLE bench_docs"
