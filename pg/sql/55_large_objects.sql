
-- Large objects that hold documents, with their reference counts.
CREATE TABLE dt_large_objects (
    loid oid PRIMARY KEY,
    refs integer NOT NULL DEFAULT 0
);
COMMENT ON TABLE dt_large_objects IS 'large objects owned by doc values, with reference counts';
SELECT pg_catalog.pg_extension_config_dump('dt_large_objects', '');

-- The large object a value owns (null for in-row and external documents).
CREATE FUNCTION dt_LOOid(doc) RETURNS oid
    AS 'MODULE_PATHNAME', 'pgdoc_dt_LOOid' LANGUAGE C STRICT IMMUTABLE PARALLEL SAFE;
-- Reference counting of a value's large object.
CREATE FUNCTION assign(doc) RETURNS doc
    AS 'MODULE_PATHNAME', 'pgdoc_assign' LANGUAGE C STRICT VOLATILE;
CREATE FUNCTION destroy(doc) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_destroy' LANGUAGE C STRICT VOLATILE;

-- Row trigger for tables with doc columns:
--   CREATE TRIGGER t_docs AFTER INSERT OR UPDATE OR DELETE ON t
--       FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects();
CREATE FUNCTION dt_ManageLargeObjects() RETURNS trigger
    AS 'MODULE_PATHNAME', 'pgdoc_dt_ManageLargeObjects' LANGUAGE C;

-- Statement trigger for TRUNCATE:
--   CREATE TRIGGER t_docs_truncate BEFORE TRUNCATE ON t
--       FOR EACH STATEMENT EXECUTE FUNCTION dt_TruncateLargeObjects();
CREATE FUNCTION dt_TruncateLargeObjects() RETURNS trigger LANGUAGE plpgsql AS $$
DECLARE
    col name;
BEGIN
    -- Several such triggers on one table act once: only the first by name.
    IF EXISTS (SELECT 1 FROM pg_catalog.pg_trigger t
               WHERE t.tgrelid = TG_RELID AND t.tgenabled <> 'D'
                 AND t.tgfoid = '@extschema@.dt_TruncateLargeObjects()'::regprocedure
                 AND t.tgname < TG_NAME) THEN
        RETURN NULL;
    END IF;
    FOR col IN
        SELECT a.attname FROM pg_catalog.pg_attribute a
        WHERE a.attrelid = TG_RELID AND a.attnum > 0 AND NOT a.attisdropped
          AND a.atttypid = '@extschema@.doc'::regtype
    LOOP
        -- ONLY: a partition's rows are counted by the partition's trigger.
        EXECUTE format('SELECT @extschema@.destroy(%I) FROM ONLY %I.%I WHERE %I IS NOT NULL',
                       col, TG_TABLE_SCHEMA, TG_TABLE_NAME, col);
    END LOOP;
    RETURN NULL;
END $$;

-- Recounts the references held by every doc column of the database and
-- removes the large objects nobody refers to; returns how many it removed.
-- It runs no DDL of its own, so the sql_drop event trigger that calls it
-- does not fire again.
CREATE FUNCTION dt_VacuumLargeObjects() RETURNS integer
LANGUAGE plpgsql SECURITY DEFINER SET search_path = @extschema@, pg_catalog, pg_temp AS $$
DECLARE
    refs_query text;
    seen oid[];
    removed integer := 0;
BEGIN
    SELECT string_agg(format('SELECT @extschema@.dt_LOOid(%I) AS loid FROM %s', a.attname, c.oid::regclass),
                      ' UNION ALL ')
      INTO refs_query
      FROM pg_attribute a JOIN pg_class c ON c.oid = a.attrelid
     WHERE a.atttypid = '@extschema@.doc'::regtype AND a.attnum > 0 AND NOT a.attisdropped
       AND c.relkind IN ('r', 'm');
    IF refs_query IS NULL THEN
        seen := '{}';
    ELSE
        EXECUTE 'SELECT coalesce(array_agg(loid), ''{}'') FROM (' || refs_query || ') s WHERE loid IS NOT NULL'
           INTO seen;
    END IF;
    UPDATE dt_large_objects l SET refs = s.n
      FROM (SELECT u.loid, count(*)::int AS n FROM unnest(seen) AS u(loid) GROUP BY u.loid) s
     WHERE l.loid = s.loid AND l.refs <> s.n;
    WITH gone AS (
        DELETE FROM dt_large_objects l
        WHERE NOT (l.loid = ANY (seen))
        RETURNING l.loid
    )
    SELECT count(lo_unlink(g.loid)) INTO removed
    FROM gone g WHERE EXISTS (SELECT 1 FROM pg_largeobject_metadata m WHERE m.oid = g.loid);
    RETURN removed;
