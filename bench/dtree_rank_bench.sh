#!/usr/bin/env bash
# Ranked top-10 searches: the dtree index in rank order
# (WHERE body @@ q ORDER BY body <=> q LIMIT 10) against GIN over a stored
# tsvector ordered by ts_rank and against RUM ordered by tsv <=> q, on the
# same WordNet noun glosses in the same run, parallel query off.  200
# queries of one, two and three terms (or'ed) drawn from the collection's
# vocabulary (words in 5 to 2,000 glosses); p50 and p99 in milliseconds
# and the ratios dtree/GIN and dtree/RUM.  Writes bench/results/dtree_rank.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
out=bench/results/dtree_rank.txt
db=dtree_rank_bench
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db" 2>/dev/null
export PGDATABASE=$db
export PGOPTIONS="-c client_min_messages=warning -c max_parallel_workers_per_gather=0"
psql -X -q -v ON_ERROR_STOP=1 <<'SQL'
CREATE EXTENSION document;
CREATE EXTENSION rum;
\i bench/glosses.sql
CREATE TABLE gdocs AS SELECT id, dt_FromText(txt) AS body FROM glosses;
CREATE TABLE gtsv AS SELECT id, to_tsvector('english', txt) AS tsv FROM glosses;
CREATE TABLE grum AS SELECT * FROM gtsv;
CREATE INDEX gdocs_dt ON gdocs USING dtree (body);
CREATE INDEX gtsv_gin ON gtsv USING gin (tsv);
CREATE INDEX grum_rum ON grum USING rum (tsv rum_tsvector_ops);
VACUUM ANALYZE gdocs;
VACUUM ANALYZE gtsv;
VACUUM ANALYZE grum;
SELECT setseed(0.2311);
\i bench/timings.sql
CREATE TABLE vocab AS SELECT * FROM vocabulary('SELECT txt FROM glosses', 600);
CREATE TABLE queries AS SELECT * FROM bench_queries(200, 'or');
SQL
n=$(psql -X -qtA -c "SELECT count(*) FROM gdocs")
plan=$(psql -X -qtA -c "EXPLAIN SELECT id FROM gdocs WHERE body @@ 'dog or cat' ORDER BY body <=> 'dog or cat' LIMIT 10" | tr '\n' ';')
{
echo "== $(date -u +%Y-%m-%dT%H:%MZ) ranked top 10 over $n WordNet noun glosses, 200 queries of each kind ($(git rev-parse --short HEAD 2>/dev/null)); milliseconds"
echo "dtree plan: $plan"
psql -X -q -P footer=off <<'SQL'
WITH kinds(kind, ord) AS (VALUES ('one term', 1), ('two terms or', 2), ('three terms or', 3)),
sides AS (
  SELECT kind, ord,
         timings_sides(kind, ARRAY['SELECT count(*) FROM (SELECT id FROM gdocs WHERE body @@ $1 ORDER BY body <=> $1 LIMIT 10) s',
                                   'SELECT count(*) FROM (SELECT id FROM gtsv WHERE tsv @@ to_tsquery(''english'', $1)
                                      ORDER BY ts_rank(tsv, to_tsquery(''english'', $1)) DESC LIMIT 10) s',
                                   'SELECT count(*) FROM (SELECT id FROM grum WHERE tsv @@ to_tsquery(''english'', $1)
                                      ORDER BY tsv <=> to_tsquery(''english'', $1) LIMIT 10) s'],
                       ARRAY['q', 'tq', 'tq']) AS t
    FROM kinds),
runs AS (SELECT kind, ord, t[1:1][:] AS dt, t[2:2][:] AS gin, t[3:3][:] AS rum FROM sides)
SELECT kind,
       round(pct(dt, 0.5)::numeric, 3) AS dtree_p50, round(pct(gin, 0.5)::numeric, 3) AS gin_p50,
       round(pct(rum, 0.5)::numeric, 3) AS rum_p50,
       round((pct(dt, 0.5) / nullif(pct(gin, 0.5), 0))::numeric, 2) AS p50_vs_gin,
       round((pct(dt, 0.5) / nullif(pct(rum, 0.5), 0))::numeric, 2) AS p50_vs_rum,
       round(pct(dt, 0.99)::numeric, 3) AS dtree_p99, round(pct(gin, 0.99)::numeric, 3) AS gin_p99,
       round(pct(rum, 0.99)::numeric, 3) AS rum_p99,
       round((pct(dt, 0.99) / nullif(pct(gin, 0.99), 0))::numeric, 2) AS p99_vs_gin,
       round((pct(dt, 0.99) / nullif(pct(rum, 0.99), 0))::numeric, 2) AS p99_vs_rum
  FROM runs ORDER BY ord;
SQL
} | tee -a "$out"
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db"
