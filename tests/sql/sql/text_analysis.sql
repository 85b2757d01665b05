-- Stop words, WordNet stemming and texts turned into terms, with the real
-- WordNet tables and the installed stop-word list.
\set VERBOSITY default

-- The WordNet tables as the install loaded them.
SELECT count(*) > 140000 AS many_base_forms FROM wordnet_stems;
SELECT count(*) > 6000 AS many_irregular_forms FROM wordnet_excl;
SELECT c.relname, i.indrelid::regclass AS on_table, coll.collname
  FROM pg_index i JOIN pg_class c ON c.oid = i.indexrelid
  JOIN pg_collation coll ON coll.oid = i.indcollation[0]
 WHERE c.relname IN ('wordnet_stems_index', 'wordnet_excl_index') ORDER BY 1;
-- No stop word is a base form, though WordNet lists "a", "in", "it".
SELECT count(*) AS stop_words_among_base_forms
  FROM wordnet_stems s JOIN dt_StopWords() w ON w.word = s.stem;
SELECT count(*) AS listed FROM dt_StopWords();
SELECT inflected, base FROM wordnet_excl WHERE inflected IN ('mice', 'geese', 'axes') ORDER BY 1, 2;

-- IsStopWord folds to lower case.
SELECT IsStopWord('the'), IsStopWord('THE'), IsStopWord('The'), IsStopWord('dog'), IsStopWord('');
-- 1023 characters are looked up, more are an error.
SELECT IsStopWord(repeat('a', 1023));
SELECT IsStopWord(repeat('a', 1024));
\echo :LAST_ERROR_SQLSTATE

-- Stemming.
SELECT w, StemWord(w) FROM unnest(ARRAY['boxes', 'churches', 'bus', 'glass', 'is', 'as',
    'happily', 'mice', 'Dog', 'Dogs', 'MICE', 'geese', 'flies', 'watches', 'walked',
    'hoping', 'nicer', 'zzyzx', 'Zzyzx', 'the', 'THE']) AS w;
-- "happily" is itself a base form (an adverb), so StemWord keeps it; the
-- rules alone reduce it to "happy".  Rules never touch words of one or two
-- characters or words ending in "ss"; "bus" is no "bu".
SELECT w, (dt_MorphWord(w)).* FROM unnest(ARRAY['happily', 'boxes', 'churches', 'bus',
    'glass', 'is', 'as', 'mice', 'dogs']) AS w;
-- A word whose accepted form is a stop word comes back flagged.
SELECT (dt_MorphWord('thes')).*;
-- 1024 characters are stemmed, 1025 are an error.
SELECT length(StemWord(repeat('x', 1024)));
SELECT StemWord(repeat('x', 1025));
\echo :LAST_ERROR_SQLSTATE
SELECT StemWord('');

-- Texts to terms.
SELECT StripAndStemText('dogs:3x cats');
SELECT StripAndStemText('dogs:3');
SELECT StripAndStemText('The dogs: cats:2 and mice');
SELECT OrTerms('The dogs: cats:2 and mice');
SELECT AndTerms('The dogs: cats:2 and mice');
SELECT OrTerms('the') = '' AS empty, AndTerms('the and of') = '' AS empty_too;
SELECT StripAndStemText('');
-- What a word is: "(", ")", "!" are tokens of their own and never terms;
-- a word starts with a letter and goes on with letters, digits and "_".
SELECT StripAndStemText('(dog) !cat a-b _x 3com x25_b 25x');
SELECT StripAndStemText('Churches, BOXES; glasses... happily!');
-- A word of 1024 characters is a term; 1025 is an error, and the next call
-- works (the WordNet tables were closed by the abort).
SELECT length(StripAndStemText('dogs ' || repeat('y', 1024)));
SELECT StripAndStemText('dogs cats ' || repeat('y', 1025) || ' mice');
\echo :LAST_ERROR_SQLSTATE
SELECT dt_WordnetIsOpen();
SELECT StripAndStemText('dogs cats mice');

-- An error inside a subtransaction, caught, then stemming again in the
-- same transaction.
DO $$
DECLARE r text;
BEGIN
    BEGIN
        PERFORM StripAndStemText('dogs ' || repeat('z', 2000));
    EXCEPTION WHEN OTHERS THEN
        RAISE NOTICE 'caught %', SQLSTATE;
    END;
    RAISE NOTICE 'open after the error: %', dt_WordnetIsOpen();
    r := AndTerms('boxes and churches');
    RAISE NOTICE 'then: %', r;
END $$;

-- A cancel in the middle of a long text (cache off, so every word goes to
-- the tables), then the next call works.
SET document.stem_cache = off;
SET statement_timeout = '100ms';
SELECT length(StripAndStemText(repeat('boxes churches glasses happily mice ', 200000)));
\echo :LAST_ERROR_SQLSTATE
RESET statement_timeout;
SELECT dt_WordnetIsOpen(), StemWord('boxes');
RESET document.stem_cache;

-- The stem cache follows changes of the WordNet tables, committed or not.
SELECT StemWord('boxes'), StemWord('boxes');
SELECT hits > 0 AS cache_used FROM dt_StemCacheStats();
BEGIN;
INSERT INTO wordnet_excl VALUES ('boxes', 'boxing');
SELECT StemWord('boxes') AS inside_the_change;
ROLLBACK;
SELECT StemWord('boxes') AS after_rollback;
DELETE FROM wordnet_stems WHERE stem = 'box';
SELECT StemWord('boxes') AS without_box, StripAndStemText('boxes churches');
INSERT INTO wordnet_stems VALUES ('box');
SELECT StemWord('boxes') AS box_again, StripAndStemText('boxes churches');
UPDATE wordnet_excl SET base = 'rodent' WHERE inflected = 'mice';
SELECT StemWord('mice');
UPDATE wordnet_excl SET base = 'mouse' WHERE inflected = 'mice';
SELECT StemWord('mice');
SELECT resets > 0 AS cache_was_emptied FROM dt_StemCacheStats();
-- With the cache off the answers are the same.
SET document.stem_cache = off;
SELECT StemWord('boxes'), StemWord('mice'), StripAndStemText('boxes churches');
RESET document.stem_cache;

-- The WordNet objects are found by name in the extension's schema; a
-- missing one is a clear error.
BEGIN;
ALTER INDEX wordnet_stems_index RENAME TO wordnet_stems_index_away;
SELECT StemWord('dogs');
\echo :LAST_ERROR_SQLSTATE
ROLLBACK;
BEGIN;
ALTER INDEX wordnet_excl_index RENAME TO wordnet_excl_index_away;
SELECT StripAndStemText('dogs');
\echo :LAST_ERROR_SQLSTATE
ROLLBACK;
SELECT StemWord('dogs');
