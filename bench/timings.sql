-- Helpers of the search benchmarks (\i bench/timings.sql):
-- vocabulary(texts, n) draws n words at random (after setseed) from the
-- texts that the query texts returns: words of four or more letters in 5
-- to 2,000 of them, none a stop word of either side (a stop word matches
-- every document here); numbered k = 1..n.
-- bench_queries(per, two) makes per queries of each kind from table vocab
-- in both languages (kind, query language, tsquery): one term, two terms
-- joined by two ('and' or 'or'), three terms or'ed; query i takes words
-- i, i + per and i + 2 per; and 'and, and not' (a and b and not c) from
-- words i, i + 2 per and i + 3 per, when vocab has them.
-- timings(kind, tmpl, col) runs the SQL template tmpl once for each query
-- of a kind in table queries (column col as $1), untimed, to warm the
-- caches as every side gets them warm, then five times more, each time
-- over all the queries, and returns the milliseconds of each query of
-- those five passes (500 for 100 queries): a percentile of them moves
-- less from run to run than one of a single pass, where a few
-- milliseconds of a busy machine shift a whole side.  pct(a, p) is the
-- p-th percentile of them.
-- timings_sides(kind, tmpls, cols) times several sides of a comparison
-- (template tmpls[i] with column cols[i]) by timings(), in three rounds
-- that take turns (1, 2, 3; then 3, 2, 1; then 1, 2, 3): a slow spell of a
-- shared machine then falls on every side alike, where timing one side
-- after the other let it fall on one.  Each round warms its side up again.
-- Returns a two-dimensional array: row i holds the times of side i over
-- the three rounds (t[i:i][:] is a valid argument of pct).
CREATE FUNCTION timings(kind text, tmpl text, col text) RETURNS float8[] LANGUAGE plpgsql AS $$
DECLARE r record; t0 timestamptz; ms float8[] := '{}'; dummy bigint;
BEGIN
  FOR r IN EXECUTE format('SELECT %I AS q FROM queries WHERE kind = $1', col) USING kind LOOP
    EXECUTE tmpl INTO dummy USING r.q;
  END LOOP;
  FOR pass IN 1..5 LOOP
    FOR r IN EXECUTE format('SELECT %I AS q FROM queries WHERE kind = $1', col) USING kind LOOP
      t0 := clock_timestamp();
      EXECUTE tmpl INTO dummy USING r.q;
      ms := ms || (extract(epoch FROM clock_timestamp() - t0) * 1000);
    END LOOP;
  END LOOP;
  RETURN ms;
END $$;
CREATE FUNCTION timings_sides(kind text, tmpls text[], cols text[]) RETURNS float8[] LANGUAGE plpgsql AS $$
DECLARE ns int := cardinality(tmpls); n int; s int; res float8[];
BEGIN
  SELECT 5 * count(*) INTO n FROM queries q WHERE q.kind = timings_sides.kind;
  res := array_fill(NULL::float8, ARRAY[ns, 3 * n]);
  FOR r IN 1..3 LOOP
    FOR j IN 1..ns LOOP
      s := CASE WHEN r % 2 = 1 THEN j ELSE ns + 1 - j END;
      res[s:s][(r - 1) * n + 1:r * n] := ARRAY[timings(kind, tmpls[s], cols[s])];
    END LOOP;
  END LOOP;
  RETURN res;
END $$;
CREATE FUNCTION pct(a float8[], p float8) RETURNS float8 LANGUAGE sql AS
$$ SELECT percentile_cont(p) WITHIN GROUP (ORDER BY x) FROM unnest(a) x $$;
CREATE FUNCTION vocabulary(texts text, n int) RETURNS TABLE (word text, k bigint) LANGUAGE sql AS $$
  SELECT word, row_number() OVER () FROM (
    SELECT word FROM ts_stat(format('SELECT to_tsvector(''simple'', t) FROM (%s) s(t)', texts))
     WHERE ndoc BETWEEN 5 AND 2000 AND word ~ '^[a-z]{4,}$'
       AND EXISTS (SELECT 1 FROM dt_QueryTerms(word)) AND numnode(plainto_tsquery('english', word)) > 0
     ORDER BY random() LIMIT n) s
$$;
CREATE FUNCTION bench_queries(per int, two text) RETURNS TABLE (kind text, q text, tq text) LANGUAGE plpgsql AS $$
DECLARE tsop text := CASE two WHEN 'and' THEN ' & ' ELSE ' | ' END;
BEGIN
  RETURN QUERY
  SELECT 'one term', a.word, a.word FROM vocab a WHERE a.k <= per
  UNION ALL
  SELECT 'two terms ' || two, a.word || ' ' || two || ' ' || b.word, a.word || tsop || b.word
    FROM vocab a JOIN vocab b ON b.k = a.k + per WHERE a.k <= per
  UNION ALL
  SELECT 'three terms or', a.word || ' or ' || b.word || ' or ' || c.word, a.word || ' | ' || b.word || ' | ' || c.word
    FROM vocab a JOIN vocab b ON b.k = a.k + per JOIN vocab c ON c.k = a.k + 2 * per WHERE a.k <= per
  UNION ALL
  SELECT 'and, and not', a.word || ' and ' || b.word || ' and !' || c.word, a.word || ' & ' || b.word || ' & !' || c.word
    FROM vocab a JOIN vocab b ON b.k = a.k + 2 * per JOIN vocab c ON c.k = a.k + 3 * per WHERE a.k <= per;
END $$;
