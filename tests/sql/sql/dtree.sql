-- The dtree index: counters, errors, inserts, VACUUM, AddIndexTerms, the
-- checker.  Documents are server files written here.
\set VERBOSITY terse
\getenv dir DOC_SERVER_DIR
\set d :dir/dtree
\setenv DT_DIR :d
\! mkdir -p "$DT_DIR" && printf 'cat cat cat dog\n' > "$DT_DIR/catdog.txt" && printf 'the of and\n' > "$DT_DIR/stop.txt" && printf 'Dogs chase mice.\n' > "$DT_DIR/dogs.txt" && printf 'A cat sat on the mat.\n' > "$DT_DIR/cat.txt" && chmod -R a+rX "$DT_DIR"
SELECT :'d' || '/catdog.txt' AS catdog, :'d' || '/stop.txt' AS stop, :'d' || '/dogs.txt' AS dogs, :'d' || '/cat.txt' AS cat \gset
CREATE FUNCTION f(path text) RETURNS doc LANGUAGE sql AS $$ SELECT ('format(ascii),ExternalFile:' || path)::doc $$;

-- A fresh index on an empty table.
CREATE TABLE t (id int, body doc, note text);
CREATE INDEX t_dt ON t USING dtree (body);
SELECT ReadMetaTerms('t_dt');
SELECT dt_CheckIndex('t_dt');
SELECT * FROM dt_IndexStats('t_dt');

-- "cat" three times: one posting with count 3, three term occurrences.
INSERT INTO t VALUES (1, f(:'catdog'));
SELECT ReadMetaTerms('t_dt');
SELECT term, row_id, count, wordcnt FROM dt_IndexEntries('t_dt');
-- A document without terms counts as a document and adds no posting; a
-- null is not indexed at all.
INSERT INTO t VALUES (2, f(:'stop')), (3, NULL);
SELECT ReadMetaTerms('t_dt');
SELECT term, row_id, count FROM dt_IndexEntries('t_dt');
INSERT INTO t VALUES (4, f(:'dogs')), (5, f(:'cat'));
SELECT ReadMetaTerms('t_dt'), dt_CheckIndex('t_dt');

-- A build over the same rows gives the same index.
CREATE INDEX t_dt2 ON t USING dtree (body);
SELECT ReadMetaTerms('t_dt2');
SELECT count(*) FROM ((SELECT * FROM dt_IndexEntries('t_dt') EXCEPT ALL SELECT * FROM dt_IndexEntries('t_dt2'))
                      UNION ALL (SELECT * FROM dt_IndexEntries('t_dt2') EXCEPT ALL SELECT * FROM dt_IndexEntries('t_dt'))) x;
DROP INDEX t_dt2;

-- Deleting the row of "cat" (3) and "dog" (1) lowers the terms by 4 and
-- the documents by one once VACUUM removes it; a row without terms lowers
-- the documents by one.
DELETE FROM t WHERE id IN (1, 2);
VACUUM t;
SELECT ReadMetaTerms('t_dt'), dt_CheckIndex('t_dt');
SELECT term, count FROM dt_IndexEntries('t_dt') ORDER BY term, row_id;

-- AddIndexTerms: one posting per stem, count 1, duplicates kept; an empty
-- text changes nothing.
SELECT AddIndexTerms('t_dt', (SELECT ctid FROM t WHERE id = 4), 'Cats and cats, birds');
SELECT ReadMetaTerms('t_dt');
SELECT term, count FROM dt_IndexEntries('t_dt') WHERE row_id = (SELECT ctid FROM t WHERE id = 4) ORDER BY term, count;
SELECT AddIndexTerms('t_dt', (SELECT ctid FROM t WHERE id = 4), '');
SELECT AddIndexTerms('t_dt', (SELECT ctid FROM t WHERE id = 4), 'the and of');
SELECT ReadMetaTerms('t_dt'), dt_CheckIndex('t_dt');
SELECT AddIndexTerms('t_dt', '(999,1)', 'cat');
SELECT AddIndexTerms('t_dt', '(0,0)', 'cat');
SELECT AddIndexTerms('no_such_index', '(0,1)', 'cat');
\echo :LAST_ERROR_SQLSTATE
-- The added terms go when their row goes.
DELETE FROM t WHERE id = 4;
VACUUM t;
SELECT ReadMetaTerms('t_dt'), dt_CheckIndex('t_dt');

-- ReadMetaTerms of what is not a dtree index.
CREATE INDEX t_bt ON t (id);
SELECT ReadMetaTerms('t_bt');
\echo :LAST_ERROR_SQLSTATE
SELECT ReadMetaTerms('t');
\echo :LAST_ERROR_SQLSTATE
SELECT ReadMetaTerms('no_such_index');
\echo :LAST_ERROR_SQLSTATE
SELECT ReadMetaTerms('public.t_dt');
SELECT dt_CheckIndex('t_bt');

