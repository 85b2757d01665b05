# Several docsql sessions insert, update and delete documents in the same
# tables at once, copy each other's values between tables (so one large
# object has holders in several sessions), while another session keeps
# searching and reading.  Afterwards: every session's rows are there in
# the right number and read back equal to their files, no large object is
# orphaned or lost, and the reference counts match the stored values.
# A copy of a value whose object a concurrent transaction has just removed
# is refused with 40001 (serialization failure): that is the only error
# allowed.
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/consistency.bash"
setup_server
TABLES="docs.body shared.body"
WORKERS=${WORKERS:-4}
ROUNDS=${ROUNDS:-30}

# Real texts of many sizes (in-row and large objects).
n=0
while read -r f; do
    cp "$f" "$WORK/f$n.txt"; n=$((n + 1))
done < <(find /usr/share/doc -name copyright -size +1k 2>/dev/null | sort | head -24)
printf 'tiny note about software\n' >"$WORK/f$n.txt"; n=$((n + 1))
printf 'another small license text\n' >"$WORK/f$n.txt"; n=$((n + 1))
NFILES=$n
q -c "CREATE TABLE docs (id serial PRIMARY KEY, worker int, name text, body doc)" \
  -c "CREATE TABLE shared (id serial PRIMARY KEY, name text, body doc)"

# One worker's script: each round inserts three documents, replaces one of
# its own by a new file, deletes one of its own, copies a neighbour's value
# into shared and into one of its own rows, removes a row of shared, and
# rolls back an insert.  Per round: +2 rows of its own.
script() {  # worker
    local w=$1 r f g o=$(( ($1 + 1) % WORKERS ))
    for r in $(seq "$ROUNDS"); do
        f=$(( (w * 7 + r * 3) % NFILES )); g=$(( (f + 5) % NFILES ))
        echo "INSERT INTO docs (worker, name, body) VALUES ($w, 'f$f.txt', '$WORK/f$f.txt'), ($w, 'f$g.txt', '$WORK/f$g.txt');"
        echo "INSERT INTO docs (worker, name, body) VALUES ($w, 'f$(( (g + 1) % NFILES )).txt', '$WORK/f$(( (g + 1) % NFILES )).txt');"
        echo "UPDATE docs SET name = 'f$g.txt', body = '$WORK/f$g.txt' WHERE id = (SELECT min(id) FROM docs WHERE worker = $w);"
        echo "DELETE FROM docs WHERE id = (SELECT max(id) FROM docs WHERE worker = $w);"
        echo "INSERT INTO shared (name, body) SELECT name, body FROM docs WHERE worker = $o ORDER BY id DESC LIMIT 1;"
        echo "UPDATE docs SET (name, body) = (SELECT name, body FROM docs WHERE worker = $o ORDER BY random() LIMIT 1) WHERE id = (SELECT id FROM docs WHERE worker = $w ORDER BY random() LIMIT 1) AND EXISTS (SELECT 1 FROM docs WHERE worker = $o);"
        echo "DELETE FROM shared WHERE id = (SELECT id FROM shared ORDER BY random() LIMIT 1);"
        echo "BEGIN; INSERT INTO docs (worker, name, body) VALUES ($w, 'f$f.txt', '$WORK/f$f.txt'); ROLLBACK;"
        echo "BEGIN; DELETE FROM docs WHERE worker = $o AND id = (SELECT max(id) FROM docs WHERE worker = $o); ROLLBACK;"
    done
}
reader() {
    local i
    for i in $(seq 400); do
        [ -e "$WORK/stop" ] && break
        echo "SELECT count(*) FROM docs WHERE Contains(body, 'software and (license or copyright)');"
        echo "SELECT count(*) FROM shared WHERE ContainsWords(body, 'debian license');"
        echo "SELECT sum(length(GetDocText(body))) FROM docs;"
        echo "SELECT count(*) FROM docs d WHERE DocWordCnt(d.body) >= 0;"
    done
}
for w in $(seq 0 $((WORKERS - 1))); do script "$w" >"$WORK/w$w.sql"; done

start=$(date +%s.%N)
pids=()
for w in $(seq 0 $((WORKERS - 1))); do
    "$DOCSQL" -X -q --continue-on-error -f "$WORK/w$w.sql" >"$WORK/w$w.out" 2>"$WORK/w$w.err" &
    pids+=($!)
done
( reader | "$DOCSQL" -X -q -t >"$WORK/reader.out" 2>"$WORK/reader.err" ) &
rpid=$!
for p in "${pids[@]}"; do wait "$p"; done
touch "$WORK/stop"
wait "$rpid"; rrc=$?
echo "sessions done in $(echo "$(date +%s.%N) - $start" | bc) s"

# Errors: only serialization failures of copies.
others=$(cat "$WORK"/w*.err | grep '^ERROR' | grep -vc '40001')
sers=$(cat "$WORK"/w*.err | grep '^ERROR' | grep -c '40001')
same 0 "$others" "writers: no error but refused copies of removed objects ($sers refused)"
[ "$others" = 0 ] || cat "$WORK"/w*.err | grep -A2 '^ERROR' | grep -v 40001 | head -20
same 0 "$rrc" "the searching session ran through"
same 0 "$(grep -c '^ERROR' "$WORK/reader.err")" "searches and reads saw no error"
grep -m5 '^ERROR' "$WORK/reader.err"

# Counts: each round adds two rows of the worker's own.
bad=0
for w in $(seq 0 $((WORKERS - 1))); do
    [ "$(q -c "SELECT count(*) FROM docs WHERE worker = $w")" = $((2 * ROUNDS)) ] || bad=$((bad + 1))
done
same 0 "$bad" "every worker has its $((2 * ROUNDS)) rows"
# Every stored value reads back equal to the file it names.
bad=0
while IFS='|' read -r name sum; do
    [ "$sum" = "$(md5of "$WORK/$name")" ] || bad=$((bad + 1))
done < <(q -c "SELECT name, md5(GetDocText(body)) FROM docs UNION ALL SELECT name, md5(GetDocText(body)) FROM shared")
same 0 "$bad" "every document in both tables reads back equal to its file"
same "0|0|0|0" "$(lo_state)" "orphans|lost|shared|unrecorded"
same "$(q -c "SELECT count(*) FROM dt_large_objects")" "$(q -c "SELECT count(*) FROM pg_largeobject_metadata")" \
     "one registry row per large object"
# The copy race, step by step: one session deletes the only row naming a
# large object and commits while another copies that row's value.
q -c "INSERT INTO docs (worker, name, body) VALUES (99, 'f0.txt', '$WORK/f0.txt')"
psql -X -q -c "BEGIN" -c "DELETE FROM docs WHERE worker = 99" -c "SELECT pg_sleep(1.5)" -c "COMMIT" >/dev/null &
dpid=$!
sleep 0.5
out=$(q -c "INSERT INTO shared (name, body) SELECT name, body FROM docs WHERE worker = 99" 2>&1)
wait $dpid
same "" "$out" "a copy racing the delete of its source succeeds (it reads the source as of its snapshot)"
same "$(md5of "$WORK/f0.txt")" "$(q -c "SELECT md5(GetDocText(body)) FROM shared WHERE name = 'f0.txt'")" "the copy reads back whole"
same "0|0|0|0" "$(lo_state)" "after the race: orphans|lost|shared|unrecorded"

shared_count=$(q -c "SELECT count(*) FROM shared")
echo "rows: docs $(q -c "SELECT count(*) FROM docs"), shared $shared_count, large objects $(q -c "SELECT count(*) FROM pg_largeobject_metadata")"
check "no temporary file left" tmp_empty
finish
