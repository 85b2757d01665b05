-- The conversion service: the table, the path search, the running of a
-- chain of steps, and the functions that take documents and specs apart.
\set VERBOSITY default
\set SHOW_CONTEXT never

-- A private folder for the files of this suite, and a private temporary
-- directory for the module, so that left-over files can be listed.
COPY (SELECT 1) TO PROGRAM 'rm -rf /tmp/doc_conv_regress && mkdir -p /tmp/doc_conv_regress/tmp; cat >/dev/null';
SET document.tmpdir = '/tmp/doc_conv_regress/tmp';
-- Each backend keeps its temporary files in its own directory document.PID:
-- list the files in those, and anything else at the top.
CREATE FUNCTION pg_temp.tmpfiles() RETURNS text[] LANGUAGE sql AS $$
    WITH top AS (
        SELECT d, d ~ '^document\.[1-9][0-9]*$'
                  AND (pg_stat_file('/tmp/doc_conv_regress/tmp/' || d)).isdir AS backend
          FROM pg_ls_dir('/tmp/doc_conv_regress/tmp') d)
    SELECT coalesce(array_agg(f ORDER BY f), '{}') FROM (
        SELECT d AS f FROM top WHERE NOT backend
        UNION ALL
        SELECT f FROM top, pg_ls_dir(CASE WHEN backend THEN '/tmp/doc_conv_regress/tmp/' || d END) f) x $$;

-- Helpers of the steps: write a file with exactly the given text; the path
-- of a spec (a name without ':' is a path).
CREATE FUNCTION put_file(path text, content text) RETURNS void LANGUAGE plpgsql AS $$
DECLARE o oid;
BEGIN
    o := lo_from_bytea(0, convert_to(content, 'UTF8'));
    PERFORM lo_export(o, path);
    PERFORM lo_unlink(o);
END $$;
CREATE FUNCTION spec_path(spec text) RETURNS text LANGUAGE sql AS $$
    SELECT coalesce(dt_GetPathText(spec), spec) $$;

