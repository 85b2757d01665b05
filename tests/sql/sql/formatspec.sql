-- Parameter values of format specifications.
SELECT findparamtx('version', ' format ( wp ) ,, version(5.1):/p') AS v;
SELECT findparamtx('format', 'format(ascii):/tmp/a') AS f;
SELECT '[' || findparamtx('format', 'format( wp ):/tmp/a') || ']' AS kept_blanks;
-- A blank inside the run of commas ends the list.
SELECT findparamtx('version', 'format(wp), ,version(5.1)') IS NULL AS absent;
-- A name must be followed by "(", "," or the end.
SELECT findparamtx('format', 'format:/x') IS NULL AS absent;
SELECT '[' || findparamtx('format', 'nocopy,format') || ']' AS empty_value;
-- Nested parentheses belong to the value.
SELECT findparamtx('format', 'format(a(b)c)') AS nested;
-- Unbalanced: not found.
SELECT findparamtx('format', 'format(abc') IS NULL AS absent;
-- Absent is SQL null, not an empty text.
SELECT findparamtx('ImportName', 'format(ascii)') IS NULL AS is_null;
SELECT findparamtx('format', '') IS NULL AS is_null;
SELECT findparamtx(NULL, 'format(ascii)') IS NULL AS is_null;
-- Names compare exactly.
SELECT findparamtx('Format', 'format(ascii)') IS NULL AS is_null;
SELECT findparamtx('format', 'formatx(a),format(b)') AS exact;
-- The path is never read.
SELECT findparamtx('x', 'format(a):x(1)') IS NULL AS is_null;

-- On doc values: the stored specification, or format(ascii) when none.
\set hostname `echo /etc/hostname`
SELECT findparamdoc('format', ('format(wp),version(5.1),ExternalFile:' || :'hostname')::doc) AS f;
SELECT findparamdoc('version', ('format(wp),version(5.1),ExternalFile:' || :'hostname')::doc) AS v;
SELECT findparamdoc('ExpandLimit', ('format(wp),ExternalFile:' || :'hostname')::doc) IS NULL AS is_null;
