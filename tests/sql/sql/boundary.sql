-- Errors of the server that pass through the module arrive as the server
-- raised them: SQLSTATE, message, detail, hint and context.
\set VERBOSITY default
\set SHOW_CONTEXT always

CREATE FUNCTION step_hint(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    RAISE EXCEPTION 'the step refused %', i
        USING ERRCODE = '22P05', DETAIL = 'a detail of the step', HINT = 'increase the step''s patience';
END $$;
BEGIN;
INSERT INTO "DocumentConversions" VALUES ('hx', 'hy', 'step_hint');
-- Shown by psql: the step's context line, once.
SELECT formatconvert('format(hx):/tmp/boundary_in.hx', 'format(hy):/tmp/boundary_out.hy');
\echo :LAST_ERROR_SQLSTATE
ROLLBACK;

-- Caught in PL/pgSQL: every field is there, and the context names the
-- step and the block that called formatconvert.
BEGIN;
INSERT INTO "DocumentConversions" VALUES ('hx', 'hy', 'step_hint');
DO $$
DECLARE s text; m text; d text; h text; c text;
BEGIN
    PERFORM formatconvert('format(hx):/tmp/boundary_in.hx', 'format(hy):/tmp/boundary_out.hy');
EXCEPTION WHEN OTHERS THEN
    GET STACKED DIAGNOSTICS s = RETURNED_SQLSTATE, m = MESSAGE_TEXT, d = PG_EXCEPTION_DETAIL,
                            h = PG_EXCEPTION_HINT, c = PG_EXCEPTION_CONTEXT;
    RAISE NOTICE 'sqlstate %', s;
    RAISE NOTICE 'message %', m;
    RAISE NOTICE 'detail %', d;
    RAISE NOTICE 'hint %', h;
    RAISE NOTICE 'context %', c;
END $$;
ROLLBACK;


-- A full lock table inside a conversion step: the server's hint to raise
-- max_locks_per_transaction reaches the client.
CREATE FUNCTION step_locks(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    PERFORM pg_advisory_xact_lock(n) FROM generate_series(1, 1000000) n;
    RETURN o;
END $$;
BEGIN;
INSERT INTO "DocumentConversions" VALUES ('lx', 'ly', 'step_locks');
SELECT formatconvert('format(lx):/tmp/boundary_in.lx', 'format(ly):/tmp/boundary_out.ly');
\echo :LAST_ERROR_SQLSTATE
ROLLBACK;
-- The lock table is usable again.
SELECT pg_try_advisory_xact_lock(1) AS locked;

-- The objects a server error names come through too.
CREATE TABLE boundary_checked (n int CONSTRAINT n_small CHECK (n < 10));
CREATE FUNCTION step_check(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO boundary_checked VALUES (42);
    RETURN o;
END $$;
BEGIN;
INSERT INTO "DocumentConversions" VALUES ('cx', 'cy', 'step_check');
DO $$
DECLARE s text; t text; c text; n text;
BEGIN
    PERFORM formatconvert('format(cx):/tmp/boundary_in.cx', 'format(cy):/tmp/boundary_out.cy');
EXCEPTION WHEN check_violation THEN
    GET STACKED DIAGNOSTICS s = SCHEMA_NAME, t = TABLE_NAME, c = CONSTRAINT_NAME, n = MESSAGE_TEXT;
    RAISE NOTICE '% / %.% / %', n, s, t, c;
END $$;
ROLLBACK;
DROP TABLE boundary_checked;
