#!/usr/bin/env bash
# Bulk loading of 1,000 man pages: docsql's \load (each page pulled from the
# client, scanned, stemmed and stored as a document) against the server
# reading the same files with pg_read_file and storing to_tsvector beside
# the text, on the same server in the same run.  Figures to
# bench/results/load.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
DOCSQL=$(realpath "${DOC_BUILD:-build}/docsql")
dir=$(mktemp -d /tmp/docload.XXXXXX)
chmod 755 "$dir"
trap 'rm -rf "$dir"' EXIT
for f in $(find /usr/share/man -name '*.gz' -size +1k 2>/dev/null | sort | head -1000); do
    zcat "$f" >"$dir/$(echo "$f" | tr / _ | sed 's/\.gz$//')" 2>/dev/null || true
done
chmod 644 "$dir"/*
n=$(ls "$dir" | wc -l)
mb=$(du -sb "$dir" | awk '{printf "%.2f", $1 / 1048576}')
createdb loadbench 2>/dev/null || true
export PGDATABASE=loadbench
psql -X -q -c "CREATE EXTENSION IF NOT EXISTS document" -c "DROP TABLE IF EXISTS pages, tpages" \
     -c "CREATE TABLE pages (id serial, body doc)" -c "CREATE TABLE tpages (id serial, txt text, tsv tsvector)"
t0=$(date +%s.%N)
"$DOCSQL" -X --no-progress -c "\\load pages body $dir" >/dev/null
t1=$(date +%s.%N)
psql -X -q -c "INSERT INTO tpages (txt, tsv) SELECT t, to_tsvector('english', t)
               FROM (SELECT convert_from(pg_read_binary_file('$dir/' || f), 'UTF8') AS t
                     FROM pg_ls_dir('$dir') f ORDER BY f) s"
t2=$(date +%s.%N)
loaded=$(psql -X -qtA -c "SELECT count(*) FROM pages")
out=bench/results/load.txt
mkdir -p bench/results
{
    echo "== $(date -u +%Y-%m-%dT%H:%MZ) bulk load of $n man pages ($mb MB), $(git rev-parse --short HEAD 2>/dev/null)"
    awk -v a="$t0" -v b="$t1" -v c="$t2" -v n="$n" -v mb="$mb" -v l="$loaded" 'BEGIN {
        d = b - a; p = c - b;
        printf "docsql \\load:                   %6.2f s  %6.0f files/s  %5.2f MB/s  (%d loaded)\n", d, n / d, mb / d, l;
        printf "pg_read_file + to_tsvector:      %6.2f s  %6.0f files/s  %5.2f MB/s\n", p, n / p, mb / p;
        printf "ratio (\\load / server-side):     %6.2f\n", d / p }'
} | tee -a "$out"
