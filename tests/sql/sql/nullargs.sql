-- Every SQL function of the extension, called with SQL null in each of its
-- arguments in turn and in all of them at once, leaves the server running:
-- errors are fine (with a SQLSTATE of their own, not an internal error),
-- crashes are not.  The functions are found through the extension's
-- dependencies, so functions added later are covered without a change
-- here.  Each call runs in a subtransaction that is rolled back, so calls
-- leave nothing behind.
--
-- Skipped, because SQL cannot call them: functions with an `internal`
-- argument (planner estimators, index access method callbacks and
-- handlers: their arguments come from the server itself), and functions
-- returning trigger, event_trigger or a handler type (the server calls
-- them only as triggers or handlers).  Polymorphic arguments are given as
-- text (and text[]); other pseudo-types are skipped.
\set VERBOSITY default
SET statement_timeout = '60s';
COPY (SELECT 'a small document about cats and dogs') TO '/tmp/doc_nullargs.txt';
SELECT pg_postmaster_start_time() AS started \gset

CREATE TEMP TABLE nullcalls (fn regprocedure, call text, outcome text);

DO $$
DECLARE
    f record;
    i int;
    k int;
    args text[];
    call text;
    outcome text;
    -- A value of each argument type for the arguments that are not null.
    sample jsonb := jsonb_build_object(
        'text', quote_literal('x'), 'character varying', quote_literal('x'), 'cstring', quote_literal('x'),
        'name', quote_literal('x'), 'integer', '1', 'smallint', '1', 'bigint', '1', 'real', '1',
        'double precision', '1', 'numeric', '1', 'boolean', 'false', 'oid', '0',
        'regclass', quote_literal('pg_class'), 'bytea', quote_literal(''), 'text[]', quote_literal('{}'),
        'doc', quote_literal('format(ascii),ExternalFile:/tmp/doc_nullargs.txt'));
BEGIN
    FOR f IN
        SELECT p.oid, p.prokind, p.provariadic, n.nspname, p.proname,
               array(SELECT t::regtype::text FROM unnest(p.proargtypes) t) AS types
          FROM pg_depend d
          JOIN pg_proc p ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid
          JOIN pg_namespace n ON n.oid = p.pronamespace
         WHERE d.refclassid = 'pg_extension'::regclass AND d.deptype = 'e'
           AND d.refobjid = (SELECT oid FROM pg_extension WHERE extname = 'document')
           AND p.prorettype NOT IN ('trigger'::regtype, 'event_trigger'::regtype, 'index_am_handler'::regtype,
                                    'table_am_handler'::regtype, 'fdw_handler'::regtype,
                                    'language_handler'::regtype, 'tsm_handler'::regtype)
           AND NOT 'internal'::regtype = ANY (p.proargtypes)
         ORDER BY p.oid
    LOOP
        -- The polymorphic types as text; other pseudo-types cannot be given.
        f.types := array(SELECT CASE WHEN t IN ('anyelement', 'anynonarray', 'anycompatible',
                                               'anycompatiblenonarray') THEN 'text'
                                     WHEN t IN ('anyarray', 'anycompatiblearray') THEN 'text[]'
                                     ELSE t END FROM unnest(f.types) t);
        CONTINUE WHEN EXISTS (SELECT 1 FROM unnest(f.types) t
                               WHERE t::regtype IN (SELECT oid FROM pg_type WHERE typtype = 'p'));
        -- k = 0: every argument null; k = 1..n: argument k alone.
        FOR k IN 0 .. coalesce(array_length(f.types, 1), 0) LOOP
            CONTINUE WHEN k = 1 AND array_length(f.types, 1) = 1;
            args := '{}';
            FOR i IN 1 .. coalesce(array_length(f.types, 1), 0) LOOP
                args := args || ((CASE WHEN f.provariadic <> 0 AND i = array_length(f.types, 1)
                                       THEN 'VARIADIC ' ELSE '' END) ||
                                 CASE WHEN k = 0 OR k = i OR NOT sample ? f.types[i] THEN 'NULL'
                                      ELSE sample ->> f.types[i] END || '::' || f.types[i]);
            END LOOP;
            call := format('%I.%I(%s)', f.nspname, f.proname, array_to_string(args, ', '));
            call := CASE f.prokind WHEN 'p' THEN 'CALL ' || call
                                   WHEN 'w' THEN 'SELECT ' || call || ' OVER ()'
                                   ELSE 'SELECT ' || call END;
            BEGIN
                EXECUTE call;
                -- Undo whatever the call did.
                RAISE SQLSTATE 'DTNUL';
            EXCEPTION WHEN OTHERS THEN
                outcome := CASE WHEN SQLSTATE = 'DTNUL' THEN 'ok' ELSE SQLSTATE || ' ' || SQLERRM END;
            END;
            INSERT INTO nullcalls VALUES (f.oid, call, outcome);
        END LOOP;
    END LOOP;
END $$;

-- The server was not restarted, and this is still the same session.
SELECT pg_postmaster_start_time() = :'started' AS same_server;
-- Enough functions were called, among them the ones that used to crash.
SELECT count(DISTINCT fn) >= 50 AS many_functions, count(*) >= 90 AS many_calls FROM nullcalls;
SELECT call, outcome FROM nullcalls
 WHERE fn = 'dt_RaiseError(text, text[])'::regprocedure ORDER BY call;
-- No call failed with an internal error or a failure of the system.
SELECT fn, call, outcome FROM nullcalls
 WHERE outcome ~ '^(XX|58)' ORDER BY fn::oid, call;
RESET statement_timeout;
COPY (SELECT 1) TO PROGRAM 'rm -f /tmp/doc_nullargs.txt';
