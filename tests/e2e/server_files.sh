# Documents that are server files (ExternalFile): errors that name the file
# and the operating system's reason, at insert time where the insert reads
# the file and at query time otherwise; the text read is the text stored.
source "$(dirname "$0")/channel_common.bash"
setup_server
SF=$DOC_SERVER_DIR/serverfiles
mkdir -p "$SF"
printf 'the quick brown fox jumps over the lazy dog\n' >"$SF/fox.txt"
printf 'grow me please\n' >"$SF/grow.txt"
printf 'shrinking violet text here\n' >"$SF/shrink.txt"
printf 'soon gone away\n' >"$SF/gone.txt"
printf 'nobody reads this\n' >"$SF/secret.txt"
{ printf 'start '; head -c 1100 /dev/zero | tr '\0' 'w'; printf ' end\n'; } >"$SF/longword.txt"
chown -R postgres: "$SF" 2>/dev/null || true
chmod 000 "$SF/secret.txt"
ext() { echo "format(ascii),ExternalFile:$SF/$1"; }
q -c "CREATE TABLE sf(id int PRIMARY KEY, d doc)"

# ---- insert time: the insert examines the file ----------------------------
out=$(q -c "INSERT INTO sf VALUES (1, '$(ext missing.txt)')" 2>&1)
has "ERROR:  XD00M: could not create, open or examine server file \"$SF/missing.txt\": No such file or directory" "$out" "missing server file at insert: file and reason"
out=$(q -c "INSERT INTO sf VALUES (1, 'format(ascii),ExternalFile:$SF')" 2>&1)
has "ERROR:  XD00M: could not create, open or examine server file \"$SF\": it is a directory, not a regular file" "$out" "directory at insert: file and reason"
same 0 "$(q -c "SELECT count(*) FROM sf")" "refused server files store no row"

# ---- query time: reading the text -----------------------------------------
n=0
for f in fox grow shrink gone secret longword; do
    n=$((n + 1)); q -c "INSERT INTO sf VALUES ($n, '$(ext $f.txt)')"
done
same "t" "$(q -c "SELECT Contains(d, 'fox and dog') FROM sf WHERE id = 1")" "a server file is searched"
out=$(q -c "SELECT Contains(d, 'nobody') FROM sf WHERE id = 5" 2>&1)
has "ERROR:  TL001: Large object error: Open of large object EXT:$SF/secret.txt failed: Permission denied" "$out" "unreadable server file at query time: file and reason"
has "FILENAME=$SF/secret.txt" "$out" "unreadable server file: the file in the detail"
out=$(q -c "SELECT Contains(d, 'end') FROM sf WHERE id = 6" 2>&1)
has "ERROR:  XD00L: word longer than 1024 characters in document \"$SF/longword.txt\"" "$out" "word over 1024 characters: names the file"
out=$(q -c "SELECT GetDocText(d) FROM sf WHERE id = 5" 2>&1)
has "Permission denied" "$out" "GetDocText of an unreadable server file: the reason"

