-- The WordNet relations and scans are kept between uses in a transaction
-- and taken over by the next use under the same snapshot; they never stand
-- in the way of commands on the tables, never outlive the subtransaction
-- that opened them, and never show another snapshot's rows.
\set VERBOSITY default

-- Kept, not open: between statements nothing has the tables open.
BEGIN ISOLATION LEVEL REPEATABLE READ;
SELECT StemWord('boxes'), StemWord('churches'), StripAndStemText('mice and geese');
SELECT dt_WordnetIsOpen();
SELECT StemWord('glasses') AS same_snapshot;
-- Commands that need the tables to themselves run in the same transaction.
ALTER TABLE wordnet_excl ADD COLUMN note text;
SELECT StemWord('mice') AS after_alter;
CREATE TEMP TABLE keep_excl AS SELECT inflected, base FROM wordnet_excl;
TRUNCATE wordnet_excl;
SELECT StemWord('mice') AS after_truncate, StemWord('geese') AS geese;
INSERT INTO wordnet_excl (inflected, base) SELECT inflected, base FROM keep_excl;
SELECT StemWord('mice') AS after_reload;
REINDEX INDEX wordnet_stems_index;
SELECT StemWord('churches') AS after_reindex;
ROLLBACK;
SELECT StemWord('mice') AS after_rollback;

-- Savepoints: released, rolled back, and an error inside one.
BEGIN;
SELECT StemWord('boxes');
SAVEPOINT a;
SELECT StemWord('churches');
RELEASE a;
SELECT StemWord('glasses');
SAVEPOINT b;
SELECT StemWord('zorgs');
INSERT INTO wordnet_excl VALUES ('zorgs', 'dog');
SELECT StemWord('zorgs') AS inside_b;
ROLLBACK TO b;
SELECT StemWord('zorgs') AS after_rollback_to_b;
SAVEPOINT c;
SELECT StemWord('dogs' || repeat('y', 1100));
\echo :LAST_ERROR_SQLSTATE
ROLLBACK TO c;
SELECT StemWord('dogs'), dt_WordnetIsOpen();
COMMIT;

-- A cursor keeps its own snapshot: its rows are stemmed as it sees the
-- tables, while the statements between its fetches see the change.
BEGIN;
DECLARE c CURSOR FOR
    SELECT w, StemWord(w) FROM unnest(ARRAY['churches', 'boxes', 'churches']) WITH ORDINALITY AS t(w, n) ORDER BY n;
FETCH 1 FROM c;
INSERT INTO wordnet_excl VALUES ('churches', 'chapel');
SELECT StemWord('churches') AS new_statement;
FETCH 2 FROM c;
SELECT StemWord('churches') AS again;
ROLLBACK;

-- Functions that catch errors around stemming, row after row.
CREATE TABLE reuse_words (id int, w text);
INSERT INTO reuse_words VALUES (1, 'boxes'), (2, repeat('x', 1100)), (3, 'mice'), (4, 'churches');
CREATE FUNCTION stem_or_error(w text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    RETURN StemWord(w);
EXCEPTION WHEN OTHERS THEN
    RETURN 'error ' || SQLSTATE;
END $$;
SELECT id, stem_or_error(w), StemWord(left(w, 10)) FROM reuse_words ORDER BY id;
SELECT dt_WordnetIsOpen();
DROP FUNCTION stem_or_error(text);
DROP TABLE reuse_words;
