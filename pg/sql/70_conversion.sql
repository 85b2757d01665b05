
-- The conversion service.
-- "DocumentConversions" lists the direct conversions the installation
-- offers, one row per step: source format, target format, and the name of a
-- function (input_spec text, output_spec text) returning text that writes
-- the converted file at the output spec's path and returns the output spec
-- (null on failure).  Rows are searched in the table's physical order.
CREATE TABLE "DocumentConversions" (
    source_format text NOT NULL,
    target_format text NOT NULL,
    function_name text NOT NULL
);
COMMENT ON TABLE "DocumentConversions" IS
    'conversion steps: source format, target format, function (text, text) returning text';
GRANT SELECT ON "DocumentConversions" TO PUBLIC;
-- pg_dump keeps the rows users add.
SELECT pg_catalog.pg_extension_config_dump('"DocumentConversions"', '');

-- Converts the server file named by inspec into the one named by outspec
-- (specifications "params:path"); the output spec, or null when there is
-- no conversion or a step failed.  Needs superuser, or membership in both
-- pg_read_server_files and pg_write_server_files.
CREATE FUNCTION formatconvert(inspec text, outspec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_formatconvert' LANGUAGE C VOLATILE STRICT;

-- The steps a conversion between two formats would run, or null.
CREATE FUNCTION dt_ConversionPath(from_format text, to_format text) RETURNS text[]
    AS 'MODULE_PATHNAME', 'pgdoc_dt_ConversionPath' LANGUAGE C STABLE STRICT;

-- Whether a document can be converted to a format.
CREATE FUNCTION IsConvertible(d doc, format text) RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_IsConvertible' LANGUAGE C STABLE STRICT;

-- Parts of specifications and documents.
CREATE FUNCTION dt_GetPathText(spec text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_GetPathText' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION dt_GetPath(d doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_GetPath' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION dt_GetParams(d doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_GetParams' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION dt_GetFormat(d doc) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_dt_GetFormat' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
