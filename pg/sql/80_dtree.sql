
-- ---- The dtree index access method ------------------------------------------
-- An inverted index over a doc column: for every term, the rows whose
-- documents hold it, with the occurrence count and the document's word
-- count; a meta page keeps the collection totals.
CREATE FUNCTION dtree_handler(internal) RETURNS index_am_handler
    AS 'MODULE_PATHNAME', 'pgdoc_dtree_handler' LANGUAGE C STRICT;
COMMENT ON FUNCTION dtree_handler(internal) IS 'handler of the dtree index access method';

CREATE ACCESS METHOD dtree TYPE INDEX HANDLER dtree_handler;
COMMENT ON ACCESS METHOD dtree IS 'inverted index of the terms of doc values';

-- The search operators are the strategies: 1 Contains, 2 ContainsWords,
-- 3 DocLike.
CREATE OPERATOR CLASS doc_dtree_ops DEFAULT FOR TYPE doc USING dtree AS
    OPERATOR 1 @@ (doc, text),
    OPERATOR 2 @@@ (doc, text),
    OPERATOR 3 % (doc, doc);
COMMENT ON OPERATOR CLASS doc_dtree_ops USING dtree IS 'dtree index of a doc column';

-- A column of any other type reaches the build, which refuses it with the
-- index's own error (U0001) rather than the server's "no default operator
-- class".  This class has no operators, so no condition ever uses it.
CREATE OPERATOR CLASS dtree_other_ops DEFAULT FOR TYPE anyelement USING dtree AS STORAGE anyelement;
COMMENT ON OPERATOR CLASS dtree_other_ops USING dtree IS
    'lets a dtree index on a column that is not doc fail with the index''s own error';

-- The counters of a dtree index: "terms=N, docs=N".
CREATE FUNCTION ReadMetaTerms(text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_ReadMetaTerms' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION ReadMetaTerms(text) IS
    'term occurrences and documents counted by the named dtree index';

-- The stems of a text become extra terms of one row in a dtree index.
CREATE FUNCTION AddIndexTerms(text, tid, text) RETURNS void
    AS 'MODULE_PATHNAME', 'pgdoc_AddIndexTerms' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION AddIndexTerms(text, tid, text) IS
    'adds the stems of a text as terms of a row to the named dtree index';

-- Verifies the structure of a dtree index; raises an error at the first
-- fault, else returns true.
CREATE FUNCTION dt_CheckIndex(index regclass) RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_dt_CheckIndex' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION dt_CheckIndex(regclass) IS 'verifies the structure of a dtree index';
REVOKE ALL ON FUNCTION dt_CheckIndex(regclass) FROM PUBLIC;

-- Size and contents of a dtree index.
CREATE FUNCTION dt_IndexStats(index regclass,
    OUT distinct_terms bigint, OUT postings bigint, OUT documents bigint,
    OUT meta_pages bigint, OUT internal_pages bigint, OUT leaf_pages bigint,
    OUT posting_pages bigint, OUT free_pages bigint, OUT bytes bigint)
    AS 'MODULE_PATHNAME', 'pgdoc_dt_IndexStats' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION dt_IndexStats(regclass) IS
    'distinct terms, postings, documents, pages by kind and bytes of a dtree index';

-- Every posting of a dtree index, the document list (term '', count = the
-- term occurrences indexed for the row) first, then the terms in byte
-- order, each in row order.
CREATE FUNCTION dt_IndexEntries(index regclass)
    RETURNS TABLE (term text, row_id tid, count integer, wordcnt bigint)
    AS 'MODULE_PATHNAME', 'pgdoc_dt_IndexEntries' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION dt_IndexEntries(regclass) IS 'every posting of a dtree index';
REVOKE ALL ON FUNCTION dt_IndexEntries(regclass) FROM PUBLIC;
