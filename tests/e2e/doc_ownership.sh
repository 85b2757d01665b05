# Each stored document owns its large object: rows deleted, updated,
# truncated, tables and columns dropped, values copied to other rows and
# tables, rolled back work: no orphan is left, nothing a row names is lost,
# and no two rows share an object.
source "$(dirname "$0")/channel_common.bash"
setup_server
los() { q -c "SELECT count(*) FROM pg_largeobject_metadata"; }
vals() { echo "SELECT tableoid, d AS v FROM t1 WHERE d IS NOT NULL UNION ALL SELECT tableoid, e FROM t1 WHERE e IS NOT NULL UNION ALL SELECT tableoid, d FROM t2 WHERE d IS NOT NULL"; }
# orphans: existing objects that no stored value names
orphans() { q -c "SELECT count(*) FROM pg_largeobject_metadata m WHERE m.oid NOT IN (SELECT dt_LOOid(v) FROM ($(vals)) s WHERE dt_LOOid(v) IS NOT NULL)"; }
lost() { q -c "SELECT count(*) FROM ($(vals)) s WHERE dt_LOOid(v) IS NOT NULL AND dt_LOOid(v) NOT IN (SELECT oid FROM pg_largeobject_metadata)"; }
# shared: objects named by more than one stored value
shared() { q -c "SELECT count(*) FROM (SELECT dt_LOOid(v) FROM ($(vals)) s WHERE dt_LOOid(v) IS NOT NULL GROUP BY 1 HAVING count(*) > 1) s"; }
state() { echo "$(los)|$(orphans)|$(lost)|$(shared)"; }
registered() { q -c "SELECT count(*) FROM dt_large_objects"; }
for i in 1 2 3 4 5; do head -c $((2000 * i)) /usr/share/common-licenses/GPL-3 >"$WORK/f$i.txt"; done
printf 'tiny\n' >"$WORK/tiny.txt"
q -c "CREATE TABLE t1(id int, d doc, e doc)" -c "CREATE TABLE t2(id int, d doc)"
q -c "INSERT INTO t1 VALUES (1, '$WORK/f1.txt', '$WORK/f2.txt'), (2, '$WORK/f3.txt', NULL), (3, '$WORK/tiny.txt', '$WORK/f4.txt')"
same "4|0|0|0" "$(state)" "four large objects for four large documents"
same 4 "$(registered)" "each recorded with its row's table and column"

# Copy a value to a second table: the copy gets its own object.
q -c "INSERT INTO t2 SELECT id, d FROM t1 WHERE id = 1"
same "5|0|0|0" "$(state)" "a copied value gets an object of its own"
q -c "DELETE FROM t1 WHERE id = 1"
same "3|0|0|0" "$(state)" "deleting the first row frees its objects, the copy keeps its own"
same "$(md5of "$WORK/f1.txt")" "$(q -c "SELECT md5(GetDocText(d)) FROM t2 WHERE id = 1")" "the copy still reads its text"

# Updates: a new document replaces the old one; other columns changing keep it.
q -c "UPDATE t1 SET id = id + 10"
same "3|0|0|0" "$(state)" "an update of other columns keeps the objects"
q -c "UPDATE t1 SET d = '$WORK/f5.txt' WHERE id = 12"
same "3|0|0|0" "$(state)" "an update to a new document frees the old object"
q -c "UPDATE t1 SET e = d WHERE id = 12"
same "4|0|0|0" "$(state)" "a value copied within a row: a second object"
q -c "UPDATE t1 SET d = NULL WHERE id = 12"
same "3|0|0|0" "$(state)" "setting one copy to null frees its object, the other stays"
same "$(md5of "$WORK/f5.txt")" "$(q -c "SELECT md5(GetDocText(e)) FROM t1 WHERE id = 12")" "the other copy reads its text"
q -c "UPDATE t1 SET e = '$WORK/tiny.txt' WHERE id = 13"
same "2|0|0|0" "$(state)" "replacing a large document by a small one frees the object"
# One literal for many rows: each row gets its own object.
q -c "INSERT INTO t2 SELECT g, 'format(ascii):$WORK/f2.txt'::doc FROM generate_series(100, 104) g"
same "7|0|0|0" "$(state)" "one literal stored in five rows: five objects"
q -c "DELETE FROM t2 WHERE id >= 100"
same "2|0|0|0" "$(state)" "and they go with their rows"

# Savepoints and rollback.
q -c "BEGIN" -c "DELETE FROM t2" -c "SAVEPOINT s" -c "INSERT INTO t2 VALUES (7, '$WORK/f2.txt')" -c "ROLLBACK TO s" -c "ROLLBACK"
same "2|0|0|0" "$(state)" "rolled back delete and insert change nothing"
q -c "BEGIN" -c "INSERT INTO t2 VALUES (8, '$WORK/f2.txt')" -c "SAVEPOINT s" -c "DELETE FROM t2 WHERE id = 8" -c "ROLLBACK TO s" -c "COMMIT"
same "3|0|0|0" "$(state)" "a delete rolled back to a savepoint keeps the object"

# TRUNCATE, also rolled back.
q -c "BEGIN" -c "TRUNCATE t2" -c "ROLLBACK"
same "3|0|0|0" "$(state)" "a rolled back TRUNCATE keeps the objects"
q -c "INSERT INTO t1 SELECT 20, d, d FROM t2 WHERE id = 8"
same "5|0|0|0" "$(state)" "two more copies"
q -c "TRUNCATE t2"
same "3|0|0|0" "$(state)" "TRUNCATE frees the table's objects and keeps t1's copies"
same "$(md5of "$WORK/f2.txt")" "$(q -c "SELECT md5(GetDocText(e)) FROM t1 WHERE id = 20")" "t1's copy still reads its text"

