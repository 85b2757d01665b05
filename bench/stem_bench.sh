#!/usr/bin/env bash
# Stemming speed: a real English text of more than 1 MB (WordNet's noun
# glosses) stemmed by StripAndStemText with the stem cache off, on and cold
# (a new server process), and on and warm; StemWord called once per word;
# and PostgreSQL's own to_tsvector('english') on the same text for scale.
# Writes bench/results/stemming.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
out=bench/results/stemming.txt
db=stem_bench
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db" 2>/dev/null
export PGDATABASE=$db
psql -X -q -v ON_ERROR_STOP=1 -f bench/bench_seconds.sql
psql -X -q -v ON_ERROR_STOP=1 <<'SQL'
CREATE EXTENSION document;
\i bench/glosses.sql
-- The first glosses, up to 1.3 MB of text.
CREATE TABLE bench_text AS
SELECT string_agg(txt, E'\n' ORDER BY id) AS t
  FROM (SELECT id, txt, sum(length(txt) + 1) OVER (ORDER BY id) AS total FROM glosses) r
 WHERE total <= 1300000;
-- The words of the text, for StemWord per call.
CREATE TABLE bench_words AS
SELECT m[1] AS w FROM bench_text, regexp_matches(t, '[A-Za-z][A-Za-z0-9_]*', 'g') AS m;
SQL

q() { psql -X -q -A -t -c "$1"; }
bytes=$(q "SELECT octet_length(t) FROM bench_text")
words=$(q "SELECT count(*) FROM bench_words")
distinct=$(q "SELECT count(DISTINCT lower(w)) FROM bench_words")
strip="SELECT length(StripAndStemText(t)) FROM bench_text"
# Each line: label, seconds (best of the runs given), in one new process.
run() {  # run LABEL SETUP QUERY REPEATS
    q "$2 SELECT min(bench_seconds('$3')) FROM generate_series(1, $4);" | tail -1
}
off=$(run off "SET document.stem_cache = off;" "$strip" 2)
cold=$(run cold "" "$strip" 1)
warm=$(run warm "SELECT bench_seconds('$strip');" "$strip" 3)
stats=$(q "SELECT bench_seconds('$strip'); SELECT entries || ' entries' FROM dt_StemCacheStats();" | tail -1)
tsv=$(run tsv "" "SELECT length(to_tsvector(''english'', t)) FROM bench_text" 3)
per_off=$(run peroff "SET document.stem_cache = off;" "SELECT count(StemWord(w)) FROM bench_words" 2)
per_on=$(run peron "SELECT count(StemWord(w)) FROM bench_words;" "SELECT count(StemWord(w)) FROM bench_words" 2)

rate() { awk -v w="$words" -v s="$1" 'BEGIN { printf "%10.3f s %12.0f words/s", s, w / s }'; }
{
    echo "Stemming benchmark ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, PostgreSQL $(q 'SHOW server_version'))"
    echo "Text: WordNet noun glosses (/usr/share/wordnet/data.noun), $bytes bytes,"
    echo "      $words words, $distinct distinct (lower case)."
    echo
    echo "StripAndStemText of the whole text (one call, WordNet open once):"
    echo "  cache off                       $(rate "$off")"
    echo "  cache on, cold (new process)    $(rate "$cold")"
    echo "  cache on, warm                  $(rate "$warm")   ($stats)"
    echo
    echo "StemWord once per word (one call per word; the WordNet relations stay open between the calls of a statement):"
    echo "  cache off                       $(rate "$per_off")"
    echo "  cache on, warm                  $(rate "$per_on")"
    echo
    echo "For scale, PostgreSQL's own text search on the same text:"
    echo "  to_tsvector('english', t)       $(rate "$tsv")"
} | tee "$out"
psql -X -q -d postgres -c "DROP DATABASE $db"
