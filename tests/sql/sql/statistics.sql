-- Optimizer statistics of doc columns: the average number of terms per
-- document that ANALYZE stores, dt_selectivity and dtstat over it, and the
-- plans the planner makes with them on a real collection.
\set VERBOSITY default

-- The figure ANALYZE stored for a column (text, number), and its null
-- fraction.
CREATE FUNCTION pg_temp.figure(tab regclass, OUT stavalues text, OUT stanumbers text, OUT nullfrac real)
LANGUAGE sql AS $$
    SELECT (CASE 17110 WHEN s.stakind1 THEN s.stavalues1::text WHEN s.stakind2 THEN s.stavalues2::text
                       WHEN s.stakind3 THEN s.stavalues3::text END),
           (CASE 17110 WHEN s.stakind1 THEN s.stanumbers1::text WHEN s.stakind2 THEN s.stanumbers2::text
                       WHEN s.stakind3 THEN s.stanumbers3::text END),
           s.stanullfrac
      FROM pg_statistic s
     WHERE s.starelid = tab AND s.staattnum = (SELECT attnum FROM pg_attribute WHERE attrelid = tab AND attname = 'body')
       AND NOT s.stainherit $$;

-- Documents kept in the row count one term per six bytes of the value
-- after its length word: 60, 30 and 120 bytes give (10 + 5 + 20) / 3 = 11.
CREATE TABLE inrow (body doc);
INSERT INTO inrow VALUES (dt_FromText(repeat('a', 31), 'x')), (dt_FromText('a', 'x')),
                         (dt_FromText(repeat('a', 91), 'x'));
SELECT octet_length(dt_DocBytes(body)) - 4 AS after_length_word FROM inrow;
SELECT * FROM pg_temp.figure('inrow');
ANALYZE inrow;
SELECT * FROM pg_temp.figure('inrow');
-- The server's own figures are there as well.
SELECT null_frac, avg_width > 0 AS has_width FROM pg_stats WHERE tablename = 'inrow' AND attname = 'body';
-- Null values count as rows: the same three and three nulls give 35 / 6 = 5.
INSERT INTO inrow SELECT NULL FROM generate_series(1, 3);
ANALYZE inrow;
SELECT * FROM pg_temp.figure('inrow');

-- A column of nulls only: every row counts, no term: "0".
CREATE TABLE nulls (body doc);
INSERT INTO nulls SELECT NULL FROM generate_series(1, 5);
ANALYZE nulls;
SELECT * FROM pg_temp.figure('nulls');
-- An empty table gets no statistics at all.
CREATE TABLE empty (body doc);
ANALYZE empty;
SELECT count(*) FROM pg_statistic WHERE starelid = 'empty'::regclass;

-- Documents in large objects count their distinct terms (stored with the
-- term table): ten documents of three terms each give "3".
CREATE TABLE three (id int, body doc);
INSERT INTO three SELECT g, dt_FromText(repeat('alpha beta gamma ', 8) || g) FROM generate_series(1, 10) g;
SELECT DocUWordCnt(body) AS distinct_terms, DocLOHandle(body) IS NOT NULL AS in_large_object FROM three LIMIT 1;
CREATE INDEX three_dt ON three USING dtree (body);
-- Without statistics: selectivity 0.01, every document, and the share of
-- the index's pages.
SELECT selec, ntup, npage = ceil(pg_relation_size('three_dt') / 8192 * 0.01::real::float8) AS npage_ok
  FROM dtstat('three_dt');
SELECT dt_selectivity('three', 'body') AS column_left, dt_selectivity('three', 'body', false) AS column_right;
ANALYZE three;
SELECT * FROM pg_temp.figure('three');
-- With statistics "3" and 10 documents: 1/3 as a float, and 30 times it
-- rounds up to 11 rows.
SELECT selec, ntup, npage = ceil(pg_relation_size('three_dt') / 8192 * (1.0 / 3)::real::float8) AS npage_ok
  FROM dtstat('three_dt');
SELECT dt_selectivity('three', 'body') AS column_left, dt_selectivity('three', 'body', false) AS column_right;

-- A large object that is gone ends the pass: no figure for the column.
CREATE TABLE gone (body doc);
INSERT INTO gone SELECT dt_FromText(repeat('alpha beta gamma ', 8) || g) FROM generate_series(1, 3) g;
SELECT lo_unlink(DocLOHandle(body)::oid) FROM gone LIMIT 1;
ANALYZE gone;
SELECT * FROM pg_temp.figure('gone');
SELECT dt_selectivity('gone', 'body');

