# Entering documents through docsql: every storage kind, byte by byte
# against the stored layouts, limits, refusals, and nothing left behind.
source "$(dirname "$0")/channel_common.bash"
setup_server
CHECK=$(dirname "$0")/doc_layout_check.py
q -c "CREATE TABLE docs(id int PRIMARY KEY, d doc)"
q -c "CREATE TRIGGER docs_lo AFTER INSERT OR UPDATE OR DELETE ON docs FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
los() { q -c "SELECT count(*) FROM pg_largeobject_metadata"; }

# layout KIND ID LITERAL FILE: the stored bytes of row ID against the layout.
layout() {
    local kind=$1 id=$2 lit=$3 file=$4 noterms=${5:-} terms="-"
    q -c "SELECT encode(dt_DocBytes(d), 'hex') FROM docs WHERE id = $id" >"$WORK/value.hex"
    : >"$WORK/lo.hex"
    if [ "$kind" = lo ] || [ "$kind" = nocopy ]; then
        q -c "SELECT encode(lo_get(dt_LOOid(d)), 'hex') FROM docs WHERE id = $id" >"$WORK/lo.hex"
        [ -z "$noterms" ] && terms=$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = $id")
    fi
    local out
    if out=$(python3 "$CHECK" "$kind" "$lit" "$file" "@$WORK/value.hex" "@$WORK/lo.hex" "$terms" 2>&1); then
        pass "layout of $kind document $id ($(stat -c %s "$file") bytes)"
    else
        fail "layout of $kind document $id: $out"
    fi
}
ins() { q -c "INSERT INTO docs VALUES ($1, '$2')"; }

