# The server writes client files through docsql (PutClientFile).
source "$(dirname "$0")/channel_common.bash"
setup_server

SRV=$DOC_SERVER_DIR/srvfiles
mkdir -p "$SRV"
: >"$SRV/empty"
head -c 8192 /dev/urandom >"$SRV/k8"
head -c 5000000 /dev/urandom >"$SRV/m5"
printf 'line one\nline two\n' >"$SRV/text"
chown -R postgres: "$SRV"
chmod 700 "$SRV"

# An empty file: only the begin and the end travel.
res=$(q --trace-channel -c "SELECT PutClientFile('$SRV/empty', '$WORK/empty.out')" 2>"$WORK/trace")
out=$(cat "$WORK/trace")
same "$WORK/empty.out" "$res" "PutClientFile returns the client file name"
check "empty push creates an empty client file" test -f "$WORK/empty.out" -a ! -s "$WORK/empty.out"
same 0 "$(grep -c 'push data' <<<"$out")" "empty push sends no data message"

# Exactly 8192 bytes: one data message and the end.
out=$(q --trace-channel -c "SELECT PutClientFile('$SRV/k8', '$WORK/k8.out')" 2>&1)
same "$(md5of "$SRV/k8")" "$(md5of "$WORK/k8.out")" "8192-byte push arrives intact"
same "docsql: push data 8192 bytes" "$(grep 'push data' <<<"$out")" "8192-byte push is one data message"
has "push end $WORK/k8.out (8192 bytes)" "$out" "8192-byte push ends"

# 5 MB, and several pushes from one SELECT over rows.
q -c "SELECT PutClientFile('$SRV/m5', '$WORK/m5.out')" >/dev/null
same "$(md5of "$SRV/m5")" "$(md5of "$WORK/m5.out")" "5 MB push arrives intact"
out=$(q -c "SELECT PutClientFile('$SRV/text', '$WORK/row' || i) FROM generate_series(1, 3) i")
same "$WORK/row1
$WORK/row2
$WORK/row3" "$out" "pushes from a SELECT over three rows"
check "each row's client file was written" cmp -s "$SRV/text" "$WORK/row3"

# Overwriting keeps the file's permissions; a failed push leaves it alone.
printf 'old' >"$WORK/keep"
chmod 640 "$WORK/keep"
q -c "SELECT PutClientFile('$SRV/text', '$WORK/keep')" >/dev/null
check "an existing client file is replaced" cmp -s "$SRV/text" "$WORK/keep"
same 640 "$(stat -c %a "$WORK/keep")" "its permissions are kept"

# docsql never creates directories and refuses what the user may not write.
out=$(q -c "SELECT PutClientFile('$SRV/text', '$WORK/nodir/sub/x')" 2>&1)
rc=$?
same 3 "$rc" "push into a missing directory fails"
has "cannot write client file \"$WORK/nodir/sub/x\"" "$out" "docsql says which client file it refused"
check "no directory was created" test ! -e "$WORK/nodir"
mkdir "$WORK/ro"
chmod 755 "$WORK/ro"
psql -X -q -c "CREATE ROLE nobody LOGIN" >/dev/null
out=$(runuser -u nobody -- "$DOCSQL" -X -qtA -U nobody -c "SELECT PutClientFile('$SRV/text', '$WORK/ro/x')" 2>&1)
# nobody is no superuser: the server refuses first.  Grant the right, retry.
has "42501" "$out" "an unprivileged role cannot call PutClientFile on a server file"
has "permission denied to read server file" "$out" "the privilege error says what is missing"
psql -X -q -c "GRANT pg_read_server_files TO nobody" >/dev/null
out=$(runuser -u nobody -- "$DOCSQL" -X -qtA -U nobody -c "SELECT PutClientFile('$SRV/text', '$WORK/ro/x')" 2>&1)
rc=$?
same 3 "$rc" "a push where the user may not write fails"
has "Permission denied" "$out" "docsql reports the operating system's refusal"
check "nothing written in the read-only directory" test -z "$(ls -A "$WORK/ro")"
out=$(runuser -u nobody -- "$DOCSQL" -X -qtA -U nobody -c "SELECT PutClientFile('$SRV/text', '/tmp/docchan-nobody-$$')" 2>&1)
check "a member of pg_read_server_files may push a server file" cmp -s "$SRV/text" "/tmp/docchan-nobody-$$"
rm -f "/tmp/docchan-nobody-$$"
psql -X -q -c "CREATE ROLE plain LOGIN" >/dev/null
out=$(q -U plain -c "SELECT PutClientFile('$SRV/text', '$WORK/plain')" 2>&1)
has "ERROR:  42501: permission denied to read server file \"$SRV/text\"" "$out" "role without the right: 42501"
check "and no client file appears" test ! -e "$WORK/plain"

# Argument errors.
out=$(q -c "SELECT PutClientFile(NULL, '$WORK/x')" 2>&1)
has "ERROR:  22T02: invalid argument to PutClientFile: NULL or '' is not a valid string" "$out" "null server name: 22T02"
out=$(q -c "SELECT PutClientFile('$SRV/text', '')" 2>&1)
has "22T02" "$out" "empty client name: 22T02"
out=$(q -c "SELECT PutClientFile('$SRV/nosuch', '$WORK/x')" 2>&1)
has "ERROR:  XD00M: could not create, open or examine server file \"$SRV/nosuch\"" "$out" "missing server file: XD00M"
check "no client file for a failed push" test ! -e "$WORK/x"
out=$(q -c "SELECT PutClientFile('$SRV', '$WORK/x')" 2>&1)
has "XD00M" "$out" "a directory as server file: XD00M"

# A push inside a failing statement leaves no partial client file.
out=$(q -c "SELECT PutClientFile('$SRV/m5', '$WORK/half' || i), 1 / (2 - i) FROM generate_series(1, 2) i" 2>&1)
has "22012" "$out" "division by zero after the first push"
check "no temporary files of docsql left in the client directory" test -z "$(ls -A "$WORK" | grep docsql-)"

# A session that did not declare the channel gets a clear error.
out=$(psql -X -c "SELECT PutClientFile('$SRV/text', '$WORK/psql.out')" 2>&1)
has "cannot write client file \"$WORK/psql.out\": this session does not receive client files; run the statement from docsql" "$out" "push to psql: clear error"
check "psql wrote nothing" test ! -e "$WORK/psql.out"

finish
