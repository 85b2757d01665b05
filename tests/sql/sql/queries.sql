-- The query language through SQL: rewrites, errors, word lists, options,
-- and the search operators on documents held in server files.
\set VERBOSITY default
\getenv dir DOC_SERVER_DIR
\set d :dir/queries
\setenv Q_DIR :d
\! mkdir -p "$Q_DIR"

-- The rewritten tree of each query.
SELECT q AS query, PrintExprTree(q) AS tree
  FROM unnest(ARRAY[
    'dog', 'Dogs', 'dog and cat', 'dog or cat',
    'dog and !cat', '!cat and dog', '!dog', '!!dog', '!!!dog', '!!!!dog',
    '!cat or !dog', '!cat or dog', 'cat or !dog', '!(cat and dog)', '!(cat or dog)',
    '!cat and !dog', '!!(cat and dog)', '!(!cat and dog)',
    'dog andnot cat', 'dog anders cat', 'dog order cat', 'dog or cat and tree',
    'dog and cat or tree', 'dog or (cat and tree)', '(dog)', '((dog or cat))',
    'the', '!the', 'the and dog', 'the or dog', 'dog and the', 'dog or the',
    'dog and !the', 'dog or !the', '!the or !dog', 'the and !dog', '!(the or dog)',
    'of and the', 'dog:5', 'dogs:3 and cats:2', 'the:4', 'dog and !', 'dog and )'
  ]) WITH ORDINALITY AS t(q, n) ORDER BY n;

-- Weights: a count after a word is its weight; "dog:x" is no count.
SELECT * FROM dt_QueryTerms('dog:5');
SELECT * FROM dt_QueryTerms('Dogs:12 or cat or mice:0');
SELECT PrintExprTree('dog:x');
\echo :LAST_ERROR_SQLSTATE
-- No digit right after the colon: no count, and "5" is no word.
SELECT PrintExprTree('dog: 5');

-- Parser errors.
SELECT PrintExprTree('');
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree('dog and');
\echo :LAST_ERROR_SQLSTATE
-- After a run of "!" the end of the text is taken as an empty word.
SELECT PrintExprTree('!');
SELECT PrintExprTree('(dog');
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree('dog)');
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree('()');
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree('dog but cat');
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree('dog AND cat');
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree('dog cat');
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree(repeat('q', 1025));
\echo :LAST_ERROR_SQLSTATE
SELECT PrintExprTree(repeat('(', 1001) || 'dog' || repeat(')', 1001));
\echo :LAST_ERROR_SQLSTATE
SELECT length(PrintExprTree(repeat('(', 1000) || 'dog' || repeat(')', 1000)));

-- The options prefix of word lists.
SELECT w AS words, o.*
  FROM unnest(ARRAY['%25|=3|apple', '=3 %25 apple', '=10 | %50 | dog cat', 'dog cat',
                    '=5 dog', '=1|=2|%10|%20|x', '  =7  |  dogs', '%abc|dog', '=|dog', '']) WITH ORDINALITY AS t(w, n),
       dt_QueryOptions(w) o ORDER BY n;

-- Word lists: or'ed stems with weights; stop words only: every document;
-- no word at all: no document.
SELECT w AS words, dt_PrintWordList(w) AS tree
  FROM unnest(ARRAY['dogs:3 cats', 'the of', '', '123 456', '=10|%50|dog cat',
                    '=3 %25 apple', 'The (dogs), mice! and: geese']) WITH ORDINALITY AS t(w, n)
 ORDER BY n;
SELECT * FROM dt_QueryTerms('dogs:3 cats', true);

-- Documents in server files.
\! printf 'Two dogs chased a cat up the tree.\n' > "$Q_DIR/dogcat"
\! printf 'The mice ran from the geese and the dogs.\n' > "$Q_DIR/mice"
\! printf 'A quiet river.\n' > "$Q_DIR/river"
\! printf 'the of and a\n' > "$Q_DIR/stops"
\! : > "$Q_DIR/empty"
\! printf 'dog dog cat\n' > "$Q_DIR/ddc"
CREATE TABLE qdocs (id int, body doc);
INSERT INTO qdocs VALUES
  (1, ('format(ascii),ExternalFile:' || :'d' || '/dogcat')::doc),
  (2, ('format(ascii),ExternalFile:' || :'d' || '/mice')::doc),
  (3, ('format(ascii),ExternalFile:' || :'d' || '/river')::doc),
  (4, ('format(ascii),ExternalFile:' || :'d' || '/stops')::doc),
  (5, ('format(ascii),ExternalFile:' || :'d' || '/empty')::doc);

-- Each query against each document: the ids that match.
SELECT q AS query, array_agg(id ORDER BY id) FILTER (WHERE Contains(body, q)) AS matches
  FROM unnest(ARRAY[
    'dog', 'dog and cat', 'dog and !cat', '!cat and dog', 'dog andnot cat',
    'bird or tree', 'bird or tree and cat', 'bird or (tree and mouse)', '!(bird or mouse)',
    '!!dog', '!!!dog', 'dogs:5 and cats:2', 'the', '!the', 'the and dog', 'the or dog',
    'mouse and goose', 'Mice or RIVERS', 'run', '!river and !dog', 'quiet and !the',
    'dog and !'
  ]) WITH ORDINALITY AS t(q, n) CROSS JOIN qdocs
 GROUP BY q, n ORDER BY n;

-- The operators are the functions.
SELECT id, body @@ 'dog and !mouse' AS contains, body @@@ '=10|%50|geese river' AS words
  FROM qdocs ORDER BY id;
