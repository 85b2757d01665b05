-- The function and the operator spellings of a search get the same row
-- estimate from the planner.
CREATE TABLE est (id int, body doc);
INSERT INTO est SELECT g, ('format(ascii),ExternalFile:/usr/share/common-licenses/' ||
       (ARRAY['GPL-3', 'GPL-2', 'Apache-2.0', 'Artistic'])[1 + g % 4])::doc
  FROM generate_series(1, 400) g;
ANALYZE est;
CREATE FUNCTION pg_temp.est(q text) RETURNS bigint LANGUAGE plpgsql AS $$
DECLARE j json;
BEGIN
    EXECUTE 'EXPLAIN (FORMAT JSON) ' || q INTO j;
    RETURN (j -> 0 -> 'Plan' ->> 'Plan Rows')::bigint;
END $$;
SELECT q, pg_temp.est('SELECT * FROM est WHERE Contains(body, ' || quote_literal(q) || ')') AS function_form,
          pg_temp.est('SELECT * FROM est WHERE body @@ ' || quote_literal(q)) AS operator_form
  FROM (VALUES ('license'), ('license and software'), ('warranty or patent'), ('!copyright'), ('the')) v(q);
SELECT pg_temp.est($$SELECT * FROM est WHERE ContainsWords(body, 'license software')$$) =
       pg_temp.est($$SELECT * FROM est WHERE body @@@ 'license software'$$) AS words_same;
SELECT pg_temp.est($$SELECT * FROM est a WHERE DocLike(a.body, (SELECT body FROM est WHERE id = 1))$$) =
       pg_temp.est($$SELECT * FROM est a WHERE a.body % (SELECT body FROM est WHERE id = 1)$$) AS doclike_same;
-- With a dtree index the estimate is the word's share of the index's
-- documents, read again by every planning: inside one transaction, after
-- more documents with the word came in, the next statement's estimate
-- follows (a quarter of the rows before, five eighths after).
CREATE INDEX est_dt ON est USING dtree (body);
BEGIN;
SELECT round(pg_temp.est($$SELECT * FROM est WHERE body @@ 'apache'$$)::numeric /
             pg_temp.est($$SELECT * FROM est$$), 2) AS share_before;
INSERT INTO est SELECT g, 'format(ascii),ExternalFile:/usr/share/common-licenses/Apache-2.0'::doc
  FROM generate_series(401, 800) g;
SELECT round(pg_temp.est($$SELECT * FROM est WHERE body @@ 'apache'$$)::numeric /
             pg_temp.est($$SELECT * FROM est$$), 2) AS share_after;
COMMIT;
DROP TABLE est;

-- The scan of a statement takes over what its planning read of the query
-- (the parse, the words' index entries) only while neither the WordNet
-- tables nor the index changed since.  A prepared statement's kept plan,
-- run again after a change without being planned again, finds what a
-- fresh statement finds: ranked (an index scan in rank order) and not
-- (a bitmap scan).
CREATE TABLE handover (id int, body doc);
INSERT INTO handover VALUES (1, dt_FromText('a dog barks at night')), (2, dt_FromText('zorgs run in the hills')),
                            (3, dt_FromText('the cat sleeps'));
CREATE INDEX handover_dt ON handover USING dtree (body);
SET enable_seqscan = off;
SET plan_cache_mode = force_generic_plan;
PREPARE cat_ranked AS
    SELECT array_agg(id ORDER BY id) FROM (SELECT id FROM handover WHERE body @@ 'cat' ORDER BY body <=> 'cat') s;
PREPARE cat_rows AS SELECT array_agg(id ORDER BY id) FROM handover WHERE body @@ 'cat';
EXPLAIN (COSTS OFF) EXECUTE cat_ranked;
EXPLAIN (COSTS OFF) EXECUTE cat_rows;
EXECUTE cat_ranked;
EXECUTE cat_rows;
-- New documents with the word: the index's entry of "cat" changed.
INSERT INTO handover VALUES (4, dt_FromText('a cat and a dog')), (5, dt_FromText('cats everywhere'));
EXECUTE cat_ranked;
EXECUTE cat_rows;
DELETE FROM handover WHERE id IN (3, 4);
VACUUM handover;
INSERT INTO handover VALUES (6, dt_FromText('one more cat'));
EXECUTE cat_ranked;
EXECUTE cat_rows;
-- "zorgs" stems to itself until the exceptions say it is a form of "dog".
PREPARE zorgs_ranked AS
    SELECT array_agg(id ORDER BY id) FROM (SELECT id FROM handover WHERE body @@ 'zorgs' ORDER BY body <=> 'zorgs') s;
EXECUTE zorgs_ranked;
BEGIN;
INSERT INTO wordnet_excl VALUES ('zorgs', 'dog');
EXECUTE zorgs_ranked;
ROLLBACK;
EXECUTE zorgs_ranked;
DEALLOCATE cat_ranked;
DEALLOCATE cat_rows;
DEALLOCATE zorgs_ranked;
RESET plan_cache_mode;
RESET enable_seqscan;
DROP TABLE handover;
