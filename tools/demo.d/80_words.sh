# demo: words in other languages, documents from text in the database, terms as rows, a query mistake and its hint
set -euo pipefail
psql -X -e <<'SQL'
SELECT StripAndStemText('Straße über Brücke naïve café résumé');
CREATE TABLE notes(id serial, body text, d doc);
INSERT INTO notes(body) VALUES
    ('Ein Résumé über die Brücke und die Straße.'),
    ('The dogs chased the cats up the old oak tree; the cats stayed there all night.'),
    (repeat('Running horses and running dogs. ', 10));
UPDATE notes SET d = dt_FromText(body, 'format(ascii):note' || id);
SELECT id, DocWordCnt(d) AS terms, CASE WHEN dt_LOOid(d) IS NULL THEN 'in row' ELSE 'large object' END AS stored
  FROM notes ORDER BY id;
SELECT n.id, t.term, t.count FROM notes n, dt_TopTerms(n.d, 2) t ORDER BY n.id, t.count DESC, t.term;
SELECT id FROM notes WHERE d @@ 'résumé and BRÜCKE';
SELECT id FROM notes WHERE d @@ 'dog and !horse';
\echo
\echo 'Intended error: "not" is a stop word, not an operator; the hint shows the way to say it.'
SELECT id FROM notes WHERE d @@ 'dog and not horse';
SQL
