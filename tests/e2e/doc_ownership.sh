# Large objects belong to the doc values that name them: rows deleted,
# updated, truncated, tables and columns dropped, values copied to other
# tables, rolled back work: no orphan is left and nothing referenced is lost.
source "$(dirname "$0")/channel_common.bash"
setup_server
los() { q -c "SELECT count(*) FROM pg_largeobject_metadata"; }
# orphans: registered or existing objects that no stored value names
orphans() { q -c "SELECT count(*) FROM pg_largeobject_metadata m WHERE m.oid NOT IN (SELECT dt_LOOid(d) FROM t1 WHERE d IS NOT NULL UNION ALL SELECT dt_LOOid(d) FROM t2 WHERE d IS NOT NULL)"; }
lost() { q -c "SELECT count(*) FROM (SELECT d FROM t1 UNION ALL SELECT d FROM t2) s WHERE dt_LOOid(d) IS NOT NULL AND dt_LOOid(d) NOT IN (SELECT oid FROM pg_largeobject_metadata)"; }
refs() { q -c "SELECT coalesce(string_agg(refs::text, ',' ORDER BY loid), '') FROM dt_large_objects"; }
for i in 1 2 3 4 5; do head -c $((2000 * i)) /usr/share/common-licenses/GPL-3 >"$WORK/f$i.txt"; done
printf 'tiny\n' >"$WORK/tiny.txt"
track() {
    q -c "CREATE TRIGGER $1_lo AFTER INSERT OR UPDATE OR DELETE ON $1 FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()" \
      -c "CREATE TRIGGER $1_lo_truncate BEFORE TRUNCATE ON $1 FOR EACH STATEMENT EXECUTE FUNCTION dt_TruncateLargeObjects()"
}
q -c "CREATE TABLE t1(id int, d doc, e doc)" -c "CREATE TABLE t2(id int, d doc)"
track t1; track t2
q -c "INSERT INTO t1 VALUES (1, '$WORK/f1.txt', '$WORK/f2.txt'), (2, '$WORK/f3.txt', NULL), (3, '$WORK/tiny.txt', '$WORK/f4.txt')"
same 4 "$(los)" "four large objects for four large documents"
same "1,1,1,1" "$(refs)" "each referenced once"

# Copy a value to a second table: it survives the first table's delete.
q -c "INSERT INTO t2 SELECT id, d FROM t1 WHERE id = 1"
same "2,1,1,1" "$(refs)" "a copied value: two references"
q -c "DELETE FROM t1 WHERE id = 1"
same "3|0|0" "$(los)|$(orphans)|$(lost)" "deleting the first row keeps the copied object, frees the other column's"
same "$(md5of "$WORK/f1.txt")" "$(q -c "SELECT md5(GetDocText(d)) FROM t2 WHERE id = 1")" "the copy still reads its text"

# Updates: a new document replaces the old one; other columns changing keep it.
q -c "UPDATE t1 SET id = id + 10"
same "3|0|0" "$(los)|$(orphans)|$(lost)" "an update of other columns keeps the objects"
q -c "UPDATE t1 SET d = '$WORK/f5.txt' WHERE id = 12"
same "3|0|0" "$(los)|$(orphans)|$(lost)" "an update to a new document frees the old object"
q -c "UPDATE t1 SET e = d WHERE id = 12"
same "2" "$(q -c "SELECT refs FROM dt_large_objects WHERE loid = (SELECT dt_LOOid(d) FROM t1 WHERE id = 12)")" "a value copied within a row: two references"
q -c "UPDATE t1 SET d = NULL WHERE id = 12"
same "3|0|0" "$(los)|$(orphans)|$(lost)" "setting one copy to null keeps the object"
q -c "UPDATE t1 SET e = '$WORK/tiny.txt' WHERE id = 13"
same "2|0|0" "$(los)|$(orphans)|$(lost)" "replacing a large document by a small one frees the object"

# Savepoints and rollback.
q -c "BEGIN" -c "DELETE FROM t2" -c "SAVEPOINT s" -c "INSERT INTO t2 VALUES (7, '$WORK/f2.txt')" -c "ROLLBACK TO s" -c "ROLLBACK"
same "2|0|0" "$(los)|$(orphans)|$(lost)" "rolled back delete and insert change nothing"
q -c "BEGIN" -c "INSERT INTO t2 VALUES (8, '$WORK/f2.txt')" -c "SAVEPOINT s" -c "DELETE FROM t2 WHERE id = 8" -c "ROLLBACK TO s" -c "COMMIT"
same "3|0|0" "$(los)|$(orphans)|$(lost)" "a delete rolled back to a savepoint keeps the object"

# TRUNCATE, also rolled back.
q -c "BEGIN" -c "TRUNCATE t2" -c "ROLLBACK"
same "3|0|0" "$(los)|$(orphans)|$(lost)" "a rolled back TRUNCATE keeps the objects"
q -c "INSERT INTO t1 SELECT 20, d, d FROM t2 WHERE id = 8"
q -c "TRUNCATE t2"
same "2|0|0" "$(los)|$(orphans)|$(lost)" "TRUNCATE frees what only it held and keeps what t1 holds"
same "$(md5of "$WORK/f2.txt")" "$(q -c "SELECT md5(GetDocText(e)) FROM t1 WHERE id = 20")" "t1's copy still reads its text"

