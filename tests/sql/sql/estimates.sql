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
DROP TABLE est;