SELECT w AS words, array_agg(id ORDER BY id) FILTER (WHERE ContainsWords(body, w)) AS matches
  FROM unnest(ARRAY['=10|%50|dog cat', 'dogs:3 cats', 'the of', '', '123 456', 'river']) WITH ORDINALITY AS t(w, n)
  CROSS JOIN qdocs GROUP BY w, n ORDER BY n;

-- DocLike: shares a term; a document without terms is like nothing.
SELECT a.id, array_agg(b.id ORDER BY b.id) FILTER (WHERE DocLike(a.body, b.body)) AS like_it,
       array_agg(b.id ORDER BY b.id) FILTER (WHERE a.body % b.body) AS op
  FROM qdocs a CROSS JOIN qdocs b GROUP BY a.id ORDER BY a.id;

-- Queries from documents.
SELECT MakeQueryFromDoc(('format(ascii),ExternalFile:' || :'d' || '/ddc')::doc)
       IN ('(dog:2 or cat:1)', '(cat:1 or dog:2)') AS dog_dog_cat;
SELECT id, MakeQueryFromDoc(body) FROM qdocs WHERE id IN (3, 4, 5) ORDER BY id;
-- A document's own query finds it.
SELECT id, Contains(body, MakeQueryFromDoc(body)) FROM qdocs WHERE id <= 3 ORDER BY id;

-- A query that nothing or everything matches does not open the document:
-- the file of this one is gone.
\! printf 'dogs and cats\n' > "$Q_DIR/gone"
INSERT INTO qdocs VALUES (6, ('format(ascii),ExternalFile:' || :'d' || '/gone')::doc);
\! rm "$Q_DIR/gone"
SELECT Contains(body, '!the') AS not_the, Contains(body, 'the') AS the,
       Contains(body, 'the or dog') AS the_or_dog, ContainsWords(body, '') AS nothing,
       ContainsWords(body, 'the of') AS stops
  FROM qdocs WHERE id = 6;
-- A query with a word has to open it.
CREATE FUNCTION try_query(sql text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE r text;
BEGIN
    EXECUTE sql INTO r;
    RETURN r;
EXCEPTION WHEN OTHERS THEN
    RETURN 'error ' || SQLSTATE;
END $$;
SELECT try_query('SELECT Contains(body, ''dog'') FROM qdocs WHERE id = 6');
SELECT try_query('SELECT Contains(body, ''!dog'') FROM qdocs WHERE id = 6');
SELECT try_query('SELECT ContainsWords(body, ''dog'') FROM qdocs WHERE id = 6');
-- DocLike with a termless document as the query does not open the row's.
SELECT DocLike(a.body, b.body) FROM qdocs a, qdocs b WHERE a.id = 6 AND b.id = 5;
SELECT try_query('SELECT DocLike(a.body, b.body) FROM qdocs a, qdocs b WHERE a.id = 6 AND b.id = 1');
SELECT try_query('SELECT MakeQueryFromDoc(body) FROM qdocs WHERE id = 6');
DELETE FROM qdocs WHERE id = 6;

-- A bad query is an error of the statement, also for a row the query
-- would not need.
SELECT count(*) FROM qdocs WHERE Contains(body, 'dog and');
\echo :LAST_ERROR_SQLSTATE
SELECT count(*) FROM qdocs WHERE body @@ 'dog but cat';
\echo :LAST_ERROR_SQLSTATE

-- One call site with a different query per row.
SELECT id, q, Contains(body, q)
  FROM qdocs JOIN (VALUES (1, 'cat'), (2, 'cat'), (3, 'river'), (4, 'the'), (5, '!the')) v(id, q) USING (id)
 ORDER BY id;

-- The parsed query of a call site follows changes of the WordNet tables:
-- the same expression evaluated before and after a new irregular form.
BEGIN;
CREATE FUNCTION q_twice(b doc) RETURNS text LANGUAGE plpgsql AS $$
DECLARE out text := '';
BEGIN
    FOR i IN 1..2 LOOP
        IF i = 2 THEN INSERT INTO wordnet_excl VALUES ('zorgs', 'dog'); END IF;
        out := out || Contains(b, 'zorgs')::text || ' ';
    END LOOP;
    RETURN out;
END $$;
SELECT q_twice(body) FROM qdocs WHERE id = 1;
ROLLBACK;
SELECT Contains(body, 'zorgs') FROM qdocs WHERE id = 1;

-- Estimates: a query everything matches, one nothing matches, and words.
CREATE TABLE qest AS SELECT body FROM qdocs, generate_series(1, 200);
ANALYZE qest;
CREATE FUNCTION est(q text) RETURNS text LANGUAGE plpgsql AS $$
DECLARE line text;
BEGIN
    FOR line IN EXECUTE 'EXPLAIN ' || q LOOP
        RETURN substring(line FROM 'rows=([0-9]+)');
    END LOOP;
END $$;
SELECT q, est('SELECT * FROM qest WHERE ' || q) AS rows
  FROM unnest(ARRAY['body @@ ''the''', 'body @@ ''!the''', 'body @@ ''dog''',
                    'body @@ ''dog or cat''', 'body @@ ''dog and cat''', 'body @@@ ''the of''',
                    'body @@@ ''dog cat river''', 'body % body', 'body @@ ''dog and''']) WITH ORDINALITY AS t(q, n)
 ORDER BY n;
DROP TABLE qest;
DROP FUNCTION est(text);
DROP FUNCTION try_query(text);
DROP TABLE qdocs;
\! rm -rf "$Q_DIR"
