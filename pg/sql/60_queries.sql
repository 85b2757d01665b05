
-- Searching documents one row at a time.
--
-- Contains(doc, query): the query language ("dog and !cat").
-- ContainsWords(doc, words): any word of a list; an options prefix
--   ("=10 | %50 | ") is skipped.
-- DocLike(doc, other): any term of the other document.
-- The query is parsed once per call site and the document is read only as
-- far as the answer needs (a query nothing or everything matches does not
-- open it).
-- Planner support of the three: a call is estimated as its operator is.
CREATE FUNCTION dt_search_support(internal) RETURNS internal
    AS 'MODULE_PATHNAME', 'pgdoc_dt_search_support' LANGUAGE C STRICT;
COMMENT ON FUNCTION dt_search_support(internal) IS 'planner support of Contains, ContainsWords and DocLike: the same estimate as their operators';
CREATE FUNCTION Contains(doc, text) RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_Contains' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED
    SUPPORT dt_search_support;
CREATE FUNCTION ContainsWords(doc, text) RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_ContainsWords' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED
    SUPPORT dt_search_support;
CREATE FUNCTION DocLike(doc, doc) RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_DocLike' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED
    SUPPORT dt_search_support;

-- A document's terms as a query, each weighted by its count: "(dog:2 or cat:1)".
CREATE FUNCTION MakeQueryFromDoc(doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_MakeQueryFromDoc' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;

-- The rewritten tree of a query as text: "(dog andnot cat )", "ALL ",
-- "emptry tree" for a query that nothing matches.
CREATE FUNCTION PrintExprTree(query text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_PrintExprTree' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
-- The same for the word list of ContainsWords.
CREATE FUNCTION dt_PrintWordList(words text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_PrintWordList' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
-- The words of a rewritten query (or of a word list), left to right, with
-- their weights.
CREATE FUNCTION dt_QueryTerms(query text, wordlist boolean DEFAULT false,
                              OUT term text, OUT weight integer) RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_QueryTerms' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
-- The options prefix of a word list: row limit (-1: none), percentage as
-- a fraction, and the words after the prefix.
CREATE FUNCTION dt_QueryOptions(words text, OUT tupcnt integer, OUT percent real,
                                OUT wordlist text) RETURNS record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_QueryOptions' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;

-- Restriction estimators of the search operators.
CREATE FUNCTION dt_querysel(internal, oid, internal, integer) RETURNS double precision
    AS 'MODULE_PATHNAME', 'pgdoc_dt_querysel' LANGUAGE C STABLE STRICT PARALLEL SAFE;
CREATE FUNCTION dt_wordlistsel(internal, oid, internal, integer) RETURNS double precision
    AS 'MODULE_PATHNAME', 'pgdoc_dt_wordlistsel' LANGUAGE C STABLE STRICT PARALLEL SAFE;
CREATE FUNCTION dt_doclikesel(internal, oid, internal, integer) RETURNS double precision
    AS 'MODULE_PATHNAME', 'pgdoc_dt_doclikesel' LANGUAGE C STABLE STRICT PARALLEL SAFE;

-- The search operators (the strategies of the dtree operator class):
--   body @@ 'dog and !cat'     Contains
--   body @@@ 'dogs cats'       ContainsWords
--   body % other               DocLike
CREATE OPERATOR @@ (LEFTARG = doc, RIGHTARG = text, FUNCTION = Contains,
                    RESTRICT = dt_querysel, JOIN = contjoinsel);
CREATE OPERATOR @@@ (LEFTARG = doc, RIGHTARG = text, FUNCTION = ContainsWords,
                     RESTRICT = dt_wordlistsel, JOIN = contjoinsel);
CREATE OPERATOR % (LEFTARG = doc, RIGHTARG = doc, FUNCTION = DocLike,
                   RESTRICT = dt_doclikesel, JOIN = contjoinsel);
