
-- The conversion service.
-- "DocumentConversions" lists the direct conversions the installation
-- offers, one row per step: source format, target format, and the name of a
-- function (input_spec text, output_spec text) returning text that writes
-- the converted file at the output spec's path and returns the output spec
-- (null on failure).  Rows are searched in the table's physical order.
CREATE TABLE "DocumentConversions" (
    source_format text NOT NULL,
    target_format text NOT NULL,
    function_name text NOT NULL,
    -- true for the rows CREATE EXTENSION makes (they are not dumped: the
    -- restore makes them again); rows that users add or change are false.
    installed boolean NOT NULL DEFAULT false
);
COMMENT ON TABLE "DocumentConversions" IS
    'conversion steps: source format, target format, function (text, text) returning text';
GRANT SELECT ON "DocumentConversions" TO PUBLIC;

-- The installed rows that users removed (or changed): pg_dump keeps them,
-- and restoring them removes those rows again after CREATE EXTENSION has
-- made them.
CREATE TABLE "DocumentConversionsRemoved" (
    source_format text NOT NULL,
    target_format text NOT NULL,
    function_name text NOT NULL
);
COMMENT ON TABLE "DocumentConversionsRemoved" IS
    'installed rows of "DocumentConversions" that were deleted or changed';
GRANT SELECT ON "DocumentConversionsRemoved" TO PUBLIC;

-- pg_dump keeps the rows users add and the record of installed rows they
-- removed.
SELECT pg_catalog.pg_extension_config_dump('"DocumentConversions"', 'WHERE NOT installed');
SELECT pg_catalog.pg_extension_config_dump('"DocumentConversionsRemoved"', '');

-- Deleting or changing an installed row records it as removed; a row
-- changed is the user's own from then on.
CREATE FUNCTION dt_ConversionRowChanged() RETURNS trigger
    LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
BEGIN
    IF TG_OP = 'UPDATE' AND NEW.source_format = OLD.source_format
       AND NEW.target_format = OLD.target_format AND NEW.function_name = OLD.function_name THEN
        RETURN NEW;
    END IF;
    IF NOT EXISTS (SELECT 1 FROM @extschema@."DocumentConversionsRemoved" r
                    WHERE r.source_format = OLD.source_format AND r.target_format = OLD.target_format
                      AND r.function_name = OLD.function_name) THEN
        INSERT INTO @extschema@."DocumentConversionsRemoved"
            VALUES (OLD.source_format, OLD.target_format, OLD.function_name);
    END IF;
    IF TG_OP = 'UPDATE' THEN
        NEW.installed := false;
        RETURN NEW;
    END IF;
    RETURN OLD;
END $$;
CREATE FUNCTION dt_ConversionRowsTruncated() RETURNS trigger
    LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
BEGIN
    INSERT INTO @extschema@."DocumentConversionsRemoved"
        SELECT DISTINCT c.source_format, c.target_format, c.function_name
          FROM @extschema@."DocumentConversions" c
         WHERE c.installed AND NOT EXISTS (
               SELECT 1 FROM @extschema@."DocumentConversionsRemoved" r
                WHERE r.source_format = c.source_format AND r.target_format = c.target_format
                  AND r.function_name = c.function_name);
    RETURN NULL;
END $$;
-- A record of a removed row (as a restore writes it) removes the
-- installed row.
CREATE FUNCTION dt_ConversionRowRemoved() RETURNS trigger
    LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
BEGIN
    -- Records made by the triggers above are of rows already going.
    IF pg_trigger_depth() > 1 THEN
        RETURN NULL;
    END IF;
    DELETE FROM @extschema@."DocumentConversions" c
     WHERE c.installed AND c.source_format = NEW.source_format
       AND c.target_format = NEW.target_format AND c.function_name = NEW.function_name;
    RETURN NULL;
END $$;
CREATE TRIGGER installed_row_deleted AFTER DELETE ON "DocumentConversions"
    FOR EACH ROW WHEN (OLD.installed) EXECUTE FUNCTION dt_ConversionRowChanged();
CREATE TRIGGER installed_row_changed BEFORE UPDATE ON "DocumentConversions"
    FOR EACH ROW WHEN (OLD.installed) EXECUTE FUNCTION dt_ConversionRowChanged();
CREATE TRIGGER installed_rows_truncated BEFORE TRUNCATE ON "DocumentConversions"
    FOR EACH STATEMENT EXECUTE FUNCTION dt_ConversionRowsTruncated();
CREATE TRIGGER removed_row_recorded AFTER INSERT ON "DocumentConversionsRemoved"
    FOR EACH ROW EXECUTE FUNCTION dt_ConversionRowRemoved();
COMMENT ON FUNCTION dt_ConversionRowChanged() IS
    'Trigger: records an installed conversion row that is deleted or changed in "DocumentConversionsRemoved"';
COMMENT ON FUNCTION dt_ConversionRowsTruncated() IS
    'Trigger: records the installed conversion rows that TRUNCATE removes';
COMMENT ON FUNCTION dt_ConversionRowRemoved() IS
    'Trigger: a recorded removal deletes the installed conversion row (as a restore replays it)';
REVOKE ALL ON FUNCTION dt_ConversionRowChanged() FROM PUBLIC;
REVOKE ALL ON FUNCTION dt_ConversionRowsTruncated() FROM PUBLIC;
REVOKE ALL ON FUNCTION dt_ConversionRowRemoved() FROM PUBLIC;

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