# DROP COLUMN and DROP TABLE.
q -c "ALTER TABLE t1 DROP COLUMN e"
same "1|0|0" "$(los)|$(orphans)|$(lost)" "dropping a doc column frees only what it alone held"
q -c "INSERT INTO t2 SELECT id, d FROM t1"
q -c "DROP TABLE t1"
same "1|0" "$(los)|$(q -c "SELECT count(*) FROM t2 WHERE dt_LOOid(d) NOT IN (SELECT oid FROM pg_largeobject_metadata)")" "DROP TABLE keeps what another table holds"
q -c "BEGIN" -c "DROP TABLE t2" -c "ROLLBACK"
same 1 "$(los)" "a rolled back DROP TABLE keeps the objects"
q -c "DROP TABLE t2"
same "0|" "$(los)|$(refs)" "DROP TABLE of the last holder frees everything"

# Tables get the triggers when they are created: a copy made by CREATE
# TABLE AS is counted, a second (manual) trigger counts once, and a doc
# column added later brings them too.
q -c "CREATE TABLE auto1(id int, d doc)"
same "dt_large_objects,dt_large_objects_truncate" "$(q -c "SELECT string_agg(tgname, ',' ORDER BY tgname) FROM pg_trigger WHERE tgrelid = 'auto1'::regclass")" "CREATE TABLE attaches both triggers"
q -c "CREATE TRIGGER again AFTER INSERT OR UPDATE OR DELETE ON auto1 FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
q -c "INSERT INTO auto1 VALUES (1, '$WORK/f1.txt')"
same "1" "$(refs)" "a second trigger on the same table counts once"
q -c "CREATE TABLE auto2 AS SELECT * FROM auto1"
same "2" "$(refs)" "CREATE TABLE AS counts the copied values"
q -c "DELETE FROM auto1"
same "1|1|t" "$(los)|$(refs)|$(q -c "SELECT dt_LOOid(d) IN (SELECT oid FROM pg_largeobject_metadata) FROM auto2")" "the copy keeps the object after the original row goes"
q -c "CREATE TABLE auto3(id int)" -c "ALTER TABLE auto3 ADD COLUMN d doc"
same "2" "$(q -c "SELECT count(*) FROM pg_trigger WHERE tgrelid = 'auto3'::regclass")" "ADD COLUMN of type doc attaches the triggers"
q -c "DROP TABLE auto1, auto2, auto3"
same "0|" "$(los)|$(refs)" "dropping them frees everything"

# A table whose triggers were dropped: dt_VacuumLargeObjects counts what it holds.
q -c "CREATE TABLE plain(d doc)" -c "DROP TRIGGER dt_large_objects ON plain" -c "DROP TRIGGER dt_large_objects_truncate ON plain" -c "INSERT INTO plain VALUES ('$WORK/f1.txt'), ('$WORK/f2.txt')"
same "2|0,0" "$(los)|$(refs)" "without the trigger values are not counted"
same 0 "$(q -c "SELECT dt_VacuumLargeObjects()")" "dt_VacuumLargeObjects keeps what a table holds"
same "1,1" "$(refs)" "and counts its references"
q -c "DELETE FROM plain WHERE d::text LIKE '%f1.txt'"
same 1 "$(q -c "SELECT dt_VacuumLargeObjects()")" "dt_VacuumLargeObjects removes the unreferenced object"
same "1|1" "$(los)|$(refs)" "one left, counted once"
# Partitioned tables: a value is counted once.
q -c "CREATE TABLE parts(id int, d doc) PARTITION BY RANGE (id)" -c "CREATE TABLE parts1 PARTITION OF parts FOR VALUES FROM (0) TO (100)"
track parts
q -c "INSERT INTO parts VALUES (1, '$WORK/f3.txt')"
q -c "SELECT dt_VacuumLargeObjects()" >/dev/null
same "1" "$(q -c "SELECT refs FROM dt_large_objects WHERE loid = (SELECT dt_LOOid(d) FROM parts)")" "a partition's value counted once"
q -c "DELETE FROM parts"
same 1 "$(los)" "deleting from a partitioned table frees the object"
q -c "DROP TABLE parts, plain"
same "0|" "$(los)|$(refs)" "nothing left at the end"

# The trigger refuses to run as anything but AFTER ... FOR EACH ROW.
q -c "CREATE TABLE wrong(d doc)" -c "CREATE TRIGGER w BEFORE INSERT ON wrong FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
has "39P01" "$(q -c "INSERT INTO wrong VALUES ('$WORK/tiny.txt')" 2>&1)" "dt_ManageLargeObjects as a BEFORE trigger: refused"
check "nothing left in the temporary directory" tmp_empty
check "the extension drops cleanly" q -c "DROP TABLE wrong" -c "DROP EXTENSION document"
finish
