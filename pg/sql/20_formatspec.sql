
-- Parameter values of format specifications ("format(wp),version(5.1):/p").
CREATE FUNCTION findparamtx(param text, list text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_findparamtx' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION findparamdoc(param text, d doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_findparamdoc' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
