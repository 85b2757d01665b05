-- Server files read as documents through the 2048-byte buffer.
\set VERBOSITY default
\getenv dir DOC_SERVER_DIR
\set d :dir/text_files
\setenv TF_DIR :d
\! mkdir -p "$TF_DIR"

-- 2048 bytes: 511 times "dog " and "catx" without white space at the end:
-- the last word is not counted.
\! printf 'dog %.0s' $(seq 511) > "$TF_DIR/f2048"; printf 'catx' >> "$TF_DIR/f2048"
\! wc -c < "$TF_DIR/f2048"
SELECT * FROM dt_FileTerms(:'d' || '/f2048') ORDER BY term;
-- The same words ending in a newline: every word counts.
\! printf 'dog %.0s' $(seq 510) > "$TF_DIR/f2048nl"; printf 'cats   \n' >> "$TF_DIR/f2048nl"
\! wc -c < "$TF_DIR/f2048nl"
SELECT * FROM dt_FileTerms(:'d' || '/f2048nl') ORDER BY term;
-- Many buffers; the last word has no white space after it.
\! for i in $(seq 3000); do printf 'Boxes churches mice The '; done > "$TF_DIR/big"; printf 'omega' >> "$TF_DIR/big"
SELECT * FROM dt_FileTerms(:'d' || '/big') ORDER BY term;
-- A run of 4096 characters without white space fills two whole buffers and
-- is dropped.
\! head -c 4096 /dev/zero | tr '\0' 'x' > "$TF_DIR/run"; printf ' dogs cats\n' >> "$TF_DIR/run"
SELECT * FROM dt_FileTerms(:'d' || '/run') ORDER BY term;
-- No white space at all, and an empty file: no terms.
\! printf 'lonely' > "$TF_DIR/lonely"; : > "$TF_DIR/empty"
SELECT count(*) FROM dt_FileTerms(:'d' || '/lonely');
SELECT count(*) FROM dt_FileTerms(:'d' || '/empty');
-- Stop words, punctuation and case.
\! printf '(The) Dogs! and the DOG, mice\n' > "$TF_DIR/words"
SELECT * FROM dt_FileTerms(:'d' || '/words') ORDER BY term;
-- A word of 1025 characters in a file.
\! head -c 1025 /dev/zero | tr '\0' 'q' > "$TF_DIR/long"; printf ' end\n' >> "$TF_DIR/long"
-- The message names the file, whose folder differs from run to run.
CREATE FUNCTION pg_temp.try_message(sql text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE sql;
    RETURN 'no error';
EXCEPTION WHEN OTHERS THEN
    RETURN SQLSTATE || ' ' || SQLERRM;
END $$;
\set VERBOSITY sqlstate
SELECT * FROM dt_FileTerms(:'d' || '/long');
\set VERBOSITY default
SELECT position('/text_files/long"' in pg_temp.try_message('SELECT * FROM dt_FileTerms(' || quote_literal(:'d' || '/long') || ')')) > 0 AS names_the_file;
\echo :LAST_ERROR_SQLSTATE

-- Missing files and directories.
SELECT * FROM dt_FileTerms('/nonexistent/dir/file');
\echo :LAST_ERROR_SQLSTATE
SELECT * FROM dt_FileTerms('/');
\echo :LAST_ERROR_SQLSTATE

-- Naming a server file needs the rights of COPY FROM a file.
CREATE ROLE text_files_user;
SET ROLE text_files_user;
SELECT * FROM dt_FileTerms('/etc/hostname');
\echo :LAST_ERROR_SQLSTATE
RESET ROLE;
GRANT pg_read_server_files TO text_files_user;
SET ROLE text_files_user;
SELECT count(*) FROM dt_FileTerms(:'d' || '/words');
RESET ROLE;
DROP ROLE text_files_user;

\! rm -rf "$TF_DIR"
