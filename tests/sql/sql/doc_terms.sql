-- Terms as rows, documents made from text in the database, and the errors
-- and hints a user meets on the way.
\set VERBOSITY default
CREATE TABLE notes(id int PRIMARY KEY, body text, d doc);
CREATE TRIGGER notes_lo AFTER INSERT OR UPDATE OR DELETE ON notes
    FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects();
INSERT INTO notes(id, body) VALUES
    (1, 'The dogs chased the cats; the cats ran. '),
    (2, repeat('Running horses and running dogs. ', 20)),
    (3, ''),
    (4, 'Stop words only: the and of a ');
UPDATE notes SET d = dt_FromText(body, 'format(ascii):note' || id);

-- Small texts stay in the row, longer ones go to a large object.
SELECT id, regexp_replace(d::text, 'handle\(\d+\)', 'handle(N)') AS d, DocLength(d) = octet_length(body) AS full_length,
       dt_LOOid(d) IS NOT NULL AS in_large_object, DocWordCnt(d), DocUWordCnt(d)
FROM notes ORDER BY id;
SELECT id, GetDocText(d) = body AS same_text FROM notes ORDER BY id;

-- The rows carry exactly the items of the text forms, in the same order.
SELECT id, IndexTerms(d) = coalesce((SELECT string_agg(term || ':' || count, ' ') || ' '
                                     FROM dt_Terms(d)), '') AS terms_agree,
       TopNTerms(d, 2) = coalesce((SELECT string_agg(term || ':' || count, ' ') || ' '
                                   FROM dt_TopTerms(d, 2)), '') AS top_agree
FROM notes ORDER BY id;
SELECT * FROM dt_Terms((SELECT d FROM notes WHERE id = 1)) ORDER BY count DESC, term;
SELECT n.id, t.term, t.count FROM notes n, dt_TopTerms(n.d, 1) t ORDER BY n.id;
SELECT count(*) FROM dt_TopTerms((SELECT d FROM notes WHERE id = 2), 0);
SELECT count(*) FROM dt_TopTerms((SELECT d FROM notes WHERE id = 2), -3);
SELECT sum(t.count) = min(DocWordCnt(n.d)) AS counts_add_up FROM notes n, dt_Terms(n.d) t WHERE n.id = 2;
SELECT * FROM dt_Terms(NULL);

-- A table of texts searched without files.
SELECT id FROM notes WHERE Contains(d, 'horse and dog') ORDER BY id;
SELECT id FROM notes WHERE d @@ 'cat or horse' ORDER BY id;
SELECT id FROM notes WHERE Contains(dt_FromText(body), 'cat') ORDER BY id;

-- Parameters of the literal apply; ExternalFile and bad limits do not.
SELECT dt_LOOid(dt_FromText(repeat('word ', 100), 'format(ascii),ExpandLimit(2048):big')) IS NULL AS in_row;
SELECT DocLength(dt_FromText(repeat('word ', 100), 'format(ascii),NoCopyText:terms')) AS nocopy_length;
SELECT dt_FromText('abc', 'format(ascii),ExternalFile:/etc/hostname');
SELECT dt_FromText('abc', 'format(ascii),ExpandLimit(-1):x');
SELECT dt_FromText('abc', 'format(ascii:x');
SELECT dt_FromText(NULL) IS NULL AS null_in_null_out;

-- Errors of entering and of queries.
SELECT ''::doc;
SELECT '/tmp/a:b'::doc;
SELECT PrintExprTree('debian and not cluster');
SELECT PrintExprTree('debian and !cluster');
SELECT dt_FromText('x y', 'format(nroffish):t');
DROP TABLE notes;
