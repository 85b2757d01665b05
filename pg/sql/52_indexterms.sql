
-- A document's terms as "stem:count " items, most frequent first.
CREATE FUNCTION IndexTerms(doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_IndexTerms' LANGUAGE C STRICT STABLE PARALLEL RESTRICTED;
-- Only the terms that are stems of the words of a text.
CREATE FUNCTION Occurrences(doc, text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_Occurrences' LANGUAGE C STRICT STABLE PARALLEL RESTRICTED;
-- The n most frequent terms ("" for n < 0).
CREATE FUNCTION TopNTerms(doc, integer) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_TopNTerms' LANGUAGE C STRICT STABLE PARALLEL RESTRICTED;