END $$;

-- Dropping a table or a doc column leaves its large objects unreferenced:
-- collect them at once.
CREATE FUNCTION dt_DropLargeObjects() RETURNS event_trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = @extschema@, pg_catalog, pg_temp AS $$
BEGIN
    IF EXISTS (SELECT 1 FROM pg_event_trigger_dropped_objects()
               WHERE object_type IN ('table', 'table column', 'materialized view', 'schema'))
       AND EXISTS (SELECT 1 FROM dt_large_objects) THEN
        PERFORM dt_VacuumLargeObjects();
    END IF;
END $$;
CREATE EVENT TRIGGER dt_drop_large_objects ON sql_drop
    EXECUTE FUNCTION dt_DropLargeObjects();

-- Every table that has doc columns gets the two triggers above when it is
-- created or altered, so large objects are counted without any setup; rows
-- that were already there (CREATE TABLE ... AS, ADD COLUMN with a default)
-- are counted when the row trigger is attached.
CREATE FUNCTION dt_AttachLargeObjectTriggers(rel regclass) RETURNS boolean
LANGUAGE plpgsql SECURITY DEFINER SET search_path = @extschema@, pg_catalog, pg_temp AS $$
DECLARE
    kind "char";
    col name;
    attached boolean := false;
BEGIN
    SELECT c.relkind INTO kind FROM pg_class c WHERE c.oid = rel;
    IF kind IS NULL OR kind NOT IN ('r', 'p')
       OR NOT EXISTS (SELECT 1 FROM pg_attribute a
                      WHERE a.attrelid = rel AND a.attnum > 0 AND NOT a.attisdropped
                        AND a.atttypid = '@extschema@.doc'::regtype) THEN
        RETURN false;
    END IF;
    IF NOT EXISTS (SELECT 1 FROM pg_trigger t WHERE t.tgrelid = rel
                   AND t.tgfoid = '@extschema@.dt_ManageLargeObjects()'::regprocedure) THEN
        EXECUTE format('CREATE TRIGGER dt_large_objects AFTER INSERT OR UPDATE OR DELETE ON %s '
                       'FOR EACH ROW EXECUTE FUNCTION @extschema@.dt_ManageLargeObjects()', rel);
        IF kind = 'r' THEN
            FOR col IN
                SELECT a.attname FROM pg_attribute a
                WHERE a.attrelid = rel AND a.attnum > 0 AND NOT a.attisdropped
                  AND a.atttypid = '@extschema@.doc'::regtype
            LOOP
                EXECUTE format('SELECT @extschema@.assign(%I) FROM ONLY %s WHERE %I IS NOT NULL',
                               col, rel, col);
            END LOOP;
        END IF;
        attached := true;
    END IF;
    IF NOT EXISTS (SELECT 1 FROM pg_trigger t WHERE t.tgrelid = rel
                   AND t.tgfoid = '@extschema@.dt_TruncateLargeObjects()'::regprocedure) THEN
        EXECUTE format('CREATE TRIGGER dt_large_objects_truncate BEFORE TRUNCATE ON %s '
                       'FOR EACH STATEMENT EXECUTE FUNCTION @extschema@.dt_TruncateLargeObjects()', rel);
        attached := true;
    END IF;
    RETURN attached;
END $$;

CREATE FUNCTION dt_AttachOnCreate() RETURNS event_trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = @extschema@, pg_catalog, pg_temp AS $$
DECLARE
    r record;
BEGIN
    -- A dump being restored (it turns check_function_bodies off) brings the
    -- triggers itself, after the data and the reference counts.
    IF current_setting('check_function_bodies') = 'off' THEN
        RETURN;
    END IF;
    FOR r IN SELECT DISTINCT objid FROM pg_event_trigger_ddl_commands()
             WHERE object_type = 'table' AND classid = 'pg_class'::regclass
    LOOP
        PERFORM dt_AttachLargeObjectTriggers(r.objid::regclass);
    END LOOP;
END $$;
CREATE EVENT TRIGGER dt_attach_large_object_triggers ON ddl_command_end
    WHEN TAG IN ('CREATE TABLE', 'CREATE TABLE AS', 'SELECT INTO', 'ALTER TABLE')
    EXECUTE FUNCTION dt_AttachOnCreate();
