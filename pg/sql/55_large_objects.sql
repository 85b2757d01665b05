
-- Large objects that hold documents.  Each belongs to exactly one stored
-- value: the row of table relid whose column attnum names it.  Only the
-- module's triggers write here.
CREATE TABLE dt_large_objects (
    loid oid PRIMARY KEY,
    relid regclass NOT NULL,
    attnum int2 NOT NULL
);
CREATE INDEX dt_large_objects_relid ON dt_large_objects (relid, attnum);
COMMENT ON TABLE dt_large_objects IS 'large objects of stored documents, each with the table and column of the row that owns it';
SELECT pg_catalog.pg_extension_config_dump('dt_large_objects', '');
REVOKE ALL ON dt_large_objects FROM PUBLIC;

-- The large object a value owns (null for in-row and external documents).
CREATE FUNCTION dt_LOOid(doc) RETURNS oid
    AS 'MODULE_PATHNAME', 'pgdoc_dt_LOOid' LANGUAGE C STRICT IMMUTABLE PARALLEL SAFE;
COMMENT ON FUNCTION dt_LOOid(doc) IS 'the large object a stored document owns, or null';
-- A value as a row may store it: one whose large object no row has taken
-- yet, else one naming a fresh copy.  Rows do this by themselves.
CREATE FUNCTION assign(doc) RETURNS doc
    AS 'MODULE_PATHNAME', 'pgdoc_assign' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION assign(doc) IS 'the value with a large object of its own (a fresh copy unless its object is new and untaken)';
-- Removes a value's large object by hand (superusers; rows remove their own).
CREATE FUNCTION destroy(doc) RETURNS integer
    AS 'MODULE_PATHNAME', 'pgdoc_destroy' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION destroy(doc) IS 'removes the value''s large object (superusers only)';
REVOKE ALL ON FUNCTION destroy(doc) FROM PUBLIC;

-- Row triggers for tables with doc columns (attached automatically):
--   CREATE TRIGGER dt_large_objects_claim BEFORE INSERT OR UPDATE ON t
--       FOR EACH ROW EXECUTE FUNCTION dt_ClaimLargeObjects();
--   CREATE TRIGGER dt_large_objects AFTER INSERT OR UPDATE OR DELETE ON t
--       FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects();
--   CREATE TRIGGER dt_large_objects_truncate BEFORE TRUNCATE ON t
--       FOR EACH STATEMENT EXECUTE FUNCTION dt_TruncateLargeObjects();
CREATE FUNCTION dt_ClaimLargeObjects() RETURNS trigger
    AS 'MODULE_PATHNAME', 'pgdoc_dt_ClaimLargeObjects' LANGUAGE C;
COMMENT ON FUNCTION dt_ClaimLargeObjects() IS 'row trigger: each stored document gets a large object of its own';
CREATE FUNCTION dt_ManageLargeObjects() RETURNS trigger
    AS 'MODULE_PATHNAME', 'pgdoc_dt_ManageLargeObjects' LANGUAGE C;
COMMENT ON FUNCTION dt_ManageLargeObjects() IS 'row trigger: records the large objects rows take and removes those they give up';
CREATE FUNCTION dt_TruncateLargeObjects() RETURNS trigger
    AS 'MODULE_PATHNAME', 'pgdoc_dt_TruncateLargeObjects' LANGUAGE C;
COMMENT ON FUNCTION dt_TruncateLargeObjects() IS 'truncate trigger: removes the large objects of the table''s documents';

-- Removes the large objects recorded for a dropped table (attnum 0) or
-- column; called by the sql_drop event trigger.
CREATE FUNCTION dt_DropTableLargeObjects(relid oid, attnum int2) RETURNS bigint
    AS 'MODULE_PATHNAME', 'pgdoc_dt_DropTableLargeObjects' LANGUAGE C STRICT VOLATILE;
COMMENT ON FUNCTION dt_DropTableLargeObjects(oid, int2) IS 'removes the large objects of a dropped table or column (superusers only)';
REVOKE ALL ON FUNCTION dt_DropTableLargeObjects(oid, int2) FROM PUBLIC;

-- Dropping a table, a doc column or a schema removes the large objects of
-- exactly the dropped tables and columns.
CREATE FUNCTION dt_DropLargeObjects() RETURNS event_trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
DECLARE
    r record;
BEGIN
    FOR r IN SELECT d.objid, d.objsubid, d.object_type FROM pg_catalog.pg_event_trigger_dropped_objects() d
             WHERE d.object_type OPERATOR(pg_catalog.=) ANY (ARRAY['table', 'table column', 'materialized view'])
               AND d.classid OPERATOR(pg_catalog.=) 'pg_catalog.pg_class'::pg_catalog.regclass
    LOOP
        PERFORM @extschema@.dt_DropTableLargeObjects(r.objid,
            CASE WHEN r.object_type OPERATOR(pg_catalog.=) 'table column' THEN r.objsubid::pg_catalog.int2 ELSE 0::pg_catalog.int2 END);
    END LOOP;
