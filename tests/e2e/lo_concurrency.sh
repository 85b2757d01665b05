# Large objects under concurrency: writers, readers, deleters, copies
# between tables, updates, TRUNCATE, CREATE/DROP of other tables and VACUUM
# run together for DURATION seconds (30 here, longer in tools/soak.sh).
# At the end every committed row reads back whole (md5 against its source
# file), no object is named by two rows, and no object is without a row.
# Readers never fail on a document deleted under them.
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/consistency.bash"
setup_server
DURATION=${DURATION:-30}
TABLES="docs.body copies.body scratch.body"
i=0
for f in /usr/share/common-licenses/{GPL-3,GPL-2,LGPL-2.1,Apache-2.0,Artistic,MPL-2.0,GFDL-1.3}; do
    [ -f "$f" ] || continue
    head -c $((1000 + 4000 * i)) "$f" >"$WORK/f$i.txt"; i=$((i + 1))
done
NFILES=$i
chmod 644 "$WORK"/*.txt
# SQLSTATEs shown, so that record() can tell the errors a worker may retry.
p() { psql -X -qtA -v ON_ERROR_STOP=1 -v VERBOSITY=verbose "$@"; }
p -c "CREATE TABLE docs (id serial PRIMARY KEY, name text, body doc)" \
  -c "CREATE TABLE copies (id serial PRIMARY KEY, name text, body doc)" \
  -c "CREATE TABLE scratch (name text, body doc)" \
  -c "CREATE TABLE sums (name text PRIMARY KEY, md5 text)"
for ((k = 0; k < NFILES; k++)); do p -c "INSERT INTO sums VALUES ('f$k.txt', '$(md5of "$WORK/f$k.txt")')"; done
end=$(( $(date +%s) + DURATION ))
alive() { [ "$(date +%s)" -lt "$end" ]; }
# Errors a worker may meet and retry: deadlocks and serialization failures
# between the random updates and deletes.  Anything else is a failure.
record() { grep -E 'ERROR' | grep -vE '40P01|40001' >>"$WORK/errors.$1"; }

writer() { while alive; do k=$((RANDOM % NFILES))
    q -c "INSERT INTO docs (name, body) VALUES ('f$k.txt', 'format(ascii):$WORK/f$k.txt')" 2>&1 | record writer$1; done; }
copier() { while alive; do
    p -c "INSERT INTO copies (name, body) SELECT name, body FROM docs ORDER BY random() LIMIT 3" 2>&1 | record copier
    p -c "UPDATE copies c SET (name, body) = (SELECT name, body FROM docs ORDER BY random() LIMIT 1)
          WHERE c.id = (SELECT id FROM copies ORDER BY random() LIMIT 1) AND EXISTS (SELECT 1 FROM docs)" 2>&1 | record copier
    p -c "UPDATE docs SET body = body, name = name WHERE id = (SELECT id FROM docs ORDER BY random() LIMIT 1)" 2>&1 | record copier
    done; }
deleter() { while alive; do
    p -c "DELETE FROM docs WHERE id IN (SELECT id FROM docs ORDER BY random() LIMIT 1)" 2>&1 | record deleter
    p -c "DELETE FROM copies WHERE id IN (SELECT id FROM copies ORDER BY random() LIMIT 2)" 2>&1 | record deleter
    sleep 0.2; done; }
reader() { while alive; do
    p -c "SELECT d.id, d.name FROM docs d JOIN sums s USING (name) WHERE md5(GetDocText(d.body)) <> s.md5
          UNION ALL SELECT c.id, c.name FROM copies c JOIN sums s USING (name) WHERE md5(GetDocText(c.body)) <> s.md5" \
          >>"$WORK/mismatch.reader$1" 2>&1
    done; }
truncater() { while alive; do
    p -c "INSERT INTO scratch SELECT name, body FROM docs ORDER BY random() LIMIT 4" 2>&1 | record truncater
    if [ $((RANDOM % 3)) = 0 ]; then p -c "BEGIN" -c "TRUNCATE scratch" -c "ROLLBACK" 2>&1 | record truncater
    else p -c "TRUNCATE scratch" 2>&1 | record truncater; fi
    sleep 0.3; done; }
dropper() { n=0; while alive; do n=$((n + 1))
    p -c "CREATE TABLE other$n AS SELECT name, body FROM docs ORDER BY random() LIMIT 2" -c "DROP TABLE other$n" 2>&1 | record dropper
    p -c "CREATE TABLE empty$n (d doc)" -c "DROP TABLE empty$n" 2>&1 | record dropper
    sleep 0.5; done; }
vacuumer() { while alive; do sleep 2; p -c "VACUUM docs, copies, scratch, pg_largeobject" 2>&1 | record vacuumer; done; }

writer 1 & writer 2 & copier & deleter & reader 1 & reader 2 & truncater & dropper & vacuumer &
wait
rows=$(p -c "SELECT (SELECT count(*) FROM docs) || ' docs, ' || (SELECT count(*) FROM copies) || ' copies, ' ||
                    (SELECT count(*) FROM scratch) || ' scratch, ' || (SELECT count(*) FROM pg_largeobject_metadata) || ' large objects'")
echo "after $DURATION s: $rows"
errs=$(cat "$WORK"/errors.* 2>/dev/null)
same "" "$errs" "no worker met an error other than a deadlock or serialization failure"
same "" "$(cat "$WORK"/mismatch.* 2>/dev/null)" "readers never read a wrong text, nor failed on a document deleted under them"
check "documents were written" test "$(p -c "SELECT count(*) FROM docs")" -gt 0
same 0 "$(p -c "SELECT count(*) FROM (SELECT name, body FROM docs UNION ALL SELECT name, body FROM copies UNION ALL SELECT name, body FROM scratch) d
              JOIN sums s USING (name) WHERE md5(GetDocText(d.body)) IS DISTINCT FROM s.md5")" \
     "every committed row reads back whole"
same "0|0|0|0" "$(lo_state)" "orphans|lost|shared|unrecorded"
check "nothing left in the temporary directory" tmp_empty
finish
