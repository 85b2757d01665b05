
-- Documents and their terms as rows, beside the text forms.

-- A document's terms as rows (term, count), most frequent first: the items
-- of IndexTerms.
CREATE FUNCTION dt_Terms(d doc, OUT term text, OUT count integer) RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_Terms' LANGUAGE C STRICT STABLE PARALLEL RESTRICTED ROWS 100;
COMMENT ON FUNCTION dt_Terms(doc) IS
    'the terms of a document with their counts, one row each, most frequent first (the items of IndexTerms)';

-- The n most frequent terms as rows: the items of TopNTerms (none for n <= 0).
CREATE FUNCTION dt_TopTerms(d doc, n integer, OUT term text, OUT count integer) RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_TopTerms' LANGUAGE C STRICT STABLE PARALLEL RESTRICTED ROWS 10;
COMMENT ON FUNCTION dt_TopTerms(doc, integer) IS
    'the n most frequent terms of a document with their counts, one row each (the items of TopNTerms)';

-- A document made from text already in the database, as docsql would enter
-- a client file holding that text: stored in the row up to 100 bytes (or
-- ExpandLimit), else in a large object with its term table.  The literal
-- gives the format parameters and the name the document is shown with.
CREATE FUNCTION dt_FromText(contents text, literal text DEFAULT 'format(ascii):text') RETURNS doc
    AS 'MODULE_PATHNAME', 'pgdoc_dt_FromText' LANGUAGE C STRICT VOLATILE PARALLEL UNSAFE;
COMMENT ON FUNCTION dt_FromText(text, text) IS
    'a document whose text is the given text; the literal (default format(ascii):text) gives its format parameters and name';
