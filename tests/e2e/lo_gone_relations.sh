# The registry of large objects keeps no rows for tables and columns that
# are gone, and no large object outlives the documents that owned it:
#  - a temporary table (dropped at the end of the session or by ON COMMIT
#    DROP without a DROP the module sees) refuses documents stored as large
#    objects, with 0A000; documents kept in the row are welcome;
#  - ALTER COLUMN ... TYPE of a doc column removes its objects;
#  - a materialized view with doc columns is refused with 0A000 (its rows
#    cannot own objects).
source "$(dirname "$0")/channel_common.bash"
setup_server
head -c 3000 /usr/share/common-licenses/GPL-3 >"$WORK/doc.txt"
chmod 644 "$WORK/doc.txt"
psql -X -q -c "CREATE ROLE mallory LOGIN" -c "GRANT CREATE ON SCHEMA public TO mallory" >/dev/null
as() { local r=$1; shift; PGUSER=$r "$DOCSQL" -X -qtA -v VERBOSITY=verbose "$@" 2>&1; }
los() { psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata"; }
registry() { psql -X -qtA -c "SELECT count(*) FROM dt_large_objects"; }
orphans() { psql -X -qtA -c "SELECT count(*) FROM dt_large_objects l WHERE NOT EXISTS (SELECT 1 FROM pg_class c WHERE c.oid = l.relid::oid)"; }
lo0=$(los); reg0=$(registry)

# A session that fills a temporary table and disconnects.
out=$(as mallory -c "CREATE TEMP TABLE scratch (id int, body doc)" \
    -c "INSERT INTO scratch SELECT i, 'format(ascii):$WORK/doc.txt' FROM generate_series(1, 3) i")
has "0A000" "$out" "a temporary table refuses documents stored as large objects"
has "cannot be kept in temporary table \"scratch\"" "$out" "and says why"
same "$lo0" "$(los)" "no large object is left after the session ends"
same "$reg0" "$(registry)" "and no registry row"
out=$(as mallory -c "BEGIN" -c "CREATE TEMP TABLE t2 (id int, body doc) ON COMMIT DROP" \
    -c "INSERT INTO t2 VALUES (1, 'format(ascii):$WORK/doc.txt')" -c "COMMIT")
has "0A000" "$out" "so does one dropped on commit"
same "$lo0" "$(los)" "no large object is left after it"
out=$(as mallory -c "CREATE TEMP TABLE inrow (id int, body doc)" \
    -c "INSERT INTO inrow VALUES (1, dt_FromText('a short note about zebras'))" \
    -c "SELECT count(*) FROM inrow WHERE body @@ 'zebra'")
same "1" "$out" "documents kept in the row may fill a temporary table"

# A column changed from doc to text gives its objects back.
as mallory -c "CREATE TABLE keep (id int, body doc)" \
    -c "INSERT INTO keep SELECT i, 'format(ascii):$WORK/doc.txt' FROM generate_series(1, 3) i" >/dev/null
same "$((lo0 + 3))" "$(los)" "three documents, three large objects"
same "3" "$(psql -X -qtA -c "SELECT count(*) FROM dt_large_objects WHERE relid = 'keep'::regclass")" "all registered"
out=$(as mallory -c "ALTER TABLE keep ALTER COLUMN body TYPE text USING GetDocText(body)")
same "" "$out" "ALTER COLUMN ... TYPE text succeeds"
same "$lo0" "$(los)" "the column's large objects are gone"
same "0" "$(psql -X -qtA -c "SELECT count(*) FROM dt_large_objects WHERE relid = 'keep'::regclass")" "and their registry rows"
same "3000" "$(psql -X -qtA -c "SELECT DISTINCT length(body) FROM keep")" "the text kept by USING is there"
same "0" "$(orphans)" "the registry names no table that is gone"

# A materialized view of documents.
as mallory -c "CREATE TABLE src (id int, body doc)" \
    -c "INSERT INTO src VALUES (1, 'format(ascii):$WORK/doc.txt')" >/dev/null
out=$(as mallory -c "CREATE MATERIALIZED VIEW mv AS SELECT id, body FROM src")
has "0A000" "$out" "a materialized view of documents is refused"
has "cannot hold documents" "$out" "and says why"
out=$(as mallory -c "CREATE MATERIALIZED VIEW mvtext AS SELECT id, md5(GetDocText(body)) AS h FROM src" \
    -c "SELECT h FROM mvtext")
same "$(md5of "$WORK/doc.txt")" "$out" "a materialized view of the text works"
finish
