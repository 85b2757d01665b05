
-- ---- Optimizer statistics ----------------------------------------------------
-- ANALYZE of a doc column also stores the average number of terms per
-- document; the search operators' estimates and the dtree index's costs
-- start from it and from the index's own counters.
CREATE FUNCTION dt_DocAnalyze(internal) RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_dt_DocAnalyze' LANGUAGE C STRICT;
COMMENT ON FUNCTION dt_DocAnalyze(internal) IS
    'ANALYZE of doc columns: the usual figures and the average number of terms per document';
ALTER TYPE doc SET (ANALYZE = dt_DocAnalyze);

-- The model's selectivity of a search over a doc column: a query term
-- matches one document in avg_term_cnt (the figure ANALYZE stored), with
-- the column on the left (column_on_left: body @@ 'q') or on the right.
-- Without a figure: 0.1 on the left, 0.01 on the right.
CREATE FUNCTION dt_selectivity(tab regclass, col text, column_on_left boolean DEFAULT true) RETURNS real
    AS 'MODULE_PATHNAME', 'pgdoc_dt_selectivity' LANGUAGE C STABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION dt_selectivity(regclass, text, boolean) IS
    'selectivity of a search over a doc column by its average number of terms per document';

-- The model's estimate of a scan of a dtree index: selectivity, index
-- pages read and rows returned.
CREATE FUNCTION dtstat(index regclass, OUT selec real, OUT npage integer, OUT ntup integer) RETURNS record
    AS 'MODULE_PATHNAME', 'pgdoc_dtstat' LANGUAGE C STABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION dtstat(regclass) IS
    'selectivity, pages read and rows returned by a dtree index scan, by the average number of terms per document';

-- Evaluating a search on one row reads that row's document (a file, a
-- large object or the text in the row, stemming every word): far dearer
-- than an ordinary operator.
ALTER FUNCTION Contains(doc, text) COST 100;
ALTER FUNCTION ContainsWords(doc, text) COST 100;
ALTER FUNCTION DocLike(doc, doc) COST 100;