-- The calls made, with whether the previous step's output existed then.
CREATE TABLE steplog (n serial, step text, inspec text, outspec text, prev_exists boolean);
-- A step that appends its own name to the text of its input.
CREATE FUNCTION tag_step(step text, inspec text, outspec text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO steplog(step, inspec, outspec, prev_exists)
    SELECT step, inspec, outspec,
           (SELECT (pg_stat_file(spec_path(l.outspec), true)).size IS NOT NULL
              FROM steplog l ORDER BY l.n DESC LIMIT 1);
    PERFORM put_file(spec_path(outspec), pg_read_file(spec_path(inspec)) || step || E'\n');
    RETURN outspec;
END $$;
CREATE FUNCTION step_ab(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT tag_step('ab', i, o) $$;
CREATE FUNCTION step_ba(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT tag_step('ba', i, o) $$;
CREATE FUNCTION step_bc(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT tag_step('bc', i, o) $$;
CREATE FUNCTION step_bd(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT tag_step('bd', i, o) $$;
CREATE FUNCTION step_cd(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT tag_step('cd', i, o) $$;
CREATE FUNCTION step_ad(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT tag_step('ad', i, o) $$;
CREATE FUNCTION step_ax(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT tag_step('ax', i, o) $$;
-- A step that writes its target and then reports failure.
CREATE FUNCTION step_fail(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    PERFORM tag_step('fail', i, o);
    RETURN NULL;
END $$;
-- A step that raises an error after writing its target.
CREATE FUNCTION step_raise(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    PERFORM tag_step('raise', i, o);
    RAISE EXCEPTION 'the converter broke on %', spec_path(i);
END $$;
-- A step written with COPY: an upper-cased copy of a one-line text.
CREATE FUNCTION "Upper_Step"(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE format('COPY (SELECT upper(pg_read_file(%L))) TO %L', spec_path(i), spec_path(o));
    RETURN o;
END $$;
-- Not a conversion step: the wrong result type.
CREATE FUNCTION step_int(i text, o text) RETURNS int LANGUAGE sql AS $$ SELECT 1 $$;

SELECT put_file('/tmp/doc_conv_regress/in.a', E'text of a\n');
SELECT put_file('/tmp/doc_conv_regress/one.txt', 'hello, world');

-- The table holds the installed rows, readable by everyone, kept by
-- pg_dump; this suite works on a table of its own rows and puts the
-- installed ones back at the end.
SELECT count(*) AS rows, count(*) FILTER (WHERE installed) AS installed FROM "DocumentConversions";
CREATE TEMP TABLE saved_conversions AS SELECT * FROM "DocumentConversions";
DELETE FROM "DocumentConversions";
SELECT attnum, attname, format_type(atttypid, atttypmod) AS type, attnotnull
  FROM pg_attribute WHERE attrelid = '"DocumentConversions"'::regclass AND attnum > 0 ORDER BY attnum;
SELECT has_table_privilege('public', '"DocumentConversions"', 'SELECT') AS public_select;
SELECT '"DocumentConversions"'::regclass = ANY (extconfig) AS dumped,
       extcondition[array_position(extconfig, '"DocumentConversions"'::regclass)] AS dump_filter
  FROM pg_extension WHERE extname = 'document';

-- ---- specifications and documents taken apart ---------------------------------
SELECT dt_GetPathText('format(wp),version(5.1):/home/docs/report.wp') AS p1,
       dt_GetPathText('wordperfect:/x/y:z') AS p2,
       dt_GetPathText('a:') AS p3,
       dt_GetPathText('/x/y') IS NULL AS no_colon_is_null;
CREATE TEMP TABLE docs (d doc);
INSERT INTO docs VALUES ('format(wp),version(5.1),ExternalFile:/tmp/doc_conv_regress/in.a');
INSERT INTO docs VALUES ('format(a),ExternalFile:/tmp/doc_conv_regress/in.a');
INSERT INTO docs VALUES ('nocopy,format,ExternalFile:/tmp/doc_conv_regress/one.txt');
SELECT dt_GetPath(d), dt_GetParams(d), '[' || dt_GetFormat(d) || ']' AS format FROM docs;

-- ---- identical formats copy the file, without the table ---------------------
BEGIN;
ALTER TABLE "DocumentConversions" RENAME TO dc_away;
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(a),version(2):/tmp/doc_conv_regress/copy.a');
SELECT pg_read_file('/tmp/doc_conv_regress/copy.a') AS copied;
SELECT formatconvert('/tmp/doc_conv_regress/one.txt', 'format(ascii):/tmp/doc_conv_regress/copy.txt');
SELECT pg_read_file('/tmp/doc_conv_regress/copy.txt') AS copied;
-- Different formats need the table.
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out.d');
\echo :LAST_ERROR_SQLSTATE
ROLLBACK;
-- A copy of a missing file is null; copying a file onto itself keeps it.
SELECT formatconvert('/tmp/doc_conv_regress/none.txt', '/tmp/doc_conv_regress/copy2.txt') IS NULL AS is_null;
SELECT (pg_stat_file('/tmp/doc_conv_regress/copy2.txt', true)).size IS NULL AS nothing_made;
SELECT formatconvert('/tmp/doc_conv_regress/one.txt', 'format(ascii):/tmp/doc_conv_regress/one.txt');
SELECT pg_read_file('/tmp/doc_conv_regress/one.txt') AS kept;

-- ---- the direct edge first, whatever the row order --------------------------
INSERT INTO "DocumentConversions" VALUES ('a', 'b', 'step_ab'), ('b', 'd', 'step_bd'), ('a', 'd', 'step_ad');
SELECT dt_ConversionPath('a', 'd');
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'd', 'step_ad'), ('a', 'b', 'step_ab'), ('b', 'd', 'step_bd');
SELECT dt_ConversionPath('a', 'd');
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('b', 'd', 'step_bd'), ('a', 'b', 'step_ab'), ('a', 'd', 'step_ad');
SELECT dt_ConversionPath('a', 'd');
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out1.d');
SELECT pg_read_file('/tmp/doc_conv_regress/out1.d') AS converted;
SELECT step, inspec, outspec FROM steplog ORDER BY n;
TRUNCATE steplog;

-- ---- a cycle is expanded once and abandoned ----------------------------------
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'b', 'step_ab'), ('b', 'a', 'step_ba'), ('b', 'd', 'step_bd');
SELECT dt_ConversionPath('a', 'd');
-- No way out of the cycle.
SELECT dt_ConversionPath('a', 'z') IS NULL AS no_path;
-- The first path found, not the shortest: a->b->a->c->d.
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'b', 'step_ab'), ('b', 'a', 'step_ba'), ('a', 'c', 'x'), ('c', 'd', 'y');
SELECT dt_ConversionPath('a', 'd');

-- ---- a dead end is tried, then the next row -----------------------------------
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'x', 'step_ax'), ('a', 'b', 'step_ab'), ('b', 'd', 'step_bd');
SELECT dt_ConversionPath('a', 'd');

-- ---- a two-step path: every step reads the first input ------------------------
SELECT pg_temp.tmpfiles() AS before;
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out2.d');
-- The second step read in.a, not the first step's output.
SELECT pg_read_file('/tmp/doc_conv_regress/out2.d') AS converted;
SELECT step, inspec,
       regexp_replace(regexp_replace(outspec, '\.[0-9]+fmtcnv$', '.NNNfmtcnv'),
                      '/document\.[0-9]+/', '/document.PID/') AS outspec,
       outspec ~ ('^/tmp/doc_conv_regress/tmp/document\.' || pg_backend_pid() ||
                  '/out2\.d\.[0-9]{1,5}fmtcnv$') AS temp_name,
       prev_exists
  FROM steplog ORDER BY n;
-- The first step's temporary file is gone.
SELECT pg_temp.tmpfiles() AS after;
SELECT (pg_stat_file((SELECT outspec FROM steplog WHERE step = 'ab'), true)).size IS NULL AS removed;
TRUNCATE steplog;

-- ---- a step that fails stops the chain with null, nothing left behind ---------
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'b', 'step_ab'), ('b', 'c', 'step_fail'), ('c', 'd', 'step_cd');
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out3.d') IS NULL AS is_null;
SELECT step FROM steplog ORDER BY n;
SELECT pg_temp.tmpfiles() AS after;
SELECT (pg_stat_file('/tmp/doc_conv_regress/out3.d', true)).size IS NULL AS no_output;
TRUNCATE steplog;

-- ---- a step that raises an error: nothing left behind -------------------------
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'b', 'step_ab'), ('b', 'c', 'step_raise'), ('c', 'd', 'step_cd');
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out4.d');
\echo :LAST_ERROR_SQLSTATE
SELECT pg_temp.tmpfiles() AS after;
-- The last step raising: its output stays where it was written.
UPDATE "DocumentConversions" SET function_name = 'step_bc' WHERE function_name = 'step_raise';
UPDATE "DocumentConversions" SET function_name = 'step_raise' WHERE function_name = 'step_cd';
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out5.d');
SELECT pg_temp.tmpfiles() AS after;
SELECT pg_read_file('/tmp/doc_conv_regress/out5.d') AS written_before_the_error;

-- ---- a step that does not exist, or is not a step ----------------------------
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'b', 'step_ab'), ('b', 'd', 'no_such_step');
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out6.d');
\echo :LAST_ERROR_SQLSTATE
SELECT pg_temp.tmpfiles() AS after;
UPDATE "DocumentConversions" SET function_name = 'step_int' WHERE function_name = 'no_such_step';
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out6.d');
\echo :LAST_ERROR_SQLSTATE
UPDATE "DocumentConversions" SET function_name = 'not a name' WHERE function_name = 'step_int';
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(d):/tmp/doc_conv_regress/out6.d');
\echo :LAST_ERROR_SQLSTATE
SELECT pg_temp.tmpfiles() AS after;

-- ---- names in SQL identifier syntax: quoted, schema-qualified ------------------
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('ascii', 'upper', 'public."Upper_Step"');
SELECT formatconvert('/tmp/doc_conv_regress/one.txt', 'format(upper):/tmp/doc_conv_regress/one.up');
SELECT pg_read_file('/tmp/doc_conv_regress/one.up') AS upper;
-- Unquoted names fold to lower case, as in SQL.
UPDATE "DocumentConversions" SET function_name = 'STEP_AB', source_format = 'a', target_format = 'b';
SELECT formatconvert('format(a):/tmp/doc_conv_regress/in.a', 'format(b):/tmp/doc_conv_regress/out7.b');

-- ---- IsConvertible ---------------------------------------------------------
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" VALUES ('a', 'b', 'step_ab'), ('b', 'd', 'step_bd');
SELECT dt_GetFormat(d) AS format,
       IsConvertible(d, 'd') AS to_d,
       IsConvertible(d, 'format(d),version(1)') AS to_format_d,
       IsConvertible(d, 'b') AS to_b,
       IsConvertible(d, 'ascii') AS to_ascii,
       IsConvertible(d, dt_GetFormat(d)) AS own
  FROM docs ORDER BY 1;
-- Its own format needs no table.
BEGIN;
ALTER TABLE "DocumentConversions" RENAME TO dc_away;
SELECT IsConvertible(d, 'format(a)') AS own FROM docs WHERE dt_GetFormat(d) = 'a';
SELECT IsConvertible(d, 'd') FROM docs WHERE dt_GetFormat(d) = 'a';
\echo :LAST_ERROR_SQLSTATE
ROLLBACK;

-- ---- rights ----------------------------------------------------------------
CREATE ROLE doc_conv_nobody;
GRANT SELECT ON docs TO doc_conv_nobody;
SET ROLE doc_conv_nobody;
SELECT formatconvert('/tmp/doc_conv_regress/one.txt', '/tmp/doc_conv_regress/copy3.txt');
\echo :LAST_ERROR_SQLSTATE
-- Reading the table is open to all.
SELECT IsConvertible(d, 'd') FROM docs WHERE dt_GetFormat(d) = 'a';
SELECT dt_ConversionPath('a', 'd');
RESET ROLE;
-- Reading alone is not enough.
GRANT pg_read_server_files TO doc_conv_nobody;
SET ROLE doc_conv_nobody;
SELECT formatconvert('/tmp/doc_conv_regress/one.txt', '/tmp/doc_conv_regress/copy3.txt');
\echo :LAST_ERROR_SQLSTATE
RESET ROLE;
GRANT pg_write_server_files TO doc_conv_nobody;
SET ROLE doc_conv_nobody;
SELECT formatconvert('/tmp/doc_conv_regress/one.txt', '/tmp/doc_conv_regress/copy3.txt');
RESET ROLE;
SELECT pg_read_file('/tmp/doc_conv_regress/copy3.txt') AS copied;
-- Without SELECT on the table, it cannot be opened.
REVOKE SELECT ON "DocumentConversions" FROM PUBLIC;
SET ROLE doc_conv_nobody;
SELECT dt_ConversionPath('a', 'd');
\echo :LAST_ERROR_SQLSTATE
RESET ROLE;
GRANT SELECT ON "DocumentConversions" TO PUBLIC;
REVOKE SELECT ON docs FROM doc_conv_nobody;
DROP ROLE doc_conv_nobody;
-- Server files are named by absolute paths.
SELECT formatconvert('format(a):in.a', '/tmp/doc_conv_regress/x');
\echo :LAST_ERROR_SQLSTATE

-- The listing sees a file in the backend's own directory.
DO $$ BEGIN EXECUTE format('COPY (SELECT 1) TO %L',
    '/tmp/doc_conv_regress/tmp/document.' || pg_backend_pid() || '/probe'); END $$;
SELECT pg_temp.tmpfiles() AS probe_seen;
DO $$ BEGIN EXECUTE format('COPY (SELECT 1) TO PROGRAM %L',
    'rm /tmp/doc_conv_regress/tmp/document.' || pg_backend_pid() || '/probe; cat >/dev/null'); END $$;
-- Clean up.
SELECT pg_temp.tmpfiles() AS finally;
TRUNCATE "DocumentConversions";
INSERT INTO "DocumentConversions" SELECT * FROM saved_conversions;
TRUNCATE "DocumentConversionsRemoved";
SELECT count(*) AS rows, count(*) FILTER (WHERE installed) AS installed FROM "DocumentConversions";
RESET document.tmpdir;
COPY (SELECT 1) TO PROGRAM 'rm -rf /tmp/doc_conv_regress; cat >/dev/null';