-- A figure of 0 (here 5 / 7) divides nothing: it counts as none.
CREATE TABLE zero (body doc);
INSERT INTO zero SELECT NULL FROM generate_series(1, 6);
INSERT INTO zero VALUES (dt_FromText('a', 'x'));
CREATE INDEX zero_dt ON zero USING dtree (body);
ANALYZE zero;
SELECT * FROM pg_temp.figure('zero');
SELECT * FROM dtstat('zero_dt');
SELECT dt_selectivity('zero', 'body') AS column_left, dt_selectivity('zero', 'body', false) AS column_right;

-- Errors.
SELECT * FROM dtstat(0);
SELECT * FROM dtstat('three');
CREATE INDEX three_id ON three (id);
SELECT * FROM dtstat('three_id');
CREATE TABLE parted (id int, body doc) PARTITION BY RANGE (id);
CREATE TABLE parted1 PARTITION OF parted FOR VALUES FROM (0) TO (10);
CREATE INDEX parted_dt ON parted USING dtree (body);
SELECT * FROM dtstat('parted_dt');
-- The partition's own index has one.
SELECT s.* FROM pg_inherits i, dtstat(i.inhrelid) s WHERE i.inhparent = 'parted_dt'::regclass;
SELECT dt_selectivity('three', 'nosuchcolumn');
SELECT dt_selectivity(0, 'body');

-- Who may ask: the figures are the table's, like pg_stats.
CREATE ROLE stats_reader;
SET ROLE stats_reader;
SELECT * FROM dtstat('three_dt');
SELECT dt_selectivity('three', 'body');
RESET ROLE;
GRANT SELECT (body) ON three TO stats_reader;
SET ROLE stats_reader;
SELECT dt_selectivity('three', 'body');
SELECT * FROM dtstat('three_dt');
RESET ROLE;
GRANT SELECT ON three TO stats_reader;
SET ROLE stats_reader;
SELECT * FROM dtstat('three_dt');
RESET ROLE;
REVOKE ALL ON three FROM stats_reader;
DROP ROLE stats_reader;

-- The planner on a real collection: 20,000 WordNet noun glosses.
CREATE TABLE gloss_lines (id bigint GENERATED ALWAYS AS IDENTITY, line text);
COPY gloss_lines (line) FROM '/usr/share/wordnet/data.noun' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
CREATE TABLE g AS
SELECT id, dt_FromText(txt) AS body FROM (
    SELECT row_number() OVER (ORDER BY id) AS id, split_part(line, ' | ', 2) AS txt
      FROM gloss_lines WHERE line NOT LIKE ' %' AND split_part(line, ' | ', 2) <> '') s
 WHERE id <= 20000;
DROP TABLE gloss_lines;
CREATE INDEX g_dt ON g USING dtree (body);
VACUUM ANALYZE g;
SET max_parallel_workers_per_gather = 0;
-- A selective query uses the index, in both spellings.
EXPLAIN (COSTS OFF) SELECT id FROM g WHERE body @@ 'rare and words';
EXPLAIN (COSTS OFF) SELECT id FROM g WHERE Contains(body, 'rare and words');
EXPLAIN (COSTS OFF) SELECT id FROM g WHERE body @@@ 'sulfonamide antibacterial';
-- A stop word matches every document: the table is read.
EXPLAIN (COSTS OFF) SELECT id FROM g WHERE body @@ 'the';
EXPLAIN (COSTS OFF) SELECT id FROM g WHERE Contains(body, 'the');
EXPLAIN (COSTS OFF) SELECT id FROM g WHERE ContainsWords(body, 'the of');
-- A word's estimate is its document frequency in the index: exact here.
CREATE FUNCTION pg_temp.est(q text) RETURNS bigint LANGUAGE plpgsql AS $$
DECLARE j json;
BEGIN
    EXECUTE 'EXPLAIN (FORMAT JSON) ' || q INTO j;
    RETURN (j -> 0 -> 'Plan' ->> 'Plan Rows')::bigint;
END $$;
SELECT q, pg_temp.est('SELECT * FROM g WHERE body @@ ' || quote_literal(q)) AS estimate,
       pg_temp.est('SELECT * FROM g WHERE Contains(body, ' || quote_literal(q) || ')') AS function_estimate,
       (SELECT count(*) FROM g WHERE body @@ q) AS actual
  FROM (VALUES ('person'), ('plant'), ('genus'), ('rare'), ('the'), ('unicornfish')) v(q);
