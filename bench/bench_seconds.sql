-- bench_seconds(query): the wall-clock seconds one run of a query takes.
CREATE FUNCTION bench_seconds(q text) RETURNS double precision LANGUAGE plpgsql AS $$
DECLARE t0 timestamptz;
BEGIN
    t0 := clock_timestamp();
    EXECUTE q;
    RETURN extract(epoch FROM clock_timestamp() - t0);
END $$;
