#!/usr/bin/env bash
# Contains on every row without an index, against PostgreSQL's own text
# search computed on the fly over the same texts.
#
# Documents: the WordNet noun glosses (/usr/share/wordnet/data.noun), one
# document per gloss, entered through docsql from client files (the real
# input path: pulled, scanned, stored).  Table gdocs keeps all of them in
# the row (ExpandLimit(2048)), so Contains reads and stems each text;
# table gdocs_default holds the first 10,000 with the default limit (texts
# over 100 bytes go to a large object with a stored term table).  The texts
# are kept beside the documents for to_tsvector.
#
# Each figure is the best of three runs of SELECT count(*), in one process
# with warm caches, parallel query off for both sides.
# Writes bench/results/contains.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
out=bench/results/contains.txt
db=contains_bench
DOCSQL=$(realpath "${DOC_BUILD:-build}/docsql")
files=$(mktemp -d /tmp/contains_bench.XXXXXX)
trap 'rm -rf "$files"' EXIT
chmod 755 "$files"
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db" 2>/dev/null
export PGDATABASE=$db
# to_tsquery says when a query holds only stop words; keep that out of the figures.
export PGOPTIONS="-c client_min_messages=warning"
psql -X -q -v ON_ERROR_STOP=1 -f bench/bench_seconds.sql
psql -X -q -v ON_ERROR_STOP=1 <<'SQL'
CREATE EXTENSION document;
\i bench/glosses.sql
SQL

# One client file per gloss, ending in a newline.
psql -X -q -c "\\copy (SELECT id, txt FROM glosses) TO '$files/all.tsv'"
python3 - "$files" <<'PY'
import sys
d = sys.argv[1]
for line in open(f"{d}/all.tsv", encoding="utf-8", errors="replace"):
    i, t = line.rstrip("\n").split("\t", 1)
    with open(f"{d}/{i}.txt", "w") as f:
        f.write(t.replace("\\\\", "\\") + "\n")
PY
rm "$files/all.tsv"
chmod -R a+rX "$files"
n=$(psql -X -q -A -t -c "SELECT count(*) FROM glosses")

t0=$(date +%s.%N)
"$DOCSQL" -X -q -c "CREATE TABLE gdocs AS SELECT id, txt, NULL::doc AS body FROM glosses WITH NO DATA" \
    -c "INSERT INTO gdocs SELECT id, txt, ('format(ascii),ExpandLimit(2048):$files/' || id || '.txt')::doc FROM glosses"
t1=$(date +%s.%N)
"$DOCSQL" -X -q -c "CREATE TABLE gdocs_default AS SELECT id, txt, NULL::doc AS body FROM glosses WITH NO DATA" \
    -c "INSERT INTO gdocs_default SELECT id, txt, ('format(ascii):$files/' || id || '.txt')::doc FROM glosses WHERE id <= 10000"
t2=$(date +%s.%N)
psql -X -q -c "VACUUM ANALYZE gdocs" -c "VACUUM ANALYZE gdocs_default"
in_row=$(psql -X -q -A -t -c "SELECT count(*) FROM gdocs WHERE body::text NOT LIKE '%handle(%'")
lo=$(psql -X -q -A -t -c "SELECT count(*) FROM gdocs_default WHERE body::text LIKE '%handle(%'")

# Each line: our query | the same query for to_tsquery.
queries='dog|dog
animal and !plant|animal & !plant
water or river or sea|water | river | sea
(person or people) and (city or town) and !war|(person | people) & (city | town) & !war
music and instrument|music & instrument
!(the or a)|!(the | a)'

calc() { awk "BEGIN { print $1 }"; }
best() {  # best of three runs of a query, in seconds
    psql -X -q -A -t -c "SET max_parallel_workers_per_gather = 0" \
        -c "SELECT count(*) FROM ($2) s" \
        -c "SELECT min(bench_seconds(\$q\$$2\$q\$)) FROM generate_series(1, 3)" | tail -1
}
{
    echo "Contains benchmark ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, PostgreSQL $(psql -X -A -t -c 'SHOW server_version'))"
    echo "Documents: $n WordNet noun glosses, one document each, entered through docsql"
    printf "  loading: %.1f s for %d in-row documents (ExpandLimit(2048)), %.1f s for 10000 with the default limit\n" \
        "$(calc "$t1 - $t0")" "$in_row" "$(calc "$t2 - $t1")"
    echo "  gdocs: $in_row documents in the row (read and stemmed by every Contains)"
    echo "  gdocs_default: 10000 documents, $lo of them in large objects with a stored term table"
    echo "Sequential scans, best of 3, parallel query off.  to_tsvector('english', txt) @@ to_tsquery('english', ...)"
    echo "is computed on the fly over the same texts."
    echo
    for table in gdocs gdocs_default; do
        echo "table $table:"
        printf "  %-48s %7s %10s %10s %8s\n" "query" "hits" "Contains" "tsearch" "ratio"
        while IFS= read -r line; do
            ours=${line%%|*}
            theirs=${line#*|}
            hits=$(psql -X -q -A -t -c "SELECT count(*) FROM $table WHERE Contains(body, '$ours')")
            tshits=$(psql -X -q -A -t -c "SELECT count(*) FROM $table WHERE to_tsvector('english', txt) @@ to_tsquery('english', '$theirs')")
            a=$(best x "SELECT count(*) FROM $table WHERE Contains(body, '$ours')")
            b=$(best x "SELECT count(*) FROM $table WHERE to_tsvector('english', txt) @@ to_tsquery('english', '$theirs')")
            printf "  %-48s %7d %8.1f ms %7.1f ms %7.2fx   (tsearch hits %d)\n" "$ours" "$hits" \
                "$(calc "$a * 1000")" "$(calc "$b * 1000")" "$(calc "$a / $b")" "$tshits"
        done <<<"$queries"
        echo
    done
    echo "ratio = Contains time / tsearch time (below 1: Contains is faster)."
    echo "Hit counts differ where the analyses differ: WordNet base forms and the"
    echo "stop-word list here, the Snowball stemmer and its stop words there."
} | tee "$out"
psql -X -q -d postgres -c "DROP DATABASE $db"
