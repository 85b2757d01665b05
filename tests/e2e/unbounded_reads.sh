# Reads that could run without end stop with a clear error and leave
# nothing behind:
#  - a client pull of /dev/zero (docsql) stops at temp_file_limit (53400)
#    and at the largest document, 2 GiB (54000): no row, no large object, no
#    temporary file; a client that ignores the limit the server announces
#    is stopped by the server all the same;
#  - a server file read as a document (ExternalFile, dt_FileTerms,
#    formatconvert, GetDoc) must be a regular file: a FIFO, a symbolic link
#    to /dev/zero or a directory gives a clear error at once, never a hang;
#    a file that grew past 2 GiB gives 54000.
source "$(dirname "$0")/channel_common.bash"
setup_server
q -c "CREATE TABLE docs(id int PRIMARY KEY, d doc)"
q -c "CREATE TRIGGER docs_lo AFTER INSERT OR UPDATE OR DELETE ON docs FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
los() { q -c "SELECT count(*) FROM pg_largeobject_metadata"; }
# run SECONDS CMD...: the command's output; "TIMEOUT" if it did not end.
run() { local s=$1; shift; timeout "$s" "$@" 2>&1; [ $? = 124 ] && echo TIMEOUT; }

# ---- client pulls --------------------------------------------------------------
out=$(run 60 "$DOCSQL" -X -q -c "SET temp_file_limit = '1MB'; INSERT INTO docs VALUES (1, 'format(ascii):/dev/zero')")
has "53400" "$out" "pull of /dev/zero under temp_file_limit = 1MB: SQLSTATE 53400"
has "temporary file size exceeds temp_file_limit (1024kB)" "$out" "... with the server's temp_file_limit message"
has 'Client file "/dev/zero" is longer than 1048576 bytes' "$out" "... naming the client file"
check "nothing left in the temporary directory" tmp_empty
out=$(run 60 "$DOCSQL" -X -q -c "SET temp_file_limit = '64kB'; CREATE TEMP TABLE info AS SELECT * FROM dt_ClientFileInfo('/dev/zero')")
has "53400" "$out" "dt_ClientFileInfo('/dev/zero') under temp_file_limit = 64kB: 53400"
start=$(date +%s)
out=$(run 300 "$DOCSQL" -X -q -c "INSERT INTO docs VALUES (2, 'format(ascii):/dev/zero')")
has "54000" "$out" "pull of /dev/zero without temp_file_limit stops at the largest document: 54000 ($(( $(date +%s) - start )) s)"
has 'client file "/dev/zero" is longer than the largest document (2147483647 bytes)' "$out" "... with a message naming the limit"
check "nothing left in the temporary directory after 2 GiB" tmp_empty
same "0|0" "$(q -c "SELECT count(*) FROM docs")|$(los)" "no row and no large object left"

# A client that sends on regardless: the server stops at the limit itself.
g++ -o "$WORK/unbounded" "$(dirname "$0")/unbounded_client.cc" -I"$("$PGBIN/pg_config" --includedir)" \
   -L"$("$PGBIN/pg_config" --libdir)" -lpq
out=$(run 60 "$WORK/unbounded" 3000000 "SET document.client_channel = on" "SET temp_file_limit = '1MB'" \
      "CREATE TEMP TABLE info AS SELECT * FROM dt_ClientFileInfo('/dev/zero')")
has "53400 temporary file size exceeds temp_file_limit (1024kB)" "$out" "a client ignoring the limit is stopped by the server"
has "alive" "$out" "... and its session goes on"
check "nothing left after the unlimited client" tmp_empty

# ---- server files ------------------------------------------------------------------
ext=$DOC_SERVER_DIR/ext.txt
printf 'cats and dogs\n' >"$ext"; chmod 644 "$ext"
q -c "INSERT INTO docs VALUES (3, 'format(ascii),ExternalFile:$ext')"
same "cat:1 dog:1" "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 3" | tr ' ' '\n' | grep . | sort | paste -sd' ')" \
     "an external regular file reads"
mkdir -p "$WORK/got"
for kind in fifo zero dir; do
    rm -rf "$ext"
    case $kind in
        fifo) mkfifo -m 644 "$ext"; what="a FIFO" ;;
        zero) ln -s /dev/zero "$ext"; what="a character device" ;;
        dir) mkdir -m 755 "$ext"; what="a directory" ;;
    esac
    for f in "GetDocText(d)" "IndexTerms(d)" "Contains(d, 'cat')" "DocWordCnt(d)"; do
        out=$(run 20 psql -X -qtA -c "SELECT $f FROM docs WHERE id = 3")
        has "it is $what, not a regular file" "$out" "$f of an external file that became $what: clear error"
    done
    out=$(run 20 psql -X -qtA -c "SELECT count(*) FROM dt_FileTerms('$ext')")
    has "it is $what, not a regular file" "$out" "dt_FileTerms of $what: clear error"
    out=$(run 20 psql -X -qtA -c "SELECT formatconvert('$ext', '$DOC_SERVER_DIR/copy.txt') IS NULL")
    same "t" "$out" "formatconvert from $what: null at once"
    out=$(run 20 "$DOCSQL" -X -qtA -c "SELECT GetDoc(d, '$WORK/got') FROM docs WHERE id = 3")
    has "it is $what, not a regular file" "$out" "GetDoc of $what: clear error"
    check "no client file written for $what" test -z "$(ls -A "$WORK/got")"
done
rm -rf "$ext"; printf 'cats and dogs\n' >"$ext"; chmod 644 "$ext"
# Nor is a FIFO or a device written to as a copy's target.
mkfifo -m 666 "$DOC_SERVER_DIR/out.fifo"
out=$(run 20 psql -X -qtA -c "SELECT formatconvert('$ext', '$DOC_SERVER_DIR/out.fifo') IS NULL")
same "t" "$out" "formatconvert into a FIFO: null at once"
out=$(run 20 psql -X -qtA -c "SELECT formatconvert('$ext', '/dev/full') IS NULL")
same "t" "$out" "formatconvert into a device: null"
# A file that grew past the largest document (sparse: no disk used).
truncate -s 3G "$ext"
out=$(run 60 psql -X -qtA -c "SELECT length(GetDocText(d)) FROM docs WHERE id = 3")
# A server-file document is the text it was when stored: the stored bytes
# are read, not the 3 GiB.
same "14" "$out" "GetDocText of an external file grown to 3 GiB: the 14 stored bytes"
start=$(date +%s)
out=$(run 120 psql -X -qtA -v VERBOSITY=verbose -c "SELECT IndexTerms(d) FROM docs WHERE id = 3")
same "cat:1 dog:1 " "$out" "IndexTerms of an external file grown to 3 GiB: the stored terms after $(( $(date +%s) - start )) s"
check "nothing left in the temporary directory" tmp_empty
finish
