# The server reads client files through docsql: sizes, every byte value,
# pulls inside data-changing statements, refusals, and nothing left behind.
source "$(dirname "$0")/channel_common.bash"
# Client paths here also come from table data (paths stored in rows, names
# a dump or export wrote), which docsql serves only under a directory the
# user allows; the rules themselves are tested in channel_trust.sh.
q() { "$DOCSQL" -X -qtA --allow-dir "$WORK" "$@"; }
setup_server

: >"$WORK/empty"
head -c 8192 /dev/urandom >"$WORK/k8"
# 5 MB holding every byte value many times over, in no particular order.
python3 -c "
import random, sys
random.seed(5)
b = bytes(range(256)) * 20480
b = bytearray(b[:5*1024*1024]); random.shuffle(b)
sys.stdout.buffer.write(b)" >"$WORK/m5"
same 256 "$(python3 -c "import sys; print(len(set(open('$WORK/m5','rb').read())))")" "5 MB file holds all 256 byte values"

q -c "CREATE TABLE pulled(name text, size bigint, md5 text)"
for f in empty k8 m5; do
    q -c "INSERT INTO pulled SELECT '$f', * FROM dt_ClientFileInfo('$WORK/$f')"
    same "$(stat -c %s "$WORK/$f")|$(md5of "$WORK/$f")" \
        "$(q -c "SELECT size || '|' || md5 FROM pulled WHERE name = '$f'")" \
        "pull of $f: size and MD5 on the server equal the client's"
done
same 0 "$(q -c "SELECT size FROM pulled WHERE name = 'empty'")" "empty client file arrives empty"
check "no temporary file left after pulls" tmp_empty

# Exactly 8192 bytes travel in one data message; a trace shows the pull.
out=$(q --trace-channel -c "INSERT INTO pulled SELECT 'k8t', * FROM dt_ClientFileInfo('$WORK/k8')" 2>&1)
has "pull end $WORK/k8 (8192 bytes)" "$out" "trace of an 8192-byte pull"

# Several rows, each pulling its own file, in INSERT, UPDATE and INSERT ... SELECT.
for i in 1 2 3; do head -c $((i * 1000 + 7)) /dev/urandom >"$WORK/row$i"; done
q -c "CREATE TABLE files(id int, path text, size bigint, md5 text)"
q -c "INSERT INTO files(id, path, size, md5) VALUES
      (1, '$WORK/row1', (dt_ClientFileInfo('$WORK/row1')).size, (dt_ClientFileInfo('$WORK/row1')).md5),
      (2, '$WORK/row2', (dt_ClientFileInfo('$WORK/row2')).size, (dt_ClientFileInfo('$WORK/row2')).md5)"
same "1007 $(md5of "$WORK/row1")
2007 $(md5of "$WORK/row2")" "$(q -F' ' -c "SELECT size, md5 FROM files ORDER BY id")" "INSERT ... VALUES with pulls in two rows"
q -c "INSERT INTO files(id, path) VALUES (3, '$WORK/row3')"
q -c "UPDATE files SET size = NULL, md5 = NULL"
q -c "UPDATE files SET (size, md5) = (SELECT * FROM dt_ClientFileInfo(path))"
same "1007 $(md5of "$WORK/row1")
2007 $(md5of "$WORK/row2")
3007 $(md5of "$WORK/row3")" "$(q -F' ' -c "SELECT size, md5 FROM files ORDER BY id")" "UPDATE pulls one file per row"
q -c "CREATE TABLE copies(id int, size bigint, md5 text)"
q -c "INSERT INTO copies SELECT id, i.* FROM files, dt_ClientFileInfo(path) i"
same "3|3" "$(q -c "SELECT count(*) || '|' || count(*) FILTER (WHERE c.md5 = f.md5) FROM copies c JOIN files f USING (id)")" \
    "INSERT ... SELECT over three rows pulls each file"
q -c "CREATE TABLE ctas AS SELECT * FROM dt_ClientFileInfo('$WORK/row2')"
same "2007" "$(q -c "SELECT size FROM ctas")" "CREATE TABLE ... AS pulls"
check "a pull inside a DO block" q -c "DO \$\$ BEGIN PERFORM dt_ClientFileInfo('$WORK/row1'); END \$\$"

# The extended query protocol: the client's Sync messages are taken in stride.
q --extended-protocol --allow-dir "$WORK" -c "INSERT INTO copies SELECT 10 + id, i.* FROM files, dt_ClientFileInfo(path) i" \
    -c "INSERT INTO copies SELECT 20, * FROM dt_ClientFileInfo('$WORK/m5')"
same "4|$(md5of "$WORK/m5")" "$(q --extended-protocol -c "SELECT count(*) FILTER (WHERE id > 10) || '|' || max(md5) FILTER (WHERE id = 20) FROM copies")" \
    "pulls under the extended protocol, then the session goes on"

