# Deleting, truncating and dropping a table of many documents works within
# the lock table: removing a document's large object takes no lock of its
# own.  The server runs with max_locks_per_transaction = 10 here, so a lock
# per object would run out after a few hundred; tools/soak.sh repeats this
# with 60,000 documents and the default setting.
source "$(dirname "$0")/channel_common.bash"
setup_server
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
N=${LO_MANY:-3000}
LOCKS=${LO_LOCKS:-10}
as_pg() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }
psql -X -q -c "ALTER SYSTEM SET max_locks_per_transaction = $LOCKS" >/dev/null
as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -l "$DOC_SERVER_DIR/server.log" -w -t 60 restart >/dev/null
same "$LOCKS" "$(psql -X -qtA -c "SHOW max_locks_per_transaction")" "server restarted with max_locks_per_transaction = $LOCKS"
head -c 3000 /usr/share/common-licenses/GPL-3 >"$WORK/d.txt"
chmod 644 "$WORK/d.txt"
los() { psql -X -qtA -c "SELECT count(*) FROM pg_largeobject_metadata"; }
fill() {  # one literal, N rows: each row gets its own copy of the object
    q -c "INSERT INTO many SELECT g, 'format(ascii):$WORK/d.txt'::doc FROM generate_series(1, $N) g" 2>&1
}
q -c "CREATE TABLE many (id int, body doc)"
# First as N literals, each pulled from the client on its own.
{ echo "INSERT INTO many VALUES"; for ((g = 1; g <= N; g++)); do
    [ $g -gt 1 ] && echo ","; printf "(%d, 'format(ascii):%s')" $g "$WORK/d.txt"; done; echo ";"; } >"$WORK/fill.sql"
same "" "$("$DOCSQL" -X -qtA -f "$WORK/fill.sql" 2>&1)" "$N documents entered in one statement"
same "$N" "$(los)" "$N large objects"
out=$(psql -X -qtA -c "DELETE FROM many" 2>&1)
same "" "$out" "DELETE of $N documents in one transaction"
same "0" "$(los)" "their large objects are gone"
fill >/dev/null
out=$(psql -X -qtA -c "TRUNCATE many" 2>&1)
same "0|" "$(los)|$out" "TRUNCATE of $N documents"
fill >/dev/null
out=$(psql -X -qtA -c "DROP TABLE many" 2>&1)
same "0|" "$(los)|$out" "DROP TABLE of $N documents"
same "0" "$(psql -X -qtA -c "SELECT count(*) FROM dt_large_objects")" "the registry is empty"
finish
