# docsql as a daily client: the extended protocol with document literals,
# and a failed statement printing nothing but its error.
source "$(dirname "$0")/channel_common.bash"
setup_server
head -c 2000 /usr/share/common-licenses/GPL-3 >"$WORK/a.txt"
head -c 3000 /usr/share/common-licenses/GPL-2 >"$WORK/b.txt"
q -c "CREATE TABLE t (id int, body doc)"

# A plain literal under --extended-protocol pulls its file like the simple protocol.
out=$("$DOCSQL" -X --extended-protocol -c "INSERT INTO t VALUES (1, 'format(ascii):$WORK/a.txt')" 2>&1)
same "INSERT 0 1" "$out" "--extended-protocol: INSERT with a document literal"
out=$("$DOCSQL" -X -qtA --extended-protocol -c "INSERT INTO t VALUES (2, 'format(ascii):$WORK/b.txt'), (3, 'format(ascii):$WORK/a.txt')" \
    -c "SELECT count(*), sum(DocLength(body)) FROM t" 2>&1)
same "3|7000" "$out" "--extended-protocol: two literals in one statement, then a query"
same "$(md5of "$WORK/b.txt")" "$(q -c "SELECT md5(GetDocText(body)) FROM t WHERE id = 2")" "the document reads back whole"
out=$("$DOCSQL" -X -qtA --extended-protocol -c "SELECT \$1::int" 2>&1)
has "ERROR" "$out" "--extended-protocol: a statement with a parameter it cannot bind is an error"
out=$("$DOCSQL" -X -qtA --extended-protocol -c "SELECT 6 * 7" 2>&1)
same "42" "$out" "--extended-protocol: the session goes on"

out=$("$DOCSQL" -X -qtA --extended-protocol -c "VACUUM t" -c "BEGIN" -c "INSERT INTO t VALUES (4, 'format(ascii):$WORK/a.txt')" \
    -c "ROLLBACK" -c "SELECT count(*) FROM t" 2>&1)
same "3" "$out" "--extended-protocol: VACUUM, and a transaction of the user's own rolled back"

# GetDoc into a missing directory: the error only, no row before it.
out=$("$DOCSQL" -X -c "SELECT id, GetDoc(body, '$WORK/nodir/') FROM t WHERE id = 1" 2>&1)
rc=$?
same 3 "$rc" "GetDoc into a missing directory fails"
has "cannot write client file" "$out" "with docsql's reason"
case "$out" in *"(1 row)"*|*" id "*) fail "the failed statement printed its result: $out" ;; *) pass "nothing of the failed statement's result is printed" ;; esac
out=$("$DOCSQL" -X -c "SELECT 1 AS one, 1/0 AS boom" 2>&1)
case "$out" in *" one "*) fail "a failed statement printed a header: $out" ;; *) pass "a statement failing on the server prints only its error" ;; esac
# Ctrl-C during a push: the statement is cancelled (57014) and nothing of
# the file is left on the client.
# The interrupt comes as soon as the file being written shows up on the
# client, so a fast machine cannot finish the push first.
head -c 1000000000 /dev/zero >"$DOC_SERVER_DIR/big.bin"
chmod 644 "$DOC_SERVER_DIR/big.bin"
"$DOCSQL" -X -c "SELECT PutClientFile('$DOC_SERVER_DIR/big.bin', '$WORK/big.out')" >"$WORK/push.out" 2>&1 &
pid=$!
for _ in $(seq 400); do
    ls -A "$WORK" | grep -qE '^\.?big\.out' && break
    sleep 0.02
done
kill -INT $pid
wait $pid
rc=$?
rm -f "$DOC_SERVER_DIR/big.bin"
same 3 "$rc" "Ctrl-C during a push: exit status 3"
has "57014" "$(cat "$WORK/push.out")" "Ctrl-C during a push: the statement is cancelled (57014)"
check "nothing of the pushed file is left on the client" test -z "$(ls -A "$WORK" | grep -E '^(big\.out|\.big\.out)')"
check "nothing left in the temporary directory" tmp_empty
finish
