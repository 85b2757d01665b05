# Crashes in the middle of loading documents: the backend that is pulling a
# client file is killed with SIGKILL, and later the whole server is stopped
# with an immediate shutdown while a transaction of several large documents
# is open.  After each restart: committed documents are all there and read
# back byte for byte, nothing of the interrupted transaction remains (rows,
# large objects, registry rows), the registry matches the stored values,
# and the temporary files the dead backends left are removed.
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/consistency.bash"
setup_server
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
as_pg() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }
TABLES="docs.body"

# Real texts: licences and Debian copyright files, a few hundred KB each.
i=0
for f in /usr/share/common-licenses/{GPL-3,GPL-2,LGPL-2.1,Apache-2.0,Artistic,MPL-2.0}; do
    [ -f "$f" ] && cp "$f" "$WORK/c$i.txt" && i=$((i + 1))
done
find /usr/share/doc -name copyright -size +2k 2>/dev/null | sort | head -150 | xargs cat 2>/dev/null | head -c 400000 >"$WORK/big1.txt"
find /usr/share/doc -name copyright -size +2k 2>/dev/null | sort | tail -150 | xargs cat 2>/dev/null | head -c 300000 >"$WORK/big2.txt"
printf 'a short note\n' >"$WORK/small.txt"
declare -A MD5
for f in "$WORK"/*.txt; do MD5[$(basename "$f")]=$(md5of "$f"); done
q -c "CREATE TABLE docs (id int PRIMARY KEY, name text, body doc)"

committed=0
commit_file() {  # id file
    q -c "INSERT INTO docs VALUES ($1, '$(basename "$2")', '$2')" && committed=$((committed + 1))
}
for f in "$WORK"/c*.txt "$WORK/small.txt"; do commit_file $((committed + 1)) "$f"; done
q -c "BEGIN" -c "INSERT INTO docs VALUES (100, 'big1.txt', '$WORK/big1.txt')" \
  -c "INSERT INTO docs VALUES (101, 'big2.txt', '$WORK/big2.txt')" -c "COMMIT" && committed=$((committed + 2))
same "$committed" "$(q -c "SELECT count(*) FROM docs")" "$committed documents committed before the crashes"

# Starts a transaction that stores two large documents and then pulls a
# client file through a FIFO that delivers part of its data and stalls;
# returns once the backend has written some of it to its temporary file.
start_stalled_load() {  # first-id
    rm -f "$WORK/fifo"; mkfifo "$WORK/fifo"
    (head -c 100000 "$WORK/big1.txt"; exec sleep 120) >"$WORK/fifo" &
    WRITER=$!
    PGAPPNAME=crashload "$DOCSQL" -X -q -c "BEGIN" \
        -c "INSERT INTO docs VALUES ($1, 'x', '$WORK/big2.txt'), ($(($1 + 1)), 'y', '$WORK/c0.txt')" \
        -c "INSERT INTO docs VALUES ($(($1 + 2)), 'stalled', '$WORK/fifo')" -c "COMMIT" \
        >"$WORK/load.out" 2>&1 &
    LOADER=$!
    for _ in $(seq 100); do
        [ -n "$(find "$SERVER_TMP" -type f -size +0 2>/dev/null)" ] && break
        sleep 0.1
    done
    BACKEND=$(psql -XAtc "SELECT pid FROM pg_stat_activity WHERE application_name = 'crashload'")
}
wait_ready() {
    for _ in $(seq 100); do
        psql -XAtc "SELECT 1" >/dev/null 2>&1 && return 0
        sleep 0.2
    done
    return 1
}
check_after() {  # label
    same "$committed" "$(q -c "SELECT count(*) FROM docs")" "$1: the committed rows, no row of the interrupted transaction"
    local bad=0 name sum
    while IFS='|' read -r name sum; do
        [ "$sum" = "${MD5[$name]:-none}" ] || bad=$((bad + 1))
    done < <(q -c "SELECT name, md5(GetDocText(body)) FROM docs ORDER BY id")
    same 0 "$bad" "$1: every committed document reads back equal to its file"
    same "$(q -c "SELECT count(DISTINCT dt_LOOid(body)) FROM docs")" \
         "$(q -c "SELECT count(*) FROM pg_largeobject_metadata")" "$1: no large object of the interrupted transaction"
    same "0|0|0|0" "$(lo_state)" "$1: orphans|lost|shared|unrecorded"
    check "$1: no temporary file and no directory of a dead backend" tmp_empty
}

# ---- 1: the loading backend is killed -------------------------------------------------
start_stalled_load 200
[ -n "$BACKEND" ] && pass "loader mid-pull (backend $BACKEND)" || fail "no loading backend found"
check "a partial client file is in the backend's own directory" test -s "$(find "$SERVER_TMP/document.$BACKEND" -type f | head -1)"
kill -KILL "$BACKEND"
# docsql notices the lost connection once the stalled file ends.
kill "$WRITER" 2>/dev/null; wait "$WRITER" 2>/dev/null
wait "$LOADER"; lrc=$?
same 3 "$lrc" "docsql reports the lost connection (exit 3)"
check "the server recovers from the killed backend" wait_ready
check "the killed backend's directory is still there before the library loads again" test -d "$SERVER_TMP/document.$BACKEND"
q -c "SELECT dt_Release()" >/dev/null
check "loading the library removes the dead backend's directory" test ! -e "$SERVER_TMP/document.$BACKEND"
check_after "after SIGKILL"

# ---- 2: immediate shutdown of the server ----------------------------------------------
start_stalled_load 300
[ -n "$BACKEND" ] && pass "loader mid-pull again (backend $BACKEND)" || fail "no loading backend found"
as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -m immediate -w stop >/dev/null
kill "$WRITER" 2>/dev/null; wait "$WRITER" 2>/dev/null
wait "$LOADER"; lrc=$?
same 3 "$lrc" "docsql reports the lost connection (exit 3)"
check "a stale directory with a partial file is left by the shutdown" test -d "$SERVER_TMP/document.$BACKEND"
as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -l "$DOC_SERVER_DIR/server.log" -w -t 60 start >/dev/null
check "the server restarts after the immediate shutdown" wait_ready
q -c "SELECT dt_Release()" >/dev/null
check_after "after immediate shutdown"

# ---- random moments: kills while a script of transactions runs ---------------------------
# Each cycle loads a transaction of large documents and then single inserts
# (each its own transaction), and kills at a random moment: the backend
# (odd cycles) or the whole server (even ones).  Rows whose commit docsql
# saw must be there; at most one more (committed, the answer lost).
CYCLES=${CRASH_CYCLES:-2}
for c in $(seq "$CYCLES"); do
    base=$((1000 * (c + 1)))
    { echo "BEGIN;"
      for k in 0 1 2 3 4 5; do echo "INSERT INTO docs VALUES ($((base + k)), 'big$((k % 2 + 1)).txt', '$WORK/big$((k % 2 + 1)).txt');"; done
      echo "COMMIT;"
      for k in $(seq 10 99); do f=c$((k % 6)).txt; [ -f "$WORK/$f" ] || f=small.txt
          echo "INSERT INTO docs VALUES ($((base + k)), '$f', '$WORK/$f');"; done
    } >"$WORK/cycle.sql"
    PGAPPNAME=crashload "$DOCSQL" -X -f "$WORK/cycle.sql" >"$WORK/cycle.out" 2>&1 &
    LOADER=$!
    # The moment: a random number of committed rows of this cycle (below
    # six: inside the first transaction, after a random pause).
    target=$((RANDOM % 80))
    for _ in $(seq 500); do
        if [ "$target" -lt 6 ]; then
            [ -n "$(psql -XAtc "SELECT pid FROM pg_stat_activity WHERE application_name = 'crashload'")" ] && break
        else
            [ "$(psql -XAtc "SELECT count(*) FROM docs WHERE id >= $base")" -ge "$target" ] && break
        fi
        sleep 0.01
    done
    [ "$target" -lt 6 ] && sleep "0.$((RANDOM % 4))"
    BACKEND=$(psql -XAtc "SELECT pid FROM pg_stat_activity WHERE application_name = 'crashload'")
    if [ $((c % 2)) = 1 ] && [ -n "$BACKEND" ]; then
        how="SIGKILL"; kill -KILL "$BACKEND"
    else
        how="immediate shutdown"
        as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -m immediate -w stop >/dev/null
        as_pg "$PGBIN/pg_ctl" -D "$DOC_SERVER_DIR/data" -l "$DOC_SERVER_DIR/server.log" -w -t 60 start >/dev/null
    fi
    wait "$LOADER"
    check "cycle $c ($how): the server is back" wait_ready
    # Acknowledged: the transaction's six rows once COMMIT came back, and
    # one row per INSERT answered after it.  One more commit may have
    # happened without its answer (six rows before the COMMIT, one after).
    acked=$(awk '/^COMMIT/ { n = 6; after = 1; next } after && /^INSERT 0 1/ { n++ } END { print n + 0 }' "$WORK/cycle.out")
    more=$( [ "$acked" = 0 ] && echo 6 || echo 1 )
    got=$(q -c "SELECT count(*) FROM docs WHERE id >= $base AND id < $((base + 100))")
    if [ "$got" = "$acked" ] || [ "$got" = $((acked + more)) ]; then
        pass "cycle $c ($how): $got rows, $acked acknowledged"
    else
        fail "cycle $c ($how): $got rows, $acked acknowledged"
    fi
    committed=$(q -c "SELECT count(*) FROM docs")
    q -c "SELECT dt_Release()" >/dev/null
    check_after "cycle $c"
done

# The table takes new documents as before.
commit_file 400 "$WORK/c1.txt"
check_after "after a new insert"
grep -q "was terminated by signal 9" "$DOC_SERVER_DIR/server.log" && pass "server log records the killed backend" || fail "server log: no killed backend"
finish
