#!/usr/bin/env bash
# The dtree index against GIN and RUM at a million documents.
#
# Corpus: 1,000,000 documents drawn with repetition from the glosses of all
# four WordNet data files (nouns, verbs, adjectives, adverbs: real text,
# real word frequencies); row i holds gloss (i * 7919 mod G) + 1 of the G
# glosses, so each gloss comes back about 8 times, scattered over the
# table.  The documents are server files (ExternalFile), so the dtree
# build reads and stems every text; the texts are kept beside them for
# to_tsvector.  One run of each build (they take minutes); sizes are
# pg_relation_size.  maintenance_work_mem is the server's default, so the
# dtree build sorts through the external sort.
#   DTREE_BENCH_DOCS  documents (default 1000000)
# Writes bench/results/dtree_million.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
out=bench/results/dtree_million.txt
db=dtree_million
N=${DTREE_BENCH_DOCS:-1000000}
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
G=${DOC_SERVER_DIR:-/tmp}/million_glosses
trap 'rm -rf "$G"' EXIT
share=$("$PGBIN/pg_config" --sharedir)/extension
lib=$("$PGBIN/pg_config" --pkglibdir)
if [ ! -f "$share/rum.control" ]; then
    if ! dpkg-query -W -f='${Status}' postgresql-15-rum 2>/dev/null | grep -q 'install ok installed'; then
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq postgresql-15-rum >/dev/null
    fi
    cp /usr/share/postgresql/15/extension/rum* "$share/"
    cp /usr/lib/postgresql/15/lib/rum.so "$lib/"
fi
mkdir -p "$G"
python3 - "$G" <<'PY'
import sys
d = sys.argv[1]
i = 0
with open(f"{d}/all.tsv", "w") as tsv:
    for pos in ("noun", "verb", "adj", "adv"):
        for line in open(f"/usr/share/wordnet/data.{pos}", encoding="latin-1"):
            if line.startswith(" ") or " | " not in line:
                continue
            t = line.rstrip("\n").split(" | ", 1)[1].strip()
            if not t:
                continue
            i += 1
            with open(f"{d}/{i}.txt", "w") as f:
                f.write(t + "\n")
            tsv.write(f"{i}\t" + t.replace("\\", "\\\\") + "\n")
PY
chmod -R a+rX "$G"
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db" 2>/dev/null
export PGDATABASE=$db
export PGOPTIONS="-c client_min_messages=warning"
psql -X -q -v ON_ERROR_STOP=1 -f bench/bench_seconds.sql
psql -X -q -v ON_ERROR_STOP=1 <<SQL
CREATE EXTENSION document;
CREATE EXTENSION rum;
CREATE TABLE g (gid int, txt text);
\\copy g FROM '$G/all.tsv'
CREATE TABLE m AS
SELECT i AS id, g.txt, ('format(ascii),ExternalFile:$G/' || g.gid || '.txt')::doc AS body
  FROM generate_series(1, $N) i JOIN g ON g.gid = (i::bigint * 7919) % (SELECT count(*) FROM g) + 1;
VACUUM ANALYZE m;
CHECKPOINT;
SQL
ng=$(psql -X -q -A -t -c "SELECT count(*) FROM g")
s() { psql -X -q -A -t -c "SET max_parallel_maintenance_workers = 0" -c "SELECT bench_seconds(\$q\$$1\$q\$)" | tail -1; }
calc() { awk "BEGIN { print $1 }"; }
dt=$(s "CREATE INDEX m_dt ON m USING dtree (body)")
gcol=$(s "ALTER TABLE m ADD COLUMN tsv tsvector GENERATED ALWAYS AS (to_tsvector('english', txt)) STORED")
gidx=$(s "CREATE INDEX m_gin ON m USING gin (tsv)")
rum=$(s "CREATE INDEX m_rum ON m USING rum (tsv rum_tsvector_ops)")
# Adding the stored column rewrote the table without its visibility map;
# VACUUM sets it again (as autovacuum would) before any search, for all
# three indexes alike.
psql -X -q -c "VACUUM ANALYZE m"
size() { psql -X -q -A -t -c "SELECT pg_relation_size('$1')"; }
dts=$(size m_dt); gins=$(size m_gin); rums=$(size m_rum)
stats=$(psql -X -q -A -t -F ' ' -c "SELECT distinct_terms, postings, documents, internal_pages, leaf_pages, posting_pages FROM dt_IndexStats('m_dt')")
meta=$(psql -X -q -A -t -c "SELECT ReadMetaTerms('m_dt')")
ck=$(s "SELECT dt_CheckIndex('m_dt')")
mb() { calc "$1 / 1048576"; }
{
    echo "dtree index at a million documents ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, PostgreSQL $(psql -X -A -t -c 'SHOW server_version'), $(git rev-parse --short HEAD))"
    echo "Corpus: $N documents drawn with repetition from the $ng glosses of WordNet's four data files (server files)"
    echo "dtree: $meta; $stats (distinct terms, postings, documents, internal/leaf/posting pages)"
    echo "dt_CheckIndex of the whole index: $(printf '%.1f' "$ck") s"
    echo
    echo "Build (one run, seconds)"
    printf "  %-58s %8.1f\n" "dtree: CREATE INDEX USING dtree (body)" "$dt"
    printf "  %-58s %8.1f\n" "GIN: stored to_tsvector column (table rewrite)" "$gcol"
    printf "  %-58s %8.1f\n" "GIN: CREATE INDEX USING gin (tsv)" "$gidx"
    printf "  %-58s %8.1f\n" "GIN total (column + index)" "$(calc "$gcol + $gidx")"
    printf "  %-58s %8.1f\n" "RUM: CREATE INDEX USING rum (tsv rum_tsvector_ops)" "$rum"
    printf "  %-58s %8.2f\n" "dtree / GIN total" "$(calc "$dt / ($gcol + $gidx)")"
    echo
    echo "Index size (MB)"
    printf "  %-58s %8.1f\n" "dtree" "$(mb "$dts")"
    printf "  %-58s %8.1f\n" "GIN" "$(mb "$gins")"
    printf "  %-58s %8.1f\n" "RUM" "$(mb "$rums")"
    printf "  %-58s %8.2f\n" "dtree / RUM" "$(calc "$dts / $rums")"
} | tee "$out"