-- One column of type doc, no predicate (refused once the table has a row),
-- no storage parameters.
CREATE INDEX t_two ON t USING dtree (body, body);
\echo :LAST_ERROR_SQLSTATE
CREATE INDEX t_part ON t USING dtree (body) WHERE id > 0;
\echo :LAST_ERROR_SQLSTATE
CREATE TABLE empty_t (id int, body doc);
CREATE INDEX empty_part ON empty_t USING dtree (body) WHERE id > 0;
SELECT ReadMetaTerms('empty_part');
CREATE INDEX t_opt ON t USING dtree (body) WITH (fillfactor = 50);
CREATE INDEX t_txt ON t USING dtree (note);
\echo :LAST_ERROR_SQLSTATE
CREATE INDEX t_int ON t USING dtree (id);

-- The operator class is valid, and the planner can answer a search from
-- the index.
SELECT amvalidate(oid) FROM pg_opclass WHERE opcname = 'doc_dtree_ops';
SET enable_seqscan = off;
EXPLAIN (COSTS OFF) SELECT id FROM t WHERE body @@ 'cat';
RESET enable_seqscan;

-- An unlogged table: the index starts from its empty form.
CREATE UNLOGGED TABLE u (body doc);
CREATE INDEX u_dt ON u USING dtree (body);
INSERT INTO u VALUES (f(:'catdog')), (f(:'dogs'));
SELECT ReadMetaTerms('u_dt'), dt_CheckIndex('u_dt');

-- Who may call what.
CREATE ROLE dtree_reader;
GRANT USAGE ON SCHEMA public TO dtree_reader;
SET ROLE dtree_reader;
SELECT ReadMetaTerms('t_dt');
SELECT AddIndexTerms('t_dt', '(0,1)', 'cat');
SELECT dt_CheckIndex('t_dt');
RESET ROLE;
GRANT SELECT ON t TO dtree_reader;
SET ROLE dtree_reader;
SELECT ReadMetaTerms('t_dt');
SELECT AddIndexTerms('t_dt', (SELECT ctid FROM t WHERE id = 5), 'cat');
RESET ROLE;
DROP OWNED BY dtree_reader;
DROP ROLE dtree_reader;

-- DROP TABLE takes the index with it.
DROP TABLE t, empty_t, u;
SELECT count(*) FROM pg_class WHERE relname IN ('t_dt', 'u_dt', 'empty_part');
DROP FUNCTION f(text);

-- A whole document searched for as is: its terms make one OR of thousands
-- of words (here 6,000), which the index answers as the table scan does,
-- ranked or not.
CREATE FUNCTION pg_temp.word(x int) RETURNS text LANGUAGE sql IMMUTABLE AS
$$ SELECT 'w' || translate(to_hex(x * 7919 % 1000003), '0123456789', 'ghijklmnop') $$;
CREATE TABLE manyw (id int, body doc);
INSERT INTO manyw SELECT g, dt_FromText((SELECT string_agg(pg_temp.word(x), ' ') FROM generate_series(g * 40, g * 40 + 39) x))
  FROM generate_series(1, 300) g;
CREATE TABLE bigdoc AS SELECT dt_FromText(string_agg(pg_temp.word(x), ' ')) AS d FROM generate_series(3000, 9000) x;
SELECT count(*) AS terms FROM dt_Terms((SELECT d FROM bigdoc));
CREATE INDEX manyw_dt ON manyw USING dtree (body);
SET enable_seqscan = off;
EXPLAIN (COSTS OFF) SELECT count(*) FROM manyw WHERE body % (SELECT d FROM bigdoc);
SELECT count(*), min(id), max(id), sum(id) FROM manyw WHERE body % (SELECT d FROM bigdoc);
SELECT count(*), min(m.id), max(m.id), bool_and(r.weight > 0) AS weighed
  FROM dt_RankDocLike('manyw_dt', (SELECT d FROM bigdoc)) r JOIN manyw m ON m.ctid = r.row_id;
RESET enable_seqscan;
SET enable_indexscan = off;
SET enable_bitmapscan = off;
EXPLAIN (COSTS OFF) SELECT count(*) FROM manyw WHERE body % (SELECT d FROM bigdoc);
SELECT count(*), min(id), max(id), sum(id) FROM manyw WHERE body % (SELECT d FROM bigdoc);
RESET enable_indexscan;
RESET enable_bitmapscan;
DROP TABLE manyw, bigdoc;
