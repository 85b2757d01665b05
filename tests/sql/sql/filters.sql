-- Conversion steps that run programs (troff, TeX, LinuxDoc SGML, the
-- word-processor engine), the installed conversion rows, and who may make
-- the service run what.
\set VERBOSITY default
\set SHOW_CONTEXT never
COPY (SELECT 1) TO PROGRAM 'rm -rf /tmp/doc_filt_regress && mkdir -p /tmp/doc_filt_regress/tmp && chmod 755 /tmp/doc_filt_regress; cat >/dev/null';
SET document.tmpdir = '/tmp/doc_filt_regress/tmp';
-- Helpers, in a schema of their own (they outlive reconnections).
CREATE SCHEMA doc_filt;
-- Files of the module's temporary directories (see the conversion suite).
CREATE FUNCTION doc_filt.tmpfiles() RETURNS text[] LANGUAGE sql AS $$
    WITH top AS (
        SELECT d, d ~ '^document\.[1-9][0-9]*$'
                  AND (pg_stat_file('/tmp/doc_filt_regress/tmp/' || d)).isdir AS backend
          FROM pg_ls_dir('/tmp/doc_filt_regress/tmp') d)
    SELECT coalesce(array_agg(f ORDER BY f), '{}') FROM (
        SELECT d AS f FROM top WHERE NOT backend
        UNION ALL
        SELECT f FROM top, pg_ls_dir(CASE WHEN backend THEN '/tmp/doc_filt_regress/tmp/' || d END) f) x $$;
CREATE FUNCTION doc_filt.put_file(path text, body text) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE format('COPY (SELECT %L) TO PROGRAM %L',
                   translate(encode(convert_to(body, 'UTF8'), 'base64'), E'\n', ''),
                   'base64 -d > ' || quote_literal(path));
END $$;
-- Makes a directory of any name: the name reaches mkdir as an argument.
CREATE FUNCTION doc_filt.mkdir(path text) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE format('COPY (SELECT %L) TO PROGRAM %L',
                   translate(encode(convert_to(path, 'UTF8'), 'base64'), E'\n', ''),
                   'base64 -d | xargs -0 mkdir -p --');
END $$;
CREATE FUNCTION doc_filt.exists(path text) RETURNS boolean LANGUAGE sql AS $$
    SELECT (pg_stat_file(path, true)).size IS NOT NULL $$;
-- Real documents: a man page (troff) and the LinuxDoc example of
-- linuxdoc-tools; a LaTeX document.
COPY (SELECT 1) TO PROGRAM 'zcat /usr/share/man/man1/ls.1.gz > /tmp/doc_filt_regress/ls.1; zcat /usr/share/doc/linuxdoc-tools/example/example.sgml.gz > /tmp/doc_filt_regress/example.sgml; cat >/dev/null';
SELECT doc_filt.put_file('/tmp/doc_filt_regress/paper.tex', E'\\documentclass{article}\n\\begin{document}\n\\section{Retrieval}\nInverted \\emph{files} index the \\textbf{terms} of documents.\n\\input{/etc/hostname}\n\\end{document}\n');

-- ---- the installed rows ------------------------------------------------------
SELECT source_format, target_format, function_name FROM "DocumentConversions" WHERE installed;
SELECT f, dt_ConversionPath(f, 'ascii') FROM unnest(ARRAY['postscript', 'dvips', 'troff', 'tex', 'latex', 'sgml',
    'wordperfect', 'msword', 'rtf', 'odt', 'docx', 'pdf', 'html', 'text', 'WordPerfect']) f;
-- Every format of the alias table but ascii converts to ascii.
SELECT count(*) AS alias_rows FROM "DocumentConversions"
 WHERE installed AND function_name = 'ravelconv' AND source_format IN ('avalon', 'displaywrite',
    'executivewriter', 'framemaker', 'ibmdca', 'interleaf', 'islandwrite', 'leadingedge', 'microsoftword',
    'msword', 'multimate', 'officewriter', 'pcwrite', 'pfsprofessional', 'pfswrite', 'q&awrite', 'rft',
    'samna', 'spellbinder', 'volkswriter', 'word', 'wordforwindows', 'wordperfect', 'wordperfect5',
    'wordstar', 'wordstar2000', 'xywrite');

-- ---- the shell filters -----------------------------------------------------------
SELECT troff2ascii('format(troff):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/ls.txt') AS result;
SELECT t ~ 'list directory contents' AS has_name, t ~ 'alphabetically' AS has_word,
       t !~ '\.TH|\\f[BIR]|\x1b|\x08' AS no_markup
  FROM pg_read_file('/tmp/doc_filt_regress/ls.txt') AS t;
