#!/usr/bin/env bash
# Searches through the dtree index against PostgreSQL's GIN over a stored
# tsvector, on the same WordNet noun glosses (one document per gloss, made
# with dt_FromText) in the same run, parallel query off on both sides.
# For each kind of query (one term, two terms and'ed, three terms or'ed,
# two terms and'ed with a third negated), 200 queries drawn from the
# collection's vocabulary (words in 5 to 2,000 glosses) are run as
# count(*) and as the first 100 ids; p50 and p99 of each side and their
# ratio; the function form Contains(body, q) too.  Writes
# bench/results/dtree_search.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
out=bench/results/dtree_search.txt
db=dtree_search_bench
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db" 2>/dev/null
export PGDATABASE=$db
export PGOPTIONS="-c client_min_messages=warning -c max_parallel_workers_per_gather=0"
psql -X -q -v ON_ERROR_STOP=1 <<'SQL'
CREATE EXTENSION document;
\i bench/glosses.sql
CREATE TABLE gdocs AS SELECT id, dt_FromText(txt) AS body FROM glosses;
CREATE TABLE gtsv AS SELECT id, to_tsvector('english', txt) AS tsv FROM glosses;
CREATE INDEX gdocs_dt ON gdocs USING dtree (body);
CREATE INDEX gtsv_gin ON gtsv USING gin (tsv);
VACUUM ANALYZE gdocs;
VACUUM ANALYZE gtsv;
SELECT setseed(0.1122);
\i bench/timings.sql
CREATE TABLE vocab AS SELECT * FROM vocabulary('SELECT txt FROM glosses', 800);
CREATE TABLE queries AS SELECT * FROM bench_queries(200, 'and');
SQL
n=$(psql -X -qtA -c "SELECT count(*) FROM gdocs")
{
echo "== $(date -u +%Y-%m-%dT%H:%MZ) searches over $n WordNet noun glosses, 200 queries of each kind ($(git rev-parse --short HEAD 2>/dev/null)); milliseconds"
psql -X -q -P footer=off <<'SQL'
WITH kinds(kind, ord) AS (VALUES ('one term', 1), ('two terms and', 2), ('three terms or', 3), ('and, and not', 4)),
sides AS (
  SELECT kind, ord, 'count(*)' AS what,
         timings_sides(kind, ARRAY['SELECT count(*) FROM gdocs WHERE body @@ $1',
                                   'SELECT count(*) FROM gdocs WHERE Contains(body, $1)',
                                   'SELECT count(*) FROM gtsv WHERE tsv @@ to_tsquery(''english'', $1)'],
                       ARRAY['q', 'q', 'tq']) AS t
    FROM kinds
  UNION ALL
  SELECT kind, ord, '100 rows',
         timings_sides(kind, ARRAY['SELECT count(*) FROM (SELECT id FROM gdocs WHERE body @@ $1 LIMIT 100) s',
                                   'SELECT count(*) FROM (SELECT id FROM gdocs WHERE Contains(body, $1) LIMIT 100) s',
                                   'SELECT count(*) FROM (SELECT id FROM gtsv WHERE tsv @@ to_tsquery(''english'', $1) LIMIT 100) s'],
                       ARRAY['q', 'q', 'tq'])
    FROM kinds),
runs AS (SELECT kind, ord, what, t[1:1][:] AS dt, t[2:2][:] AS fn, t[3:3][:] AS gin FROM sides)
SELECT kind, what,
       round(pct(dt, 0.5)::numeric, 3) AS dtree_p50, round(pct(dt, 0.99)::numeric, 3) AS dtree_p99,
       round(pct(fn, 0.5)::numeric, 3) AS contains_p50,
       round(pct(gin, 0.5)::numeric, 3) AS gin_p50, round(pct(gin, 0.99)::numeric, 3) AS gin_p99,
       round((pct(dt, 0.5) / nullif(pct(gin, 0.5), 0))::numeric, 2) AS p50_ratio,
       round((pct(dt, 0.99) / nullif(pct(gin, 0.99), 0))::numeric, 2) AS p99_ratio
  FROM runs ORDER BY ord, what;
SQL
} | tee -a "$out"
psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db"