-- Combinations as independent words, within reach of the truth.
SELECT q, est BETWEEN actual / 3 AND actual * 3 + 3 AS close
  FROM (SELECT q, pg_temp.est('SELECT * FROM g WHERE body @@ ' || quote_literal(q)) AS est,
               (SELECT count(*) FROM g WHERE body @@ q) AS actual
          FROM (VALUES ('person or plant'), ('genus and plant'), ('person and !plant'),
                       ('plant or animal or genus')) v(q)) s;
-- Tables of an inheritance tree or of a partitioned table: each one's
-- estimate comes from its own index.
CREATE TABLE gp (id int, body doc);
CREATE TABLE gc () INHERITS (gp);
INSERT INTO gp SELECT id, body FROM g WHERE id <= 100;
INSERT INTO gc SELECT id, body FROM g WHERE id > 100;
CREATE INDEX gp_dt ON gp USING dtree (body);
CREATE INDEX gc_dt ON gc USING dtree (body);
ANALYZE gp;
ANALYZE gc;
CREATE FUNCTION pg_temp.member_rows(q text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE j jsonb;
BEGIN
    EXECUTE 'EXPLAIN (FORMAT JSON) ' || q INTO j;
    RETURN (SELECT string_agg(r::text, ', ') FROM jsonb_path_query(j, '$[0].Plan.Plans[*]."Plan Rows"') r);
END $$;
SELECT pg_temp.member_rows($$SELECT * FROM gp WHERE body @@ 'person'$$) AS estimates,
       (SELECT count(*) FROM ONLY gp WHERE body @@ 'person') || ', ' ||
       (SELECT count(*) FROM gc WHERE body @@ 'person') AS actual;
CREATE TABLE gpart (id int, body doc) PARTITION BY RANGE (id);
CREATE TABLE gpart1 PARTITION OF gpart FOR VALUES FROM (0) TO (10001);
CREATE TABLE gpart2 PARTITION OF gpart FOR VALUES FROM (10001) TO (20001);
INSERT INTO gpart SELECT id, body FROM g;
CREATE INDEX gpart_dt ON gpart USING dtree (body);
ANALYZE gpart;
SELECT pg_temp.member_rows($$SELECT * FROM gpart WHERE body @@ 'person'$$) AS estimates,
       (SELECT count(*) FROM gpart1 WHERE body @@ 'person') || ', ' ||
       (SELECT count(*) FROM gpart2 WHERE body @@ 'person') AS actual;
DROP TABLE gp, gc, gpart;
-- A query the parser refuses is reported when it runs, not while planning.
EXPLAIN (COSTS OFF) SELECT id FROM g WHERE body @@ '(unbalanced';
SELECT id FROM g WHERE body @@ '(unbalanced';
-- A parameter of a generic plan gets the model's figure.
PREPARE search(text) AS SELECT id FROM g WHERE body @@ $1;
SET plan_cache_mode = force_generic_plan;
SELECT figure.stavalues, pg_temp.est('EXECUTE search(''zebra'')') = round(20000 * dt_selectivity('g', 'body')::float8) AS model_estimate
  FROM pg_temp.figure('g') figure;
DEALLOCATE search;
RESET plan_cache_mode;
-- The cost estimate: a scan reads more when its words have more postings,
-- and its first row costs as much as its last.
CREATE FUNCTION pg_temp.index_cost(q text, OUT startup float8, OUT total float8) LANGUAGE plpgsql AS $$
DECLARE j json;
BEGIN
    SET LOCAL enable_seqscan = off; SET LOCAL enable_bitmapscan = off;
    EXECUTE 'EXPLAIN (FORMAT JSON) SELECT id FROM g WHERE body @@ ' || quote_literal(q) INTO j;
    startup := (j -> 0 -> 'Plan' ->> 'Startup Cost')::float8;
    total := (j -> 0 -> 'Plan' ->> 'Total Cost')::float8;
END $$;
SELECT (SELECT startup FROM pg_temp.index_cost('rare')) < (SELECT startup FROM pg_temp.index_cost('person')) AS fewer_postings_cheaper,
       (SELECT startup FROM pg_temp.index_cost('person')) < (SELECT startup FROM pg_temp.index_cost('the')) AS all_documents_dearest;
SELECT startup > 0 AND startup < total AS first_row_waits_for_the_result FROM pg_temp.index_cost('person');
RESET max_parallel_workers_per_gather;
DROP TABLE inrow, nulls, empty, three, gone, zero, parted, g;
