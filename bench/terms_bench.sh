#!/usr/bin/env bash
# Term listing speed on documents of very many distinct words: IndexTerms,
# TopNTerms and Occurrences on documents of 200,000 and 1,000,000 distinct
# words, stored (term table in the large object) and external (read and
# stemmed at each call); for scale, PostgreSQL's own word statistics
# (ts_stat over to_tsvector('simple')) of the same text, one row a line, in
# the same run.
# Writes bench/results/terms.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
out=bench/results/terms.txt
db=terms_bench
DOCSQL=$(realpath "${DOC_BUILD:-build}/docsql")
work=$(mktemp -d /tmp/termsbench.XXXXXX)
chmod 755 "$work"
trap 'rm -rf "$work"' EXIT
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db" 2>/dev/null
export PGDATABASE=$db
psql -X -q -v ON_ERROR_STOP=1 -f bench/bench_seconds.sql
psql -X -q -v ON_ERROR_STOP=1 -c "CREATE EXTENSION document" \
    -c "CREATE TABLE docs(n int, kind text, d doc)" -c "CREATE TABLE texts(n int, t text)"
q() { psql -X -q -A -t -c "$1"; }
for n in 200000 1000000; do
    f=$work/words$n.txt
    python3 tools/distinct_words.py $n >"$f"
    chmod 644 "$f"
    "$DOCSQL" -X -q -c "INSERT INTO docs VALUES ($n, 'stored', 'format(ascii):$f')"
    q "INSERT INTO docs VALUES ($n, 'external', 'format(ascii),ExternalFile:$f')"
    q "INSERT INTO texts SELECT $n, l FROM regexp_split_to_table(pg_read_file('$f'), E'\\n') l"
done
best() {  # best QUERY REPEATS: the fastest of the runs, in seconds
    q "SELECT round(min(bench_seconds('$1'))::numeric, 3) FROM generate_series(1, $2)"
}
{
    echo "Term listing benchmark ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, PostgreSQL $(q 'SHOW server_version'))"
    echo "Documents of N distinct words (letters only, 16 words a line); best of 3 runs, seconds."
    echo
    printf '%-44s %12s %12s\n' "" "200,000" "1,000,000"
    for kind in stored external; do
        for f in "IndexTerms(d)" "TopNTerms(d, 10)" "Occurrences(d, ''qa qb qc'')"; do
            a=$(best "SELECT length($f) FROM docs WHERE n = 200000 AND kind = ''$kind''" 3)
            b=$(best "SELECT length($f) FROM docs WHERE n = 1000000 AND kind = ''$kind''" 3)
            printf '%-44s %12s %12s\n' "$(sed "s/''/'/g" <<<"$f"), $kind" "$a" "$b"
        done
    done
    a=$(best "SELECT count(*) FROM ts_stat(''SELECT to_tsvector(''''simple'''', t) FROM texts WHERE n = 200000'')" 3)
    b=$(best "SELECT count(*) FROM ts_stat(''SELECT to_tsvector(''''simple'''', t) FROM texts WHERE n = 1000000'')" 3)
    printf '%-44s %12s %12s\n' "PostgreSQL ts_stat(to_tsvector('simple'))" "$a" "$b"
    echo
    echo "Stored documents read their term table; external ones are read and stemmed"
    echo "(WordNet) at each call.  Before the O(n log n) sort, IndexTerms of 200,000"
    echo "distinct words took 46 s and 1,000,000 over 9 minutes."
} | tee "$out"
psql -X -q -d postgres -c "DROP DATABASE $db"