# DROP COLUMN and DROP TABLE.
q -c "ALTER TABLE t1 DROP COLUMN e"
same "1" "$(los)" "dropping a doc column frees its objects only"
q -c "INSERT INTO t2 SELECT id, d FROM t1"
q -c "DROP TABLE t1"
same "1|0" "$(los)|$(q -c "SELECT count(*) FROM t2 WHERE dt_LOOid(d) NOT IN (SELECT oid FROM pg_largeobject_metadata)")" "DROP TABLE keeps what another table holds"
q -c "BEGIN" -c "DROP TABLE t2" -c "ROLLBACK"
same 1 "$(los)" "a rolled back DROP TABLE keeps the objects"
q -c "DROP TABLE t2"
same "0|0" "$(los)|$(registered)" "DROP TABLE frees everything"

# Tables get the triggers when they are created: a copy made by CREATE
# TABLE AS gets its own objects, a second (manual) trigger acts once, and a
# doc column added later brings them too.
q -c "CREATE TABLE auto1(id int, d doc)"
same "dt_large_objects,dt_large_objects_claim,dt_large_objects_truncate" "$(q -c "SELECT string_agg(tgname, ',' ORDER BY tgname) FROM pg_trigger WHERE tgrelid = 'auto1'::regclass")" "CREATE TABLE attaches the three triggers"
q -c "CREATE TRIGGER again AFTER INSERT OR UPDATE OR DELETE ON auto1 FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()" \
  -c "CREATE TRIGGER again_claim BEFORE INSERT OR UPDATE ON auto1 FOR EACH ROW EXECUTE FUNCTION dt_ClaimLargeObjects()"
q -c "INSERT INTO auto1 VALUES (1, '$WORK/f1.txt')"
same "1|1" "$(los)|$(registered)" "second triggers on the same table act once"
q -c "CREATE TABLE auto2 AS SELECT * FROM auto1"
same "2|2" "$(los)|$(registered)" "CREATE TABLE AS gives the copied rows objects of their own"
q -c "DELETE FROM auto1"
same "1|1|t" "$(los)|$(registered)|$(q -c "SELECT md5(GetDocText(d)) = '$(md5of "$WORK/f1.txt")' FROM auto2")" "the copy keeps its object after the original row goes"
q -c "CREATE TABLE auto3(id int)" -c "ALTER TABLE auto3 ADD COLUMN d doc"
same "3" "$(q -c "SELECT count(*) FROM pg_trigger WHERE tgrelid = 'auto3'::regclass")" "ADD COLUMN of type doc attaches the triggers"
# CREATE TABLE ... AS with documents made in the same statement: the rows
# keep them after the commit.
q -c "CREATE TABLE fromtext AS SELECT g AS id, dt_FromText(repeat('document number ' || g || ' ', 20)) AS body FROM generate_series(1, 3) g"
same "3|3" "$(q -c "SELECT count(*) FROM fromtext WHERE GetDocText(body) LIKE 'document number%'")|$(q -c "SELECT count(*) FROM dt_large_objects WHERE relid = 'fromtext'::regclass")" \
     "CREATE TABLE AS keeps the documents it made, each owned by its row"
q -c "DROP TABLE auto1, auto2, auto3, fromtext"
same "0|0" "$(los)|$(registered)" "dropping them frees everything"

# Partitioned tables: a value is owned once, by its partition.
q -c "CREATE TABLE parts(id int, d doc) PARTITION BY RANGE (id)" -c "CREATE TABLE parts1 PARTITION OF parts FOR VALUES FROM (0) TO (100)" \
  -c "CREATE TABLE parts2 PARTITION OF parts FOR VALUES FROM (100) TO (200)"
q -c "INSERT INTO parts VALUES (1, '$WORK/f3.txt')"
same "1|1" "$(los)|$(registered)" "a partition's value owned once"
q -c "UPDATE parts SET id = 150"
same "1|1|$(md5of "$WORK/f3.txt")" "$(los)|$(registered)|$(q -c "SELECT md5(GetDocText(d)) FROM parts")" "a row moved to another partition keeps one object"
q -c "DELETE FROM parts"
same "0|0" "$(los)|$(registered)" "deleting from a partitioned table frees the object"
q -c "DROP TABLE parts"

# A schema dropped with its tables.
q -c "CREATE SCHEMA s" -c "CREATE TABLE s.t(d doc)" -c "INSERT INTO s.t VALUES ('$WORK/f1.txt'), ('$WORK/f2.txt')"
same 2 "$(los)" "two documents in another schema"
q -c "DROP SCHEMA s CASCADE" 2>/dev/null
same "0|0" "$(los)|$(registered)" "DROP SCHEMA frees them"

# The triggers refuse to run as anything else than they are made for.
q -c "CREATE TABLE wrong(d doc)" -c "CREATE TRIGGER w BEFORE INSERT ON wrong FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
has "39P01" "$(q -c "INSERT INTO wrong VALUES ('$WORK/tiny.txt')" 2>&1)" "dt_ManageLargeObjects as a BEFORE trigger: refused"
q -c "DROP TRIGGER w ON wrong" -c "CREATE TRIGGER w AFTER INSERT ON wrong FOR EACH ROW EXECUTE FUNCTION dt_ClaimLargeObjects()"
has "39P01" "$(q -c "INSERT INTO wrong VALUES ('$WORK/tiny.txt')" 2>&1)" "dt_ClaimLargeObjects as an AFTER trigger: refused"
check "nothing left in the temporary directory" tmp_empty
check "the extension drops cleanly" q -c "DROP TABLE wrong" -c "DROP EXTENSION document"
finish