-- detex does not follow \input: only the file itself is read.
SELECT tex2ascii('format(tex):/tmp/doc_filt_regress/paper.tex', 'format(ascii):/tmp/doc_filt_regress/paper.txt') AS result;
SELECT regexp_split_to_array(btrim(regexp_replace(pg_read_file('/tmp/doc_filt_regress/paper.txt'), '\s+', ' ', 'g')), ' ') AS words;
SELECT qwertz_sgml2latex('format(sgml):/tmp/doc_filt_regress/example.sgml', 'format(tex):/tmp/doc_filt_regress/example.tex') AS result;
SELECT t ~ '\\documentclass' AS latex, t ~ '\\section\{Introduction\}' AS has_section, t !~ '<sect>' AS no_sgml
  FROM pg_read_file('/tmp/doc_filt_regress/example.tex') AS t;
-- SGML to text by the path sgml -> tex -> ascii.
SELECT formatconvert('format(sgml):/tmp/doc_filt_regress/example.sgml', 'format(ascii):/tmp/doc_filt_regress/example.txt') AS result;
SELECT t ~ 'Quick Example' AS has_title, t !~ '<[a-z]+>|\\[a-z]+\{' AS no_markup
  FROM pg_read_file('/tmp/doc_filt_regress/example.txt') AS t;
SELECT doc_filt.tmpfiles() AS no_temporary_files;