# Real text and other contents on the client's machine.
printf 'dog dog cat\n' >"$WORK/a.txt"
: >"$WORK/empty.txt"
python3 - "$WORK" <<'PY'
import sys, os
w = sys.argv[1]
words = open('/usr/share/common-licenses/GPL-3', 'rb').read()
def cut(n): return (words * (n // len(words) + 1))[:n - 1] + b"\n"
for n in (100, 101, 104, 2048, 2049):
    open(os.path.join(w, "t%d.txt" % n), "wb").write(cut(n))
open(os.path.join(w, "mega.txt"), "wb").write(cut(1024 * 1024))
# no white space at the end: the last word is not counted
open(os.path.join(w, "nows.txt"), "wb").write(b"alpha " * 30 + b"omega")
PY
head -c 50000 /dev/urandom >"$WORK/binary.bin"

ins 1 "format(ascii):$WORK/a.txt"
layout small 1 "format(ascii):$WORK/a.txt" "$WORK/a.txt"
same "format(ascii):$WORK/a.txt" "$(q -c "SELECT d FROM docs WHERE id = 1")" "output of a small document"
same "dog:2 cat:1 " "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 1")" "IndexTerms of 'dog dog cat'"
ins 2 "$WORK/a.txt"
layout small 2 "$WORK/a.txt" "$WORK/a.txt"
same "format(ascii):$WORK/a.txt" "$(q -c "SELECT d FROM docs WHERE id = 2")" "a literal without spec prints format(ascii):path"
same "format(ascii)|$WORK/a.txt" "$(q -c "SELECT dt_GetParams(d) || '|' || dt_GetPath(d) FROM docs WHERE id = 2")" "no spec: format(ascii) and the path from byte 27"

ins 3 "format(ascii):$WORK/empty.txt"
layout small 3 "format(ascii):$WORK/empty.txt" "$WORK/empty.txt"
same "0|0|0||" "$(q -c "SELECT DocLength(d) || '|' || DocWordCnt(d) || '|' || DocUWordCnt(d) || '|' || IndexTerms(d) || '|' || coalesce(dt_LOOid(d)::text, '') FROM docs WHERE id = 3")" "0-byte document: small, empty"

ins 4 "format(ascii):$WORK/t100.txt"
layout small 4 "format(ascii):$WORK/t100.txt" "$WORK/t100.txt"
ins 5 "format(ascii):$WORK/t101.txt"
layout lo 5 "format(ascii):$WORK/t101.txt" "$WORK/t101.txt"
ins 6 "format(ascii):$WORK/t104.txt"
layout lo 6 "format(ascii):$WORK/t104.txt" "$WORK/t104.txt"
same "104|104" "$(q -c "SELECT DocLength(d) || '|' || (SELECT get_byte(dt_DocBytes(d), 12) + 256 * get_byte(dt_DocBytes(d), 13)) FROM docs WHERE id = 6")" "length a multiple of 4: ht_offset = ht_realoffset, no padding"
has ",handle($(q -c "SELECT dt_LOOid(d) FROM docs WHERE id = 5")):$WORK/t101.txt" "$(q -c "SELECT d FROM docs WHERE id = 5")" "output of a large-object document shows the handle"

ins 7 "format(ascii),ExpandLimit(2048):$WORK/t2048.txt"
layout small 7 "format(ascii),ExpandLimit(2048):$WORK/t2048.txt" "$WORK/t2048.txt"
ins 8 "format(ascii),ExpandLimit(2048):$WORK/t2049.txt"
layout lo 8 "format(ascii),ExpandLimit(2048):$WORK/t2049.txt" "$WORK/t2049.txt"
ins 9 "format(ascii),ExpandLimit(10):$WORK/a.txt"
layout lo 9 "format(ascii),ExpandLimit(10):$WORK/a.txt" "$WORK/a.txt"
out=$(q -c "INSERT INTO docs VALUES (10, 'format(ascii),ExpandLimit(2049):$WORK/a.txt')" 2>&1)
has "ERROR:  22023: ExpandLimit can be no larger than 2048, received 2049" "$out" "ExpandLimit 2049 refused with its text"
for bad in -1 abc 5000 12x +5 ""; do
    n0=$(los)
    out=$(q -c "INSERT INTO docs VALUES (10, 'format(ascii),ExpandLimit($bad):$WORK/a.txt')" 2>&1)
    has "ERROR:  22023: ExpandLimit can be no larger than 2048, received $bad" "$out" "ExpandLimit($bad) refused with the same error"
    same "$n0" "$(los)" "ExpandLimit($bad): no large object left behind"
done
same "0" "$(q -c "SELECT count(*) FROM docs WHERE id = 10")" "no row from a refused ExpandLimit"
same "dog:2 cat:1 " "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 9")" "IndexTerms of the same text as a large object"

ins 11 "format(ascii),NoCopyText:$WORK/a.txt"
layout nocopy 11 "format(ascii),NoCopyText:$WORK/a.txt" "$WORK/a.txt"
ins 12 "format(ascii),NoCopyText:$WORK/empty.txt"
layout nocopy 12 "format(ascii),NoCopyText:$WORK/empty.txt" "$WORK/empty.txt"
same "0|2|3" "$(q -c "SELECT DocLength(d) || '|' || DocUWordCnt(d) || '|' || DocWordCnt(d) FROM docs WHERE id = 11")" "NoCopyText: no text, the counts of the table"
same "" "$(q -c "SELECT GetDocText(d) FROM docs WHERE id = 11")" "NoCopyText: GetDocText is empty"

out=$(q -c "INSERT INTO docs VALUES (13, 'NoCopyText:$WORK/a.txt')" 2>&1)
has "ERROR:  XD00U" "$out" "a spec without format is refused (XD00U)"

# A 1 MB document of real text, read back exactly.
ins 14 "format(ascii):$WORK/mega.txt"
layout lo 14 "format(ascii):$WORK/mega.txt" "$WORK/mega.txt"
same "$(md5of "$WORK/mega.txt")" "$(q -c "SELECT md5(GetDocText(d)) FROM docs WHERE id = 14")" "1 MB document: GetDocText equals the file"
same "$(q -c "SELECT sum(count) FROM dt_FileTerms('$WORK/mega.txt')")|$(q -c "SELECT count(*) FROM dt_FileTerms('$WORK/mega.txt')")" \
     "$(q -c "SELECT DocWordCnt(d) || '|' || DocUWordCnt(d) FROM docs WHERE id = 14")" "1 MB document: stored counts equal a scan of the file"

