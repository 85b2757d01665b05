
-- ---- Relevance ranking --------------------------------------------------------
-- Every answer of a dtree index carries a weight, the probability of
-- relevance of a two-stage logistic-regression model; index scans return
-- rows in falling weight order.

-- The weight of one row for a query, by index name; 0 for a row not in the
-- answer.  The index is searched once per query and call site.
CREATE FUNCTION WeightContains(dtreename text, row_id tid, query text) RETURNS double precision
    AS 'MODULE_PATHNAME', 'pgdoc_WeightContains' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
COMMENT ON FUNCTION WeightContains(text, tid, text) IS
    'relevance weight of a row for a query of the query language, through the named dtree index';
CREATE FUNCTION WeightContainsWords(dtreename text, row_id tid, words text) RETURNS double precision
    AS 'MODULE_PATHNAME', 'pgdoc_WeightContainsWords' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
COMMENT ON FUNCTION WeightContainsWords(text, tid, text) IS
    'relevance weight of a row for a word list, through the named dtree index';
CREATE FUNCTION WeightDocLike(dtreename text, row_id tid, other doc) RETURNS double precision
    AS 'MODULE_PATHNAME', 'pgdoc_WeightDocLike' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
COMMENT ON FUNCTION WeightDocLike(text, tid, doc) IS
    'relevance weight of a row for the terms of another document, through the named dtree index';

-- The documents of the answer, in rank order, as one value: each document
-- whole, starting at a multiple of 4 bytes.
CREATE FUNCTION ListContains(dtreename text, query text) RETURNS bytea
    AS 'MODULE_PATHNAME', 'pgdoc_ListContains' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
COMMENT ON FUNCTION ListContains(text, text) IS
    'the documents matching a query, in rank order, as one value';
CREATE FUNCTION ListContainsWords(dtreename text, words text) RETURNS bytea
    AS 'MODULE_PATHNAME', 'pgdoc_ListContainsWords' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
COMMENT ON FUNCTION ListContainsWords(text, text) IS
    'the documents matching a word list, in rank order, as one value';
CREATE FUNCTION ListDocLike(dtreename text, other doc) RETURNS bytea
    AS 'MODULE_PATHNAME', 'pgdoc_ListDocLike' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
COMMENT ON FUNCTION ListDocLike(text, doc) IS
    'the documents sharing terms with another document, in rank order, as one value';

-- The answer as rows: (row, weight) in rank order.
CREATE FUNCTION dt_RankContains(dtreename text, query text)
    RETURNS TABLE (row_id tid, weight double precision)
    AS 'MODULE_PATHNAME', 'pgdoc_dt_RankContains' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED ROWS 100;
COMMENT ON FUNCTION dt_RankContains(text, text) IS
    'rows matching a query and their weights, in rank order, through the named dtree index';
CREATE FUNCTION dt_RankContainsWords(dtreename text, words text)
    RETURNS TABLE (row_id tid, weight double precision)
    AS 'MODULE_PATHNAME', 'pgdoc_dt_RankContainsWords' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED ROWS 100;
COMMENT ON FUNCTION dt_RankContainsWords(text, text) IS
    'rows matching a word list and their weights, in rank order, through the named dtree index';
CREATE FUNCTION dt_RankDocLike(dtreename text, other doc)
    RETURNS TABLE (row_id tid, weight double precision)
    AS 'MODULE_PATHNAME', 'pgdoc_dt_RankDocLike' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED ROWS 100;
COMMENT ON FUNCTION dt_RankDocLike(text, doc) IS
    'rows sharing terms with another document and their weights, in rank order, through the named dtree index';

-- The twelve coefficients of the model, for this session: the settings
-- document.rank_doc_len_coef ... document.rank_z_coef.  dt_SetDocParam sets
-- one as SET does (RESET, DISCARD ALL and a rollback undo it); setting a
-- parameter is not allowed in a parallel operation.
CREATE FUNCTION dt_SetDocParam(paramnum integer, value double precision) RETURNS void
    AS 'MODULE_PATHNAME', 'pgdoc_dt_SetDocParam' LANGUAGE C VOLATILE STRICT PARALLEL UNSAFE;
COMMENT ON FUNCTION dt_SetDocParam(integer, double precision) IS
    'sets ranking coefficient 0..11 for this session; other numbers are ignored';
CREATE FUNCTION dt_DocParams(OUT number integer, OUT name text, OUT value double precision,
                             OUT default_value double precision)
    RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_DocParams' LANGUAGE C VOLATILE PARALLEL RESTRICTED ROWS 12;
COMMENT ON FUNCTION dt_DocParams() IS 'the twelve ranking coefficients of this session';

-- ORDER BY body <=> query: rows by falling relevance, from a dtree index
-- scan (the distance is 1 - weight).
CREATE FUNCTION dt_RelevanceDistance(doc, text) RETURNS double precision
    AS 'MODULE_PATHNAME', 'pgdoc_dt_RelevanceDistance' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED COST 1000000;
COMMENT ON FUNCTION dt_RelevanceDistance(doc, text) IS
    'relevance distance (1 - weight) of the row a dtree index scan ordered by the query has just returned';
CREATE OPERATOR <=> (LEFTARG = doc, RIGHTARG = text, FUNCTION = dt_RelevanceDistance);
COMMENT ON OPERATOR <=> (doc, text) IS 'relevance distance (1 - weight), for ORDER BY through a dtree index';
ALTER OPERATOR FAMILY doc_dtree_ops USING dtree ADD OPERATOR 4 <=> (doc, text) FOR ORDER BY float_ops;

-- Learns the twelve coefficients from judgments: judgments is a query
-- returning (query text, row tid, relevant boolean) over the indexed
-- table, run with the caller's rights; rows of an answer no judgment marks
-- relevant count as not relevant.  Queries are word lists unless wordlist
-- is false (then the query language).  With apply, the coefficients are
-- set for this session (as dt_SetDocParam does).
CREATE FUNCTION dt_FitDocParams(dtreename text, judgments text, wordlist boolean DEFAULT true,
                                apply boolean DEFAULT false)
    RETURNS TABLE (number integer, name text, value double precision, stage integer,
                   observations bigint, relevant bigint, log_likelihood double precision,
                   null_log_likelihood double precision, converged boolean)
    AS 'MODULE_PATHNAME', 'pgdoc_dt_FitDocParams' LANGUAGE C VOLATILE STRICT PARALLEL UNSAFE ROWS 12;
COMMENT ON FUNCTION dt_FitDocParams(text, text, boolean, boolean) IS
    'learns the ranking coefficients from judged answers of a dtree index (logistic regression, two stages)';
