-- Text of PostScript files by the conversion steps ps2ascii and dvips2ascii.
\set VERBOSITY default
\set SHOW_CONTEXT never
COPY (SELECT 1) TO PROGRAM 'rm -rf /tmp/doc_psf_regress && mkdir -p /tmp/doc_psf_regress; cat >/dev/null';
-- A real document: the man page of ls, formatted to PostScript by groff.
COPY (SELECT 1) TO PROGRAM 'zcat /usr/share/man/man1/ls.1.gz | groff -man -Tps >/tmp/doc_psf_regress/ls.ps 2>/dev/null; cat >/dev/null';
SELECT ps2ascii('format(postscript):/tmp/doc_psf_regress/ls.ps',
                'format(ascii):/tmp/doc_psf_regress/ls.txt') AS result;
SELECT t ~ 'directory' AS has_directory, t ~ 'alphabetically' AS has_alphabetically,
       t !~ 'showpage|setfont|moveto|Times-Roman' AS no_operators
  FROM pg_read_file('/tmp/doc_psf_regress/ls.txt') AS t;
-- Writes a server file with exactly the given text.
CREATE FUNCTION pg_temp.put_file(path text, body text) RETURNS void LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE format('COPY (SELECT %L) TO PROGRAM %L',
                   translate(encode(convert_to(body, 'UTF8'), 'base64'), E'\n', ''),
                   'base64 -d > ' || path);
END $$;
-- Hand-written PostScript: outermost strings followed by a space, nesting,
-- escapes, comments.
SELECT pg_temp.put_file('/tmp/doc_psf_regress/hand.ps',
    E'%!PS\n(Hello) show (World) show\n(a(b)c) show\n(x\\(y\\)\\tz) show % (comment)\n');
SELECT pg_read_file('/tmp/doc_psf_regress/hand.ps') AS source;
SELECT ps2ascii('/tmp/doc_psf_regress/hand.ps', '/tmp/doc_psf_regress/hand.txt') AS result;
SELECT pg_read_file('/tmp/doc_psf_regress/hand.txt') AS text;
-- PostScript in the style of dvips: operator letters, ligatures, quotes.
SELECT pg_temp.put_file('/tmp/doc_psf_regress/dvi.ps',
    E'100 200 a(Hello)p 50 b(world)p y(e\\013ort)p b(\\\\quoted)p a(\\09)p\n');
SELECT pg_read_file('/tmp/doc_psf_regress/dvi.ps') AS source;
SELECT dvips2ascii('/tmp/doc_psf_regress/dvi.ps', '/tmp/doc_psf_regress/dvi.txt') AS result;
SELECT pg_read_file('/tmp/doc_psf_regress/dvi.txt') AS text;
-- A file that cannot be opened gives null.
SELECT ps2ascii('/tmp/doc_psf_regress/missing.ps', '/tmp/doc_psf_regress/x.txt') IS NULL AS missing_input;
SELECT dvips2ascii('/tmp/doc_psf_regress/dvi.ps', '/tmp/doc_psf_regress/no/dir/x.txt') IS NULL AS bad_output;
-- Ordinary roles may not call the steps: they read and write server files.
CREATE ROLE doc_psf_nobody;
SET ROLE doc_psf_nobody;
SELECT ps2ascii('/etc/passwd', '/tmp/doc_psf_regress/stolen.txt');
SELECT dvips2ascii('/etc/passwd', '/tmp/doc_psf_regress/stolen.txt');
RESET ROLE;
DROP ROLE doc_psf_nobody;
COPY (SELECT 1) TO PROGRAM 'rm -rf /tmp/doc_psf_regress; cat >/dev/null';
