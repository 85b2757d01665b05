-- Timing helpers of the search benchmarks (psql -f bench/timings.sql):
-- timings(kind, tmpl, col) runs the SQL template tmpl once for each query
-- of a kind in table queries (column col as $1), untimed, to warm the
-- caches as every side gets them warm, then again, and returns the
-- milliseconds of each query of the second pass; pct(a, p) is the p-th
-- percentile of them.
CREATE FUNCTION timings(kind text, tmpl text, col text) RETURNS float8[] LANGUAGE plpgsql AS $$
DECLARE r record; t0 timestamptz; ms float8[] := '{}'; dummy bigint;
BEGIN
  FOR r IN EXECUTE format('SELECT %I AS q FROM queries WHERE kind = $1', col) USING kind LOOP
    EXECUTE tmpl INTO dummy USING r.q;
  END LOOP;
  FOR r IN EXECUTE format('SELECT %I AS q FROM queries WHERE kind = $1', col) USING kind LOOP
    t0 := clock_timestamp();
    EXECUTE tmpl INTO dummy USING r.q;
    ms := ms || (extract(epoch FROM clock_timestamp() - t0) * 1000);
  END LOOP;
  RETURN ms;
END $$;
CREATE FUNCTION pct(a float8[], p float8) RETURNS float8 LANGUAGE sql AS
$$ SELECT percentile_cont(p) WITHIN GROUP (ORDER BY x) FROM unnest(a) x $$;