# A binary file: stored as received, its text is not text.
ins 15 "format(ascii):$WORK/binary.bin"
layout lo 15 "format(ascii):$WORK/binary.bin" "$WORK/binary.bin" noterms
same "$(md5of "$WORK/binary.bin")" "$(q -c "SELECT md5(substr(lo_get(dt_LOOid(d)), 1, 50000)) FROM docs WHERE id = 15")" "binary file stored byte for byte"
has "ERROR:  22021" "$(q -c "SELECT GetDocText(d) FROM docs WHERE id = 15" 2>&1)" "GetDocText of a binary document: clear error"

# The last word of a text without trailing white space is not counted.
ins 16 "format(ascii):$WORK/nows.txt"
same "alpha:30 " "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 16")" "last word without white space after it is not counted"

# Word counts: small documents are scanned again, large objects answer from
# their header (even with the object gone behind the module's back).
same "3|2" "$(q -c "SELECT DocWordCnt(d) || '|' || DocUWordCnt(d) FROM docs WHERE id = 1")" "DocWordCnt of a small document (rescan)"
q -c "CREATE TABLE stray(d doc)" -c "INSERT INTO stray SELECT d FROM docs WHERE id = 9"
q -c "SELECT lo_unlink(dt_LOOid(d)) FROM stray" >/dev/null
same "3|2" "$(q -c "SELECT DocWordCnt(d) || '|' || DocUWordCnt(d) FROM stray")" "DocWordCnt of a large object reads only the header"
has "XD00H" "$(q -c "SELECT IndexTerms(d) FROM stray" 2>&1)" "its terms need the object: XD00H"
q -c "DROP TABLE stray"
q -c "DELETE FROM docs WHERE id = 9"
same "" "$(q -c "SELECT loid FROM dt_large_objects l WHERE NOT EXISTS (SELECT 1 FROM pg_largeobject_metadata m WHERE m.oid = l.loid)")" "a row whose object was removed behind the module's back deletes cleanly"

# ExternalFile: a server file referred to in place.
ext=$DOC_SERVER_DIR/ext.txt
printf 'servers hold external documents\n' >"$ext"; chmod 644 "$ext"
ins 20 "format(ascii),ExternalFile:$ext"
layout external 20 "format(ascii),ExternalFile:$ext" "$ext"
same "EXT:$ext|EXT:$ext|" "$(q -c "SELECT DocLOHandle(d) || '|' || DocLOHandleExternal(d) || '|' || coalesce(dt_LOhandles(d)::text, '') FROM docs WHERE id = 20")" "external handles; dt_LOhandles null"
same "$(q -c "SELECT string_agg(term || ':' || count, ' ' ORDER BY term) FROM dt_FileTerms('$ext')")" \
     "$(q -c "SELECT string_agg(t, ' ' ORDER BY t) FROM docs, regexp_split_to_table(trim(IndexTerms(d)), ' ') t WHERE id = 20")" "terms of an external document"
size0=$(stat -c %s "$ext")
printf 'servers hold external documents and much more now\n' >>"$ext"
same "$(stat -c %s "$ext")|$size0" "$(q -c "SELECT DocLength(d) || '|' || (get_byte(dt_DocBytes(d), 16) + 256 * get_byte(dt_DocBytes(d), 17)) FROM docs WHERE id = 20")" "DocLength follows the server file; ht_realoffset does not"
has "XD00M" "$(q -c "INSERT INTO docs VALUES (21, 'format(ascii),ExternalFile:$DOC_SERVER_DIR/nosuch')" 2>&1)" "ExternalFile of a missing server file: XD00M"
same "null|null|{$(q -c "SELECT dt_LOOid(d) FROM docs WHERE id = 5")}" "$(q -c "SELECT coalesce(DocLOHandle(a.d), 'null') || '|' || coalesce(DocLOHandleExternal(a.d), 'null') || '|' || dt_LOhandles(b.d)::text FROM docs a, docs b WHERE a.id = 1 AND b.id = 5")" "handles of small and large-object documents"