# A pull in a statement that returns rows: a clear error, the session goes on.
out=$(q --continue-on-error -c "CREATE TEMP TABLE mark(pid int)" -c "INSERT INTO mark SELECT pg_backend_pid()" \
    -c "SELECT * FROM dt_ClientFileInfo('$WORK/row1')" \
    -c "INSERT INTO files(id, size) SELECT 9, size FROM dt_ClientFileInfo('$WORK/row1') RETURNING id" \
    -c "SELECT count(*) FROM mark WHERE pid = pg_backend_pid()" 2>&1)
rc=$?
same 3 "$rc" "exit status 3 after the refused pull"
has "ERROR:  TL001: cannot read client file \"$WORK/row1\": a statement that returns rows cannot read client files; read them in INSERT, UPDATE" "$out" "SELECT pull: clear error"
same 2 "$(grep -c 'a statement that returns rows' <<<"$out")" "INSERT ... RETURNING is refused the same way"
has $'\n1' "$out" "same session still works after the refusal"
same 0 "$(q -c "SELECT count(*) FROM files WHERE id = 9")" "refused INSERT ... RETURNING stored nothing"
out=$(q --extended-protocol --continue-on-error -c "SELECT * FROM dt_ClientFileInfo('$WORK/row1')" -c "SELECT 41 + 1" 2>&1)
has "a statement that returns rows" "$out" "extended protocol: SELECT pull refused"
has "42" "$out" "extended protocol: session goes on"

# Missing and unreadable client files: TL001 "Client file error", nothing left.
out=$(q -c "INSERT INTO pulled SELECT 'x', * FROM dt_ClientFileInfo('$WORK/nosuch')" 2>&1)
rc=$?
same 3 "$rc" "missing client file: exit status 3"
has "ERROR:  TL001: Client file error: Open of file $WORK/nosuch failed" "$out" "missing client file: TL001 Client file error"
has "REASON=No such file or directory" "$out" "missing client file: the client's reason"
out=$(q -c "INSERT INTO pulled SELECT 'x', * FROM dt_ClientFileInfo('$WORK')" 2>&1)
has "TL001: Client file error" "$out" "a directory as client file is refused"
# The second row's file is missing: the whole statement fails, the first
# row's copy is gone too.
out=$(q -c "INSERT INTO copies SELECT 30, i.* FROM (VALUES ('$WORK/m5'), ('$WORK/nosuch')) v(p), dt_ClientFileInfo(p) i" 2>&1)
has "Client file error" "$out" "second of two pulls fails"
same 0 "$(q -c "SELECT count(*) FROM copies WHERE id = 30")" "failed multi-row INSERT stored nothing"
check "nothing left in the temporary directory after failures" tmp_empty

# Null and empty names.
out=$(q -c "INSERT INTO pulled SELECT 'x', * FROM dt_ClientFileInfo(NULL)" 2>&1)
has "ERROR:  22T02: invalid argument to dt_ClientFileInfo: NULL or '' is not a valid client file name" "$out" "null client file name: 22T02"
out=$(q -c "INSERT INTO pulled SELECT 'x', * FROM dt_ClientFileInfo('')" 2>&1)
has "22T02" "$out" "empty client file name: 22T02"
lacks "(null)" "$out" "empty client file name: no internal words"
lacks "GetClientFile" "$out" "empty client file name: no internal function name"

# Savepoints: a pull that fails inside a subtransaction leaves nothing behind.
out=$(q -c "BEGIN; SAVEPOINT a; INSERT INTO pulled SELECT 's', * FROM dt_ClientFileInfo('$WORK/nosuch'); " 2>&1)
check "nothing left after a failed pull in a savepoint" tmp_empty

# Ctrl-C during a pull: the client refuses the copy-in, the server cancels.
mkfifo "$WORK/fifo"
"$DOCSQL" -X -c "INSERT INTO pulled SELECT 'fifo', * FROM dt_ClientFileInfo('$WORK/fifo')" >"$WORK/int.out" 2>&1 &
pid=$!
exec 3<>"$WORK/fifo"   # read-write: never blocks, even if docsql fails early
printf 'some bytes' >&3
sleep 0.5
kill -INT $pid
wait $pid
rc=$?
exec 3>&-
same 3 "$rc" "interrupted pull: exit status 3"
has "57014" "$(cat "$WORK/int.out")" "interrupted pull: query canceled (57014)"
check "nothing left after an interrupted pull" tmp_empty

# Ctrl-C during a long statement: a cancel request.
"$DOCSQL" -X -c "SELECT pg_sleep(30)" >"$WORK/int2.out" 2>&1 &
pid=$!
sleep 1
start=$(date +%s)
kill -INT $pid
wait $pid
rc=$?
same 3 "$rc" "Ctrl-C cancels a running statement"
has "ERROR:  57014: canceling statement due to user request" "$(cat "$WORK/int2.out")" "the cancel's error is shown"
check "the cancel took effect at once" test $(( $(date +%s) - start )) -lt 10

finish