# ---- the text is what was stored -------------------------------------------
printf 'appended words arrive later\n' >>"$SF/grow.txt"
same "grow me please" "$(q -c "SELECT GetDocText(d) FROM sf WHERE id = 2")" "a file that grew: GetDocText gives the stored bytes"
same "grow:1 please:1 " "$(q -c "SELECT IndexTerms(d) FROM sf WHERE id = 2")" "a file that grew: the terms of the stored bytes"
same "f" "$(q -c "SELECT Contains(d, 'appended') FROM sf WHERE id = 2")" "a file that grew: words added later are not found"
same "$(stat -c %s "$SF/grow.txt")" "$(q -c "SELECT DocLength(d) FROM sf WHERE id = 2")" "DocLength follows the file as it is now"
printf 'short\n' >"$SF/shrink.txt"
out=$(q -c "SELECT GetDocText(d) FROM sf WHERE id = 3" 2>&1)
has "ERROR:  TL001: Large object error: read of 27 bytes from large object EXT:$SF/shrink.txt failed: the file is shorter than when the document was stored" "$out" "a file that shrank: TL001 read of the missing bytes"
has "FILENAME=$SF/shrink.txt" "$out" "a file that shrank: the file in the detail"
mkdir -p "$WORK/got"
same "format(ascii),ExternalFile:$WORK/got/grow.txt" "$(q -c "SELECT GetDoc(d, '$WORK/got') FROM sf WHERE id = 2")" "GetDoc of a file that grew"
same "grow me please" "$(cat "$WORK/got/grow.txt")" "GetDoc of a file that grew: the client gets the stored bytes"
out=$(q -c "SELECT GetDoc(d, '$WORK/got') FROM sf WHERE id = 3" 2>&1)
has "TL001: Large object error: read of 27 bytes from large object EXT:$SF/shrink.txt failed" "$out" "GetDoc of a file that shrank: TL001"
check "GetDoc of a file that shrank: no client file" test ! -e "$WORK/got/shrink.txt"
out=$(q -c "SELECT Contains(d, 'violet') FROM sf WHERE id = 3" 2>&1)
has "TL001" "$out" "a file that shrank: a query raises TL001 too"
rm "$SF/gone.txt"
out=$(q -c "SELECT GetDocText(d) FROM sf WHERE id = 4" 2>&1)
has "ERROR:  TL001: Large object error: Open of large object EXT:$SF/gone.txt failed: No such file or directory" "$out" "a file that vanished: TL001 open, with the reason"
out=$(q -c "SELECT IndexTerms(d) FROM sf WHERE id = 4" 2>&1)
has "TL001" "$out" "a file that vanished: IndexTerms raises TL001"

# A server file in another format is converted from its stored bytes too.
q -c "CREATE FUNCTION put_file(path text, content text) RETURNS void LANGUAGE plpgsql AS \$\$
      DECLARE o oid; BEGIN o := lo_from_bytea(0, convert_to(content, 'UTF8')); PERFORM lo_export(o, path); PERFORM lo_unlink(o); END \$\$"
q -c "CREATE FUNCTION rot13_ascii(i text, o text) RETURNS text LANGUAGE plpgsql AS \$\$
      BEGIN PERFORM put_file(dt_GetPathText(o), translate(pg_read_file(dt_GetPathText(i)),
        'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ', 'nopqrstuvwxyzabcdefghijklmNOPQRSTUVWXYZABCDEFGHIJKLM')); RETURN o; END \$\$"
q -c "INSERT INTO \"DocumentConversions\" VALUES ('rot13', 'ascii', 'rot13_ascii')"
printf 'pngf naq qbtf\n' >"$SF/rot.txt"; chown postgres: "$SF/rot.txt" 2>/dev/null || true
q -c "INSERT INTO sf VALUES (10, 'format(rot13),ExternalFile:$SF/rot.txt')"
printf 'ubefrf\n' >>"$SF/rot.txt"
same "cat:1 dog:1" "$(q -c "SELECT string_agg(term || ':' || count, ' ' ORDER BY term) FROM dt_Terms((SELECT d FROM sf WHERE id = 10))")" \
     "a converted server file that grew: the terms of the stored bytes"
check "conversions of server files leave no temporary file" tmp_empty

# ---- GetDocInternal into a directory the server cannot write ---------------
mkdir -p "$SF/locked"; chmod 555 "$SF/locked"
out=$(q -c "SELECT GetDocInternal(d, '$SF/locked') FROM sf WHERE id = 1" 2>&1)
has "ERROR:  XD00O: could not open file \"$SF/locked/fox.txt." "$out" "unwritable directory: names the file"
has "for writing: Permission denied" "$out" "unwritable directory: what for and why"
lacks "1401" "$out" "unwritable directory: no open flags in octal"
lacks "MODE" "$out" "unwritable directory: no MODE parameter"
finish
