
-- The doc type: a document held in a server file, a large object, or the row.
CREATE TYPE doc;
CREATE FUNCTION dt_DocInputFunc(cstring) RETURNS doc
    AS 'MODULE_PATHNAME', 'pgdoc_dt_DocInputFunc' LANGUAGE C STRICT STABLE;
CREATE FUNCTION dt_DocOutputFunc(doc) RETURNS cstring
    AS 'MODULE_PATHNAME', 'pgdoc_dt_DocOutputFunc' LANGUAGE C STRICT STABLE PARALLEL SAFE;
CREATE TYPE doc (
    INPUT = dt_DocInputFunc,
    OUTPUT = dt_DocOutputFunc,
    INTERNALLENGTH = VARIABLE,
    ALIGNMENT = int4,
    STORAGE = extended
);
COMMENT ON TYPE doc IS 'a full-text document: spec:path literal, stored in the row, a large object or a server file';

-- The stored bytes of a value, for inspecting its layout.
CREATE FUNCTION dt_DocBytes(doc) RETURNS bytea
    AS 'MODULE_PATHNAME', 'pgdoc_dt_DocBytes' LANGUAGE C STRICT IMMUTABLE PARALLEL SAFE;