# A format other than ascii: the text is converted for scanning, stored as received.
q -c "CREATE FUNCTION put_file(path text, content text) RETURNS void LANGUAGE plpgsql AS \$\$
      DECLARE o oid; BEGIN o := lo_from_bytea(0, convert_to(content, 'UTF8')); PERFORM lo_export(o, path); PERFORM lo_unlink(o); END \$\$"
q -c "CREATE FUNCTION rot13_ascii(i text, o text) RETURNS text LANGUAGE plpgsql AS \$\$
      BEGIN PERFORM put_file(dt_GetPathText(o), translate(pg_read_file(dt_GetPathText(i)),
        'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ', 'nopqrstuvwxyzabcdefghijklmNOPQRSTUVWXYZABCDEFGHIJKLM')); RETURN o; END \$\$"
q -c "CREATE FUNCTION broken_ascii(i text, o text) RETURNS text LANGUAGE sql AS \$\$ SELECT NULL::text \$\$"
q -c "INSERT INTO \"DocumentConversions\" VALUES ('rot13', 'ascii', 'rot13_ascii'), ('broken', 'ascii', 'broken_ascii')"
printf 'qbt qbt png\n' >"$WORK/r.txt"
ins 30 "format(rot13):$WORK/r.txt"
layout small 30 "format(rot13):$WORK/r.txt" "$WORK/r.txt"
same "dog:2 cat:1 " "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 30")" "small rot13 document: terms of the converted text"
head -c 3000 /usr/share/common-licenses/GPL-3 | tr 'a-zA-Z' 'n-za-mN-ZA-M' >"$WORK/r.big"
ins 31 "format(rot13):$WORK/r.big"
layout lo 31 "format(rot13):$WORK/r.big" "$WORK/r.big"
head -c 3000 /usr/share/common-licenses/GPL-3 >"$WORK/plain.big"
ins 32 "format(ascii):$WORK/plain.big"
same "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 32")" "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 31")" \
     "rot13 large object: same terms as the plain text"
check "nothing left in the temporary directory after good inserts" tmp_empty

# Failed inserts leave no large object and no temporary file.
before=$(los)
out=$(q -c "INSERT INTO docs VALUES (40, 'format(broken):$WORK/t2049.txt')" 2>&1)
has "ERROR:  XD00N: could not convert document \"$WORK/t2049.txt\" from \"format(broken)\"" "$out" "conversion failure: XD00N"
out=$(q -c "INSERT INTO docs VALUES (41, 'format(nosuch):$WORK/t2049.txt')" 2>&1)
has "XD00N" "$out" "no conversion path: XD00N"
has "no conversion from nosuch to ascii is registered" "$out" "no conversion path: the message says so"
out=$(q -c "INSERT INTO docs VALUES (40, 'format(broken):$WORK/t2049.txt')" 2>&1)
has "a conversion step from broken to ascii failed" "$out" "failing conversion step: the message says so"
out=$(q -c "INSERT INTO docs VALUES (45, 'format(ascii:$WORK/a.txt')" 2>&1)
has "ERROR:  22T02: invalid argument to doc: \"format(ascii\" is not a valid parameter list: its parentheses do not balance" "$out" "unbalanced parameter list: its own message"
out=$(q -c "INSERT INTO docs VALUES (45, '$WORK/a:b.txt')" 2>&1)
has "ERROR:  XD00U: document path \"$WORK/a:b.txt\" holds a colon" "$out" "bare path with a colon: its own message"
has "HINT:  Put a format before a path that holds a colon: format(ascii):$WORK/a:b.txt" "$out" "bare path with a colon: the hint"
for lit in "''" "'format(ascii):'"; do
    out=$(q -c "SELECT $lit::doc" 2>&1)
    has "ERROR:  22T02: invalid argument to doc: \"\" is not a valid document" "$out" "$lit::doc: says what is wrong"
