-- The WordNet relations and scans are kept between uses in a transaction
-- and taken over by the next use under the same snapshot (or one of
-- another command that reads the same version row); they never stand
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

-- A function run by a writing statement plans each of its queries under
-- the statement's snapshot and runs it under a snapshot of its own, later
-- command.  The tables are taken over between the two while they read the
-- same; a change of them in between is seen by the next query, and the
-- statement's own snapshot never sees it.
CREATE TABLE reuse_docs (id int, body doc);
INSERT INTO reuse_docs VALUES (1, dt_FromText('a dog barks at night')), (2, dt_FromText('zorgs run in the hills')),
    (3, dt_FromText('a cat sleeps'));
CREATE INDEX reuse_docs_dt ON reuse_docs USING dtree (body);
CREATE FUNCTION zorgs_rounds() RETURNS text LANGUAGE plpgsql AS $$
DECLARE out text := ''; r text;
BEGIN
    FOR i IN 1..3 LOOP
        IF i = 2 THEN INSERT INTO wordnet_excl VALUES ('zorgs', 'dog'); END IF;
        IF i = 3 THEN DELETE FROM wordnet_excl WHERE inflected = 'zorgs'; END IF;
        EXECUTE 'SELECT string_agg(id::text, '','' ORDER BY id) FROM (SELECT id FROM reuse_docs WHERE body @@ $1
                   ORDER BY body <=> $1 LIMIT 10) s' INTO r USING 'zorgs';
        out := out || format('round %s: ranked %s', i, coalesce(r, '-'));
        EXECUTE 'SELECT string_agg(id::text, '','' ORDER BY id) FROM reuse_docs WHERE body @@ $1' INTO r USING 'zorgs';
        out := out || format(', rows %s, stem %s; ', coalesce(r, '-'), StemWord('zorgs'));
    END LOOP;
    RETURN out;
END $$;
SET enable_seqscan = off;
BEGIN;
CREATE TEMP TABLE zorgs_out AS SELECT zorgs_rounds() AS rounds;
TABLE zorgs_out;
INSERT INTO zorgs_out SELECT zorgs_rounds();
SELECT rounds FROM zorgs_out OFFSET 1;
ROLLBACK;
RESET enable_seqscan;
SELECT count(*) AS left_behind FROM wordnet_excl WHERE inflected = 'zorgs';
DROP FUNCTION zorgs_rounds();
DROP TABLE reuse_docs;