# Searches at a million documents, parallel query off: 100 queries of each
# kind drawn from the glosses' vocabulary (words in 5 to 2,000 glosses, so
# in about 40 to 16,000 rows); p50 and p99 in milliseconds.  Counting and
# 100-row searches through the operator and the function form against
# GIN; ranked top 10 against GIN ordered by ts_rank and RUM ordered by
# tsv <=> q.
export PGOPTIONS="-c client_min_messages=warning -c max_parallel_workers_per_gather=0"
psql -X -q -v ON_ERROR_STOP=1 <<'SQL'
SELECT setseed(0.4242);
\i bench/timings.sql
CREATE TABLE vocab AS SELECT * FROM vocabulary('SELECT txt FROM g', 400);
CREATE TABLE queries AS SELECT * FROM bench_queries(100, 'and');
SQL
{
echo
echo "Searches over the same $N documents, 100 queries of each kind, milliseconds (contains: the function form)"
psql -X -q -P footer=off <<'SQL'
WITH kinds(kind, ord) AS (VALUES ('one term', 1), ('two terms and', 2), ('three terms or', 3), ('and, and not', 4)),
sides AS (
  SELECT kind, ord, 1 AS w, 'count(*)' AS what,
         timings_sides(kind, ARRAY['SELECT count(*) FROM m WHERE body @@ $1',
                                   'SELECT count(*) FROM m WHERE Contains(body, $1)',
                                   'SELECT count(*) FROM m WHERE tsv @@ to_tsquery(''english'', $1)'],
                       ARRAY['q', 'q', 'tq']) AS t
    FROM kinds
  UNION ALL
  SELECT kind, ord, 2, '100 rows',
         timings_sides(kind, ARRAY['SELECT count(*) FROM (SELECT id FROM m WHERE body @@ $1 LIMIT 100) s',
                                   'SELECT count(*) FROM (SELECT id FROM m WHERE Contains(body, $1) LIMIT 100) s',
                                   'SELECT count(*) FROM (SELECT id FROM m WHERE tsv @@ to_tsquery(''english'', $1) LIMIT 100) s'],
                       ARRAY['q', 'q', 'tq'])
    FROM kinds
  UNION ALL
  SELECT kind, ord, 3, 'ranked top 10',
         timings_sides(kind, ARRAY['SELECT count(*) FROM (SELECT id FROM m WHERE body @@ $1 ORDER BY body <=> $1 LIMIT 10) s',
                                   'SELECT count(*) FROM (SELECT id FROM m WHERE tsv @@ to_tsquery(''english'', $1)
                                      ORDER BY ts_rank(tsv, to_tsquery(''english'', $1)) DESC LIMIT 10) s',
                                   'SELECT count(*) FROM (SELECT id FROM m WHERE tsv @@ to_tsquery(''english'', $1)
                                      ORDER BY tsv <=> to_tsquery(''english'', $1) LIMIT 10) s'],
                       ARRAY['q', 'tq', 'tq'])
    FROM kinds),
runs AS (
  SELECT kind, ord, w, what, t[1:1][:] AS dt,
         CASE WHEN w < 3 THEN t[2:2][:] END AS fn,
         CASE WHEN w < 3 THEN t[3:3][:] ELSE t[2:2][:] END AS gin,
         CASE WHEN w = 3 THEN t[3:3][:] END AS rum
    FROM sides)
SELECT kind, what,
       round(pct(dt, 0.5)::numeric, 2) AS dtree_p50, round(pct(fn, 0.5)::numeric, 2) AS contains_p50,
       round(pct(gin, 0.5)::numeric, 2) AS gin_p50, round(pct(rum, 0.5)::numeric, 2) AS rum_p50,
       round((pct(dt, 0.5) / nullif(pct(gin, 0.5), 0))::numeric, 2) AS p50_vs_gin,
       round((pct(dt, 0.5) / nullif(pct(rum, 0.5), 0))::numeric, 2) AS p50_vs_rum,
       round(pct(dt, 0.99)::numeric, 2) AS dtree_p99, round(pct(fn, 0.99)::numeric, 2) AS contains_p99,
       round(pct(gin, 0.99)::numeric, 2) AS gin_p99, round(pct(rum, 0.99)::numeric, 2) AS rum_p99,
       round((pct(dt, 0.99) / nullif(pct(gin, 0.99), 0))::numeric, 2) AS p99_vs_gin,
       round((pct(dt, 0.99) / nullif(pct(rum, 0.99), 0))::numeric, 2) AS p99_vs_rum
  FROM runs ORDER BY w, ord;
SQL
} | tee -a "$out"
psql -X -q -d postgres -c "DROP DATABASE $db"