done
out=$(q -c "SELECT dt_Import('')" 2>&1)
has "ERROR:  22T02: invalid argument to doc: \"\" is not a valid document" "$out" "dt_Import(''): says what is wrong"
for o in "(null)" GetClientFile "mode 1401" "MODE="; do
    lacks "$o" "$(q -c "SELECT ''::doc" 2>&1; q -c "SELECT dt_Import('')" 2>&1)" "no \"$o\" in the errors of empty names"
done
out=$(q -c "INSERT INTO docs VALUES (42, 'format(ascii):$WORK/nosuch.txt')" 2>&1)
has "TL001: Client file error: Open of file $WORK/nosuch.txt failed" "$out" "missing client file: TL001"
out=$(q -c "INSERT INTO docs VALUES (43, 'format(ascii):$WORK/t2049.txt'), (44, 'format(ascii):$WORK/nosuch.txt')" 2>&1)
has "Client file error" "$out" "second row's client file missing"
out=$(q -c "INSERT INTO docs VALUES (45, 'format(ascii):$WORK/t2049.txt'), (1, 'format(ascii):$WORK/t2049.txt')" 2>&1)
has "23505" "$out" "duplicate key after a stored large object"
same "$before" "$(los)" "failed inserts leave no large object"
same 0 "$(q -c "SELECT count(*) FROM docs WHERE id >= 40")" "failed inserts store no row"
check "failed inserts leave no temporary file" tmp_empty

# Names that need care: a colon in the path, 250 bytes long.
cp "$WORK/a.txt" "$WORK/a:b.txt"
ins 60 "format(ascii):$WORK/a:b.txt"
same "dog:2 cat:1 " "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 60")" "a path with a colon after a format is entered"
long=$(printf 'n%.0s' $(seq 1 246)).txt
printf 'long name text\n' >"$WORK/$long"
ins 61 "format(ascii):$WORK/$long"
same "name:1 long:1 text:1 " "$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = 61")" "a client file with a 250-byte name is entered"
printf 'long name text and some more words to pass one hundred bytes of text in this file for a large object\n' >"$WORK/$long"
ins 62 "format(ascii):$WORK/$long"
same "1" "$(q -c "SELECT count(*) FROM docs WHERE id = 62 AND DocWordCnt(d) > 5")" "a large object from a client file with a 250-byte name"
check "long names leave no temporary file" tmp_empty

# 1,000 inserts in one transaction, then ROLLBACK: nothing remains.
before=$(los)
{ echo "BEGIN;"; for i in $(seq 1000 1999); do echo "INSERT INTO docs VALUES ($i, 'format(ascii):$WORK/t101.txt');"; done
  echo "SELECT count(*) FROM docs WHERE id >= 1000;"
  echo "SELECT count(*) FROM pg_largeobject_metadata;"; echo "ROLLBACK;"; } >"$WORK/many.sql"
out=$(q -f "$WORK/many.sql" 2>&1)
has "1000
$((before + 1000))" "$out" "1,000 large objects inside the transaction"
same "$before" "$(los)" "ROLLBACK of 1,000 inserts leaves no large object"
same "$(q -c "SELECT count(DISTINCT dt_LOOid(d)) FROM docs")" "$(q -c "SELECT count(*) FROM dt_large_objects")" "registry back to the committed objects"
check "ROLLBACK of 1,000 inserts leaves no temporary file" tmp_empty

# psql cannot serve client files: a clear error, nothing stored.
out=$(psql -X -c "INSERT INTO docs VALUES (50, 'format(ascii):$WORK/a.txt')" 2>&1)
has "this session does not serve client files; run the statement from docsql" "$out" "psql: clear error for a client file"
same "$before" "$(los)" "psql's refused insert leaves no large object"
finish
