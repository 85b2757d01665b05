
-- The module's error catalogue: every code it raises, with its message.
CREATE FUNCTION dt_ErrorCatalogue(OUT code text, OUT message text) RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_ErrorCatalogue' LANGUAGE C IMMUTABLE STRICT;

-- Raises one of the module's errors: dt_RaiseError('XD00M', 'FILENAME', '/x').
CREATE FUNCTION dt_RaiseError(code text, VARIADIC params text[] DEFAULT '{}') RETURNS void
    AS 'MODULE_PATHNAME', 'pgdoc_dt_RaiseError' LANGUAGE C VOLATILE;