-- A filter that fails gives null, and the output it began is removed.
SELECT troff2ascii('format(troff):/tmp/doc_filt_regress/missing.1', 'format(ascii):/tmp/doc_filt_regress/m.txt') IS NULL AS is_null;
SELECT doc_filt.exists('/tmp/doc_filt_regress/m.txt') AS output_left;
SELECT qwertz_sgml2latex('format(sgml):/tmp/doc_filt_regress/ls.1', 'format(tex):/tmp/doc_filt_regress/m.tex') IS NULL AS not_sgml;
SELECT doc_filt.exists('/tmp/doc_filt_regress/m.tex') AS output_left;
SELECT formatconvert('format(sgml):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/m2.txt') IS NULL AS chain_fails;
SELECT doc_filt.tmpfiles() AS no_temporary_files, doc_filt.exists('/tmp/doc_filt_regress/m2.txt') AS output_left;
-- A filter that runs without end is stopped by a cancel (here the
-- statement's timeout): its program is killed, nothing is left.
SELECT doc_filt.put_file('/tmp/doc_filt_regress/loop.1', E'.TH X 1\n.nr a 0\n.while 1 .nr a +1\n');
SET statement_timeout = '1s';
SELECT troff2ascii('format(troff):/tmp/doc_filt_regress/loop.1', 'format(ascii):/tmp/doc_filt_regress/loop.txt');
RESET statement_timeout;
SELECT doc_filt.tmpfiles() AS no_temporary_files, doc_filt.exists('/tmp/doc_filt_regress/loop.txt') AS output_left;
-- A document whose conversion fails: the service's error, nothing left.
CREATE TEMP TABLE docs (d doc);
INSERT INTO docs VALUES ('format(sgml),ExternalFile:/tmp/doc_filt_regress/ls.1');
SELECT IndexTerms(d) FROM docs;
\echo :LAST_ERROR_SQLSTATE
SELECT doc_filt.tmpfiles() AS no_temporary_files;
TRUNCATE docs;
-- Converted documents are searchable.
INSERT INTO docs VALUES ('format(troff),ExternalFile:/tmp/doc_filt_regress/ls.1'),
                        ('format(latex),ExternalFile:/tmp/doc_filt_regress/paper.tex'),
                        ('format(sgml),ExternalFile:/tmp/doc_filt_regress/example.sgml');
SELECT dt_GetFormat(d), Contains(d, 'directory and alphabetically') AS ls, Contains(d, 'inverted and retrieval') AS paper,
       Contains(d, 'linuxdoc and example') AS sgml FROM docs;
SELECT doc_filt.tmpfiles() AS no_temporary_files;
TRUNCATE docs;

-- ---- paths that a shell would read ---------------------------------------------
SELECT doc_filt.mkdir(E'/tmp/doc_filt_regress/a b''c";$(touch pwned) `touch pwned2`');
-- The file is made by a copy (identical formats) from a plain name.
SELECT doc_filt.put_file('/tmp/doc_filt_regress/strange.1', E'.TH X 1\n.SH NAME\nstrangely named page\n');
SELECT formatconvert('format(troff):/tmp/doc_filt_regress/strange.1',
                     E'format(troff):/tmp/doc_filt_regress/a b''c";$(touch pwned) `touch pwned2`/x;y $(id)\nz''.1') IS NOT NULL AS copied;
SELECT troff2ascii(E'format(troff):/tmp/doc_filt_regress/a b''c";$(touch pwned) `touch pwned2`/x;y $(id)\nz''.1',
                   E'format(ascii):/tmp/doc_filt_regress/a b''c";$(touch pwned) `touch pwned2`/out $(id);\n.txt') IS NOT NULL AS converted;
SELECT pg_read_file(E'/tmp/doc_filt_regress/a b''c";$(touch pwned) `touch pwned2`/out $(id);\n.txt') ~ 'strangely named page' AS text;
-- Nothing that the names spell was run.
SELECT d, f FROM unnest(ARRAY['/tmp/doc_filt_regress', '.', E'/tmp/doc_filt_regress/a b''c";$(touch pwned) `touch pwned2`']) d,
       pg_ls_dir(d) f WHERE f IN ('pwned', 'pwned2');
-- The filters read nothing but their input's directory and the system's
-- programs and data: a troff request that includes another file cannot
-- reach a file of the server elsewhere.
SELECT doc_filt.mkdir('/tmp/doc_filt_regress/in');
SELECT doc_filt.put_file('/tmp/doc_filt_regress/secret.txt', E'topsecretword\n');
SELECT doc_filt.put_file('/tmp/doc_filt_regress/in/sibling.1', E'siblingword\n');
SELECT doc_filt.put_file('/tmp/doc_filt_regress/in/include.1',
    E'.TH X 1\n.SH NAME\nbefore\n.so /tmp/doc_filt_regress/secret.txt\n.so ../secret.txt\n.so '
    || current_setting('data_directory') || E'/postgresql.conf\n.so sibling.1\nafter\n');
SELECT troff2ascii('format(troff):/tmp/doc_filt_regress/in/include.1', 'format(ascii):/tmp/doc_filt_regress/inc.txt') IS NOT NULL AS converted;
SELECT t ~ 'before' AS before, t ~ 'after' AS after, t ~ 'siblingword' AS sibling,
       t ~ 'topsecretword' AS secret, t ~ 'listen_addresses|shared_buffers' AS server_config
  FROM pg_read_file('/tmp/doc_filt_regress/inc.txt') AS t;
-- A path that looks like an option.
SELECT troff2ascii('format(troff):-v', 'format(ascii):/tmp/doc_filt_regress/v.txt') IS NULL AS not_an_option;

-- ---- the word-processor engine ---------------------------------------------------
-- Its pairs of short names: an unknown pair is not success.
SELECT ravelcnvt('', 'ws', 'asc', '', '', '/tmp/doc_filt_regress/ls.1', '/tmp/doc_filt_regress/ws.txt') AS wordstar,
       ravelcnvt('', 'asc', 'wp', '', '', '/tmp/doc_filt_regress/ls.1', '/tmp/doc_filt_regress/ws.txt') AS to_wp,
       ravelcnvt('', '/bin/sh', 'asc', '', '', '/tmp/doc_filt_regress/ls.1', '/tmp/doc_filt_regress/ws.txt') AS a_path;
SELECT doc_filt.exists('/tmp/doc_filt_regress/ws.txt') AS output_left;
-- A file that is not WordPerfect: the converter fails, nothing is left.
SELECT ravelcnvt('', 'wp', 'asc', '', '', '/tmp/doc_filt_regress/ls.1', '/tmp/doc_filt_regress/wp.txt') AS not_wp;
SELECT doc_filt.exists('/tmp/doc_filt_regress/wp.txt') AS output_left;
SELECT ravelconv('format(wordperfect):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/wp.txt') IS NULL AS is_null;
SELECT ravelconv('format(wordstar):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/wp.txt') IS NULL AS is_null;
-- HTML, through the engine.
SELECT doc_filt.put_file('/tmp/doc_filt_regress/page.html',
    E'<html><head><title>Catalogue</title></head><body><h1>Indexing</h1><p>Posting <b>lists</b> &amp; stems</p></body></html>\n');
SELECT ravelconv('format(html):/tmp/doc_filt_regress/page.html', 'format(ascii):/tmp/doc_filt_regress/page.txt') AS result;
SELECT regexp_split_to_array(btrim(regexp_replace(pg_read_file('/tmp/doc_filt_regress/page.txt'), '[^A-Za-z&]+', ' ', 'g')), ' ') AS words;
-- raveldummy hands back its input and touches no file.
SELECT raveldummy('format(text):/tmp/doc_filt_regress/nothing', 'format(ascii):/tmp/doc_filt_regress/nothing.txt') AS result,
       doc_filt.exists('/tmp/doc_filt_regress/nothing.txt') AS made;

-- ---- the engine is looked up on first use, by name ----------------------------------
-- A recording engine in its place: the arguments, and statuses 0 and 10.
\c
SET document.tmpdir = '/tmp/doc_filt_regress/tmp';
CREATE TABLE ravel_calls (args text[]);
CREATE TABLE ravel_status (s int);
INSERT INTO ravel_status VALUES (0);
ALTER FUNCTION ravelcnvt(text, text, text, text, text, text, text) RENAME TO ravelcnvt_shipped;
CREATE FUNCTION ravelcnvt(a text, b text, c text, d text, e text, f text, g text) RETURNS int
    LANGUAGE sql AS $$ INSERT INTO ravel_calls VALUES (ARRAY[a, b, c, d, e, f, g]); SELECT s FROM ravel_status $$;
SELECT ravelconv('format(wordperfect),version(5.1):/x/in.wp', 'format(ascii):/x/out.txt') AS status_0;
SELECT ravelconv('format(q&awrite):/x/in.qa', 'format(msword),version(6):/x/out.doc') AS status_0;
SELECT ravelconv('WordPerfect:/x/in', 'format(ascii),version( 2 ):/x/out') AS status_0;
SELECT ravelconv('/x/in', 'format(rtf):/x/out') AS status_0;
UPDATE ravel_status SET s = 10;
SELECT ravelconv('format(word):/x/in', 'format(ascii):/x/out') AS status_10;
UPDATE ravel_status SET s = 1;
SELECT ravelconv('format(word):/x/in', 'format(ascii):/x/out') IS NULL AS status_1;
UPDATE ravel_status SET s = 11;
SELECT ravelconv('format(word):/x/in', 'format(ascii):/x/out') IS NULL AS status_11;
UPDATE ravel_status SET s = NULL;
SELECT ravelconv('format(word):/x/in', 'format(ascii):/x/out') IS NULL AS status_null;
SELECT regexp_replace(args[1], '^.*/extend/', '.../extend/') AS binpath, args[2:7] AS rest FROM ravel_calls;
-- Without the engine: the user error.
DROP FUNCTION ravelcnvt(text, text, text, text, text, text, text);
SELECT ravelconv('format(word):/x/in', 'format(ascii):/x/out');
\echo :LAST_ERROR_SQLSTATE
ALTER FUNCTION ravelcnvt_shipped(text, text, text, text, text, text, text) RENAME TO ravelcnvt;
SELECT ravelconv('format(wordstar):/x/in', 'format(ascii):/x/out') IS NULL AS shipped_again;
DROP TABLE ravel_calls, ravel_status;

-- ---- a filter program missing from the filter directory ------------------------
-- The directory is the home's, taken once per process: a new session with
-- a home that has no programs.  "deroff" exists nowhere else: the step gives
-- null (with a warning); "detex" runs under its bare name from the search path.
\c
SET document.tmpdir = '/tmp/doc_filt_regress/tmp';
SET document.home = '/tmp/doc_filt_regress/nohome';
SELECT troff2ascii('format(troff):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/n.txt') IS NULL AS is_null;
SELECT doc_filt.exists('/tmp/doc_filt_regress/n.txt') AS output_left;
SELECT tex2ascii('format(tex):/tmp/doc_filt_regress/paper.tex', 'format(ascii):/tmp/doc_filt_regress/n.txt') IS NOT NULL AS bare_name;
SELECT pg_read_file('/tmp/doc_filt_regress/n.txt') ~ 'Inverted' AS converted;
CREATE TEMP TABLE docs (d doc);
INSERT INTO docs VALUES ('format(troff),ExternalFile:/tmp/doc_filt_regress/ls.1');
SELECT Contains(d, 'directory') FROM docs;
\echo :LAST_ERROR_SQLSTATE
\c
SET document.tmpdir = '/tmp/doc_filt_regress/tmp';
GRANT USAGE ON SCHEMA doc_filt TO PUBLIC;

-- ---- who may make the service run what ----------------------------------------------
CREATE ROLE doc_filt_user;
CREATE SCHEMA doc_filt_own AUTHORIZATION doc_filt_user;
GRANT pg_read_server_files, pg_write_server_files TO doc_filt_user;
SET ROLE doc_filt_user;
-- The steps themselves are not for direct calls.
SELECT troff2ascii('format(troff):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/u.txt');
SELECT ravelcnvt('', 'html', 'asc', '', '', '/etc/hostname', '/tmp/doc_filt_regress/u.txt');
-- The service runs them for the user.
SELECT formatconvert('format(troff):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/u.txt') AS result;
-- Rows, the filter directory: only the table's owner and superusers.
INSERT INTO "DocumentConversions" VALUES ('evil', 'ascii', 'doc_filt_own.evil_step');
UPDATE "DocumentConversions" SET function_name = 'doc_filt_own.evil_step' WHERE source_format = 'troff';
DELETE FROM "DocumentConversions";
SET document.home = '/tmp/doc_filt_regress';
-- A step of the user's own, made to run a program: as the user it cannot.
CREATE FUNCTION doc_filt_own.evil_step(i text, o text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE format('COPY (SELECT 1) TO PROGRAM %L', 'touch /tmp/doc_filt_regress/evil_ran');
    RETURN o;
END $$;
GRANT USAGE ON SCHEMA doc_filt_own TO PUBLIC;
RESET ROLE;
-- Even with rights on the table, a row naming the user's function is not
-- run for anyone else: the service refuses it.
GRANT INSERT, UPDATE, DELETE ON "DocumentConversions", "DocumentConversionsRemoved" TO doc_filt_user;
SET ROLE doc_filt_user;
INSERT INTO "DocumentConversions" VALUES ('evil', 'ascii', 'doc_filt_own.evil_step');
SELECT formatconvert('format(evil):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/e.txt');
\echo :LAST_ERROR_SQLSTATE
-- A function of the user's own found first on a search path.
CREATE FUNCTION doc_filt_own.ps2ascii(i text, o text) RETURNS text LANGUAGE sql AS $$ SELECT o $$;
RESET ROLE;
SELECT formatconvert('format(evil):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/e.txt');
\echo :LAST_ERROR_SQLSTATE
-- Nor for another ordinary role.
CREATE ROLE doc_filt_other IN ROLE pg_read_server_files, pg_write_server_files;
SET ROLE doc_filt_other;
SELECT formatconvert('format(evil):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/e.txt');
\echo :LAST_ERROR_SQLSTATE
RESET ROLE;
DROP ROLE doc_filt_other;
-- A bare step name is looked up in the extension's schema only: the
-- function of the same name first on the search path is not taken for it.
SET search_path = doc_filt_own, public;
SELECT formatconvert('format(postscript):/tmp/doc_filt_regress/ls.1', 'format(ascii):/tmp/doc_filt_regress/e.txt');
RESET search_path;
SELECT doc_filt.exists('/tmp/doc_filt_regress/evil_ran') AS program_ran;
DELETE FROM "DocumentConversions" WHERE NOT installed;
REVOKE ALL ON "DocumentConversions", "DocumentConversionsRemoved" FROM doc_filt_user;
DROP SCHEMA doc_filt_own CASCADE;
DROP ROLE doc_filt_user;

-- ---- installed rows that users delete or change ------------------------------------
BEGIN;
DELETE FROM "DocumentConversions" WHERE source_format = 'wordstar';
UPDATE "DocumentConversions" SET function_name = 'ps2ascii' WHERE source_format = 'dvips';
INSERT INTO "DocumentConversions" VALUES ('ps', 'ascii', 'ps2ascii');
SELECT * FROM "DocumentConversionsRemoved";
SELECT source_format, function_name, installed FROM "DocumentConversions" WHERE NOT installed;
-- A recorded removal (as a restore replays it) removes the installed row.
INSERT INTO "DocumentConversionsRemoved" VALUES ('xywrite', 'ascii', 'ravelconv');
SELECT count(*) AS xywrite_rows FROM "DocumentConversions" WHERE source_format = 'xywrite';
TRUNCATE "DocumentConversions";
SELECT count(*) AS recorded FROM "DocumentConversionsRemoved";
ROLLBACK;
SELECT count(*) AS rows, count(*) FILTER (WHERE installed) AS installed FROM "DocumentConversions";

DROP SCHEMA doc_filt CASCADE;
RESET document.tmpdir;
COPY (SELECT 1) TO PROGRAM 'rm -rf /tmp/doc_filt_regress; cat >/dev/null';
