
-- The module's release string.
CREATE FUNCTION dt_Release() RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_Release' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
