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
