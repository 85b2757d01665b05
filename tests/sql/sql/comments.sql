-- Every function, type, operator, table, access method, cast and event
-- trigger of the extension says what it is for: the list of those without a
-- comment must stay empty.
SELECT pg_describe_object(d.classid, d.objid, 0) AS uncommented
FROM pg_depend d
JOIN pg_extension e ON d.refclassid = 'pg_extension'::regclass AND d.refobjid = e.oid
WHERE e.extname = 'document' AND d.deptype = 'e'
  AND (d.classid IN ('pg_proc'::regclass, 'pg_type'::regclass, 'pg_operator'::regclass, 'pg_am'::regclass,
                     'pg_cast'::regclass, 'pg_event_trigger'::regclass)
       OR (d.classid = 'pg_class'::regclass
           AND (SELECT relkind FROM pg_class c WHERE c.oid = d.objid) IN ('r', 'p', 'v', 'm', 'f')))
  AND NOT EXISTS (SELECT 1 FROM pg_description c
                  WHERE c.classoid = d.classid AND c.objoid = d.objid AND c.objsubid = 0
                    AND c.description <> '')
ORDER BY 1;
-- The extension itself.
SELECT comment <> '' AS has_comment FROM pg_available_extensions WHERE name = 'document';
-- A sample of what \df+ shows.
SELECT obj_description('dt_Terms(doc)'::regprocedure, 'pg_proc');
SELECT obj_description('doc'::regtype, 'pg_type');