END $$;
COMMENT ON FUNCTION dt_DropLargeObjects() IS 'event trigger: removes the large objects of dropped tables and columns';
CREATE EVENT TRIGGER dt_drop_large_objects ON sql_drop
    EXECUTE FUNCTION dt_DropLargeObjects();

-- Gives the rows of a table that name large objects copies of their own,
-- through its triggers; the update runs as the table's owner in a
-- security-restricted operation (the owner's row triggers fire).  The
-- caller must have the owner's privileges.
CREATE FUNCTION dt_CopyRowLargeObjects(rel regclass) RETURNS bigint
    AS 'MODULE_PATHNAME', 'pgdoc_dt_CopyRowLargeObjects' LANGUAGE C VOLATILE STRICT PARALLEL UNSAFE;
COMMENT ON FUNCTION dt_CopyRowLargeObjects(regclass) IS
    'gives the rows of a table large objects of their own, run as the table owner (its owner only)';

-- Puts the three triggers on a table with doc columns, and gives the rows
-- it already holds (CREATE TABLE ... AS, ADD COLUMN with a default) large
-- objects of their own.  Runs with the caller's rights: only the table's
-- owner (or a role the owner granted TRIGGER) can attach them.
CREATE FUNCTION dt_AttachLargeObjectTriggers(rel regclass) RETURNS boolean
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
DECLARE
    kind "char";
    owner oid;
    attached boolean := false;
BEGIN
    SELECT c.relkind, c.relowner INTO kind, owner FROM pg_catalog.pg_class c WHERE c.oid OPERATOR(pg_catalog.=) rel;
    IF kind IS NULL OR kind OPERATOR(pg_catalog.<>) ALL (ARRAY['r', 'p']::"char"[])
       OR NOT EXISTS (SELECT 1 FROM pg_catalog.pg_attribute a
                      WHERE a.attrelid OPERATOR(pg_catalog.=) rel AND a.attnum OPERATOR(pg_catalog.>) 0 AND NOT a.attisdropped
                        AND a.atttypid OPERATOR(pg_catalog.=) '@extschema@.doc'::pg_catalog.regtype) THEN
        RETURN false;
    END IF;
    IF NOT pg_catalog.pg_has_role(current_user, owner, 'USAGE') THEN
        RAISE EXCEPTION 'must be owner of table %', rel USING ERRCODE = '42501';
    END IF;
    IF NOT EXISTS (SELECT 1 FROM pg_catalog.pg_trigger t WHERE t.tgrelid OPERATOR(pg_catalog.=) rel
                   AND t.tgfoid OPERATOR(pg_catalog.=) '@extschema@.dt_ClaimLargeObjects()'::pg_catalog.regprocedure) THEN
        EXECUTE pg_catalog.format('CREATE TRIGGER dt_large_objects_claim BEFORE INSERT OR UPDATE ON %s '
                       'FOR EACH ROW EXECUTE FUNCTION @extschema@.dt_ClaimLargeObjects()', rel);
        attached := true;
    END IF;
    IF NOT EXISTS (SELECT 1 FROM pg_catalog.pg_trigger t WHERE t.tgrelid OPERATOR(pg_catalog.=) rel
                   AND t.tgfoid OPERATOR(pg_catalog.=) '@extschema@.dt_ManageLargeObjects()'::pg_catalog.regprocedure) THEN
        EXECUTE pg_catalog.format('CREATE TRIGGER dt_large_objects AFTER INSERT OR UPDATE OR DELETE ON %s '
                       'FOR EACH ROW EXECUTE FUNCTION @extschema@.dt_ManageLargeObjects()', rel);
        attached := true;
    END IF;
    IF NOT EXISTS (SELECT 1 FROM pg_catalog.pg_trigger t WHERE t.tgrelid OPERATOR(pg_catalog.=) rel
                   AND t.tgfoid OPERATOR(pg_catalog.=) '@extschema@.dt_TruncateLargeObjects()'::pg_catalog.regprocedure) THEN
        EXECUTE pg_catalog.format('CREATE TRIGGER dt_large_objects_truncate BEFORE TRUNCATE ON %s '
                       'FOR EACH STATEMENT EXECUTE FUNCTION @extschema@.dt_TruncateLargeObjects()', rel);
        attached := true;
    END IF;
    IF attached AND kind OPERATOR(pg_catalog.=) 'r' THEN
        -- Rows already there name objects of other rows (or none): each
        -- takes a copy of its own through the triggers just attached.  The
        -- update fires the owner's row triggers, so it runs as the owner.
        PERFORM @extschema@.dt_CopyRowLargeObjects(rel);
    END IF;
    RETURN attached;
END $$;
COMMENT ON FUNCTION dt_AttachLargeObjectTriggers(regclass) IS 'puts the large-object triggers on a table with doc columns (its owner only)';

CREATE FUNCTION dt_AttachOnCreate() RETURNS event_trigger
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
DECLARE
    r record;
BEGIN
    -- A dump being restored (it turns check_function_bodies off) brings the
    -- triggers itself, after the data and the registry.
    IF pg_catalog.current_setting('check_function_bodies') OPERATOR(pg_catalog.=) 'off' THEN
        RETURN;
    END IF;
    FOR r IN SELECT DISTINCT d.objid FROM pg_catalog.pg_event_trigger_ddl_commands() d
             WHERE d.object_type OPERATOR(pg_catalog.=) 'table'
               AND d.classid OPERATOR(pg_catalog.=) 'pg_catalog.pg_class'::pg_catalog.regclass
    LOOP
        PERFORM @extschema@.dt_AttachLargeObjectTriggers(r.objid::pg_catalog.regclass);
    END LOOP;
END $$;
COMMENT ON FUNCTION dt_AttachOnCreate() IS 'event trigger: attaches the large-object triggers to new and altered tables';
-- After an ALTER TABLE: a doc column whose type was changed (ALTER COLUMN
-- ... TYPE) no longer holds the documents recorded for it, so their large
-- objects go as for a dropped column.  No code of the table's owner runs.
CREATE FUNCTION dt_ReleaseRetypedColumns() RETURNS event_trigger
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
DECLARE
    r record;
BEGIN
    FOR r IN SELECT DISTINCT l.relid, l.attnum FROM @extschema@.dt_large_objects l
             JOIN pg_catalog.pg_event_trigger_ddl_commands() d ON d.objid OPERATOR(pg_catalog.=) l.relid::pg_catalog.oid
             JOIN pg_catalog.pg_attribute a ON a.attrelid OPERATOR(pg_catalog.=) l.relid::pg_catalog.oid
                                           AND a.attnum OPERATOR(pg_catalog.=) l.attnum
             WHERE d.object_type OPERATOR(pg_catalog.=) 'table'
               AND d.classid OPERATOR(pg_catalog.=) 'pg_catalog.pg_class'::pg_catalog.regclass
               AND a.atttypid OPERATOR(pg_catalog.<>) '@extschema@.doc'::pg_catalog.regtype
    LOOP
        PERFORM @extschema@.dt_DropTableLargeObjects(r.relid::pg_catalog.oid, r.attnum);
    END LOOP;
END $$;
COMMENT ON FUNCTION dt_ReleaseRetypedColumns() IS 'event trigger: removes the large objects of doc columns changed to another type';
CREATE EVENT TRIGGER dt_release_retyped_columns ON ddl_command_end
    WHEN TAG IN ('ALTER TABLE')
    EXECUTE FUNCTION dt_ReleaseRetypedColumns();

-- A materialized view cannot own large objects (no row triggers run on its
-- refresh), so it may not hold documents.
CREATE FUNCTION dt_RefuseMaterializedDocs() RETURNS event_trigger
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
DECLARE
    r record;
BEGIN
    FOR r IN SELECT d.objid FROM pg_catalog.pg_event_trigger_ddl_commands() d
             WHERE d.object_type OPERATOR(pg_catalog.=) 'materialized view'
               AND d.classid OPERATOR(pg_catalog.=) 'pg_catalog.pg_class'::pg_catalog.regclass
               AND EXISTS (SELECT 1 FROM pg_catalog.pg_attribute a
                           WHERE a.attrelid OPERATOR(pg_catalog.=) d.objid AND a.attnum OPERATOR(pg_catalog.>) 0
                             AND NOT a.attisdropped
                             AND a.atttypid OPERATOR(pg_catalog.=) '@extschema@.doc'::pg_catalog.regtype)
    LOOP
        RAISE EXCEPTION 'materialized view % cannot hold documents', r.objid::pg_catalog.regclass
            USING ERRCODE = '0A000',
                  HINT = 'Documents own their large objects through the row triggers of a table: use CREATE TABLE ... AS, or a materialized view of other columns (GetDocText(body) for the text).';
    END LOOP;
END $$;
COMMENT ON FUNCTION dt_RefuseMaterializedDocs() IS 'event trigger: refuses materialized views with doc columns';
CREATE EVENT TRIGGER dt_refuse_materialized_docs ON ddl_command_end
    WHEN TAG IN ('CREATE MATERIALIZED VIEW')
    EXECUTE FUNCTION dt_RefuseMaterializedDocs();

CREATE EVENT TRIGGER dt_attach_large_object_triggers ON ddl_command_end
    WHEN TAG IN ('CREATE TABLE', 'CREATE TABLE AS', 'SELECT INTO', 'ALTER TABLE')
    EXECUTE FUNCTION dt_AttachOnCreate();
