# Functions on doc values through docsql: copies on the client and on the
# server, export and import, conversion to the client, the term functions
# on every storage kind, commands, and what an ordinary role may not do.
source "$(dirname "$0")/channel_common.bash"
# Client paths here also come from table data (paths stored in rows, names
# a dump or export wrote), which docsql serves only under a directory the
# user allows; the rules themselves are tested in channel_trust.sh.
q() { "$DOCSQL" -X -qtA --allow-dir "$WORK" "$@"; }
setup_server
q -c "CREATE TABLE docs(id int PRIMARY KEY, d doc)"
q -c "CREATE TRIGGER docs_lo AFTER INSERT OR UPDATE OR DELETE ON docs FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
ins() { q -c "INSERT INTO docs VALUES ($1, '$2')"; }
val() { q -c "SELECT $1 FROM docs WHERE id = $2"; }
los() { q -c "SELECT count(*) FROM pg_largeobject_metadata"; }

printf 'dog dog cat\n' >"$WORK/small.txt"
# A real text of some size, with its words counted by hand below.
cp /usr/share/common-licenses/GPL-3 "$WORK/gpl.txt"
printf 'Dogs chase cats. The dog barks at the cat; cats run, dogs follow, a mouse hides.\n%.0s' 1 2 3 >"$WORK/pets.txt"
ext=$DOC_SERVER_DIR/ext.txt
cp "$WORK/pets.txt" "$ext"; chmod 644 "$ext"
mkdir -p "$WORK/out"

ins 1 "format(ascii):$WORK/small.txt"
ins 2 "format(ascii):$WORK/gpl.txt"
ins 3 "format(ascii):$WORK/pets.txt"
ins 4 "format(ascii),NoCopyText:$WORK/pets.txt"
ins 5 "format(ascii),ExternalFile:$ext"
ins 6 "format(ascii),ExpandLimit(2048):$WORK/pets.txt"
lo2=$(val "dt_LOOid(d)" 2)
lo3=$(val "dt_LOOid(d)" 3)

# ---- IndexTerms, Occurrences, TopNTerms --------------------------------------
same "dog:2 cat:1 " "$(val "IndexTerms(d)" 1)" "IndexTerms of 'dog dog cat'"
# pets: dog 9, cat 9, chase 3, bark 3, run 3, follow 3, mouse 3, hide 3
for id in 3 4 5 6; do
    kind=$(q -c "SELECT CASE WHEN dt_LOOid(d) IS NULL AND DocLOHandle(d) IS NULL THEN 'small'
                             WHEN dt_LOOid(d) IS NULL THEN 'external' WHEN DocLength(d) = 0 THEN 'nocopy'
                             ELSE 'large object' END FROM docs WHERE id = $id")
    terms=$(val "IndexTerms(d)" $id)
    same "cat:9 dog:9 | bark:3 chase:3 follow:3 hide:3 mouse:3 run:3" \
         "$(python3 -c "
import sys
items = sys.argv[1].split(' ')
assert items[-1] == '', 'trailing blank'
items = [i.rsplit(':', 1) for i in items[:-1]]
counts = [int(c) for _, c in items]
assert counts == sorted(counts, reverse=True), 'highest count first'
top = sorted(w + ':' + c for w, c in items if c == '9'); rest = sorted(w + ':' + c for w, c in items if c != '9')
print(' '.join(top), '|', ' '.join(rest))" "$terms" 2>&1)" "IndexTerms on a $kind document: counts, order, trailing blank"
    same "$(cut -d' ' -f1-2 <<<"$terms") " "$(val "TopNTerms(d, 2)" $id)" "TopNTerms(d, 2) on a $kind document"
    same "$terms" "$(val "TopNTerms(d, 100)" $id)" "TopNTerms(d, 100) on a $kind document gives all 8"
    same "|" "$(val "TopNTerms(d, 0) || '|' || TopNTerms(d, -1)" $id)" "TopNTerms 0 and -1 on a $kind document: empty"
    occ=$(val "Occurrences(d, 'Dogs, mice')" $id)
    same "dog:9 mouse:3 " "$occ" "Occurrences(d, 'Dogs, mice') on a $kind document"
done
same "dog:2 " "$(val "Occurrences(d, 'dog:7 horse')" 1)" "Occurrences ignores counts written in the input"
same "|" "$(val "Occurrences(d, '') || '|' || Occurrences(d, 'the')" 1)" "Occurrences of '' and of a stop word: empty"
same "$(val "IndexTerms(d)" 3)" "$(val "IndexTerms(d)" 3)" "IndexTerms is repeatable"
# Equal counts: of two terms, the one met later in the word hash comes first.
same "dog:2 cat:1 " "$(val "TopNTerms(d, 5)" 1)" "TopNTerms on 2 distinct stems gives both"
# Against a scan of the same file by the text functions.
same "$(q -c "SELECT string_agg(term || ':' || count, ' ' ORDER BY term) FROM dt_FileTerms('$ext')")" \
     "$(q -c "SELECT string_agg(t, ' ' ORDER BY t) FROM docs, regexp_split_to_table(trim(IndexTerms(d)), ' ') t WHERE id = 2" | head -c 0; \
        q -c "SELECT string_agg(t, ' ' ORDER BY t) FROM docs, regexp_split_to_table(trim(IndexTerms(d)), ' ') t WHERE id = 5")" \
     "IndexTerms of a server file equals dt_FileTerms"
same "$(q -c "SELECT count(*) FROM dt_FileTerms('/usr/share/common-licenses/GPL-3')")" \
     "$(val "array_length(regexp_split_to_array(trim(IndexTerms(d)), ' '), 1)" 2)" "IndexTerms of the GPL lists every distinct term"

# ---- GetDoc: a client copy ---------------------------------------------------
out=$(val "GetDoc(d, '$WORK/out')" 1)
f=${out#format(ascii):}
check "GetDoc of a small document names a client file in the directory" test "${f%/*}" = "$WORK/out"
same "$(md5of "$WORK/small.txt")" "$(md5of "$f")" "GetDoc of a small document: same bytes"
same "format(ascii):$WORK/out/gpl.txt" "$(val "GetDoc(d, '$WORK/out')" 2)" "GetDoc of a large object: directory and base name"
same "$(md5of "$WORK/gpl.txt")" "$(md5of "$WORK/out/gpl.txt")" "GetDoc of a large object: same bytes"
same "format(ascii),ExternalFile:$WORK/out/ext.txt" "$(val "GetDoc(d, '$WORK/out')" 5)" "GetDoc of an external document"
same "$(md5of "$ext")" "$(md5of "$WORK/out/ext.txt")" "GetDoc of an external document: same bytes"
out=$(val "GetDoc(d, '')" 1 2>&1)
has "ERROR:  TL001: Directory error: GetDoc failed: no directory given (an empty name)" "$out" "GetDoc with an empty directory: TL001"
lacks "(null" "$out" "GetDoc with an empty directory: no internal words"

# ---- GetDocText and GetDocInternal ---------------------------------------------
same "$(md5of "$WORK/gpl.txt")" "$(val "md5(GetDocText(d))" 2)" "GetDocText of a large object"
same "dog dog cat" "$(val "GetDocText(d)" 1)" "GetDocText of a small document"
out=$(val "GetDocInternal(d, '$DOC_SERVER_DIR')" 2)
f=${out#format(ascii):}
same "$(md5of "$WORK/gpl.txt")" "$(md5of "$f")" "GetDocInternal writes the text to a server file"
rm -f "$f"
has "TL001" "$(val "GetDocInternal(d, '')" 2 2>&1)" "GetDocInternal with an empty directory"

# ---- dt_Export and dt_Import ----------------------------------------------------
q -c "CREATE TABLE exports(id int, e text)"
for id in 1 2 3 4 5; do q -c "INSERT INTO exports SELECT id, dt_Export(d, '$WORK/out/exp$id') FROM docs WHERE id = $id"; done
same "handle($lo2),ImportName($WORK/out/exp2.$lo2),format(ascii):$WORK/gpl.txt" "$(q -c "SELECT e FROM exports WHERE id = 2")" "dt_Export of a large object: the description"
same "$(md5of "$WORK/gpl.txt")" "$(md5of "$WORK/out/exp2.$lo2")" "dt_Export of a large object: the client file"
e1=$(q -c "SELECT e FROM exports WHERE id = 1")
has "ImportName($WORK/out/exp1." "$e1" "dt_Export of a small document names a client file"
f=${e1#ImportName(}; f=${f%%)*}
same "$(md5of "$WORK/small.txt")" "$(md5of "$f")" "dt_Export of a small document: the client file"
same "handle(EXT:$ext),ImportName($ext),format(ascii),ExternalFile:$ext" "$(q -c "SELECT e FROM exports WHERE id = 5")" "dt_Export of an external document"
before=$(los)
q -c "CREATE TABLE imports(id int, d doc)"
q -c "CREATE TRIGGER imports_lo AFTER INSERT OR UPDATE OR DELETE ON imports FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"
q -c "INSERT INTO imports SELECT id, dt_Import(e) FROM exports"
same "$((before + 3))" "$(los)" "dt_Import makes new large objects for the three large-object documents"
same "4|4" "$(q -c "SELECT count(*) || '|' || count(*) FILTER (WHERE DocWordCnt(i.d) = DocWordCnt(x.d) AND DocUWordCnt(i.d) = DocUWordCnt(x.d)
          AND IndexTerms(i.d) = IndexTerms(x.d) AND DocLength(i.d) = DocLength(x.d)) FROM imports i JOIN docs x USING (id) WHERE id <> 4")" \
     "round trip: same counts, terms and lengths (small, large object, external)"
same "3|0" "$(q -c "SELECT count(*) FILTER (WHERE dt_LOOid(i.d) IS NOT NULL) || '|' || count(*) FILTER (WHERE dt_LOOid(i.d) = dt_LOOid(x.d)) FROM imports i JOIN docs x USING (id)")" \
     "round trip: new large objects, none shared with the originals"
same "$(val "d" 2)" "$(q -c "SELECT replace(d::text, dt_LOOid(d)::text, '$lo2') FROM imports WHERE id = 2")" "round trip keeps spec and path"
# NoCopyText keeps no text: its export is an empty file, and so is what comes back.
lo4=$(val "dt_LOOid(d)" 4)
same "handle($lo4),ImportName($WORK/out/exp4.$lo4),format(ascii),NoCopyText:$WORK/pets.txt|0" \
     "$(q -c "SELECT e FROM exports WHERE id = 4")|$(stat -c %s "$WORK/out/exp4.$lo4")" "dt_Export of a document without text: an empty client file"
same "0|0|0" "$(q -c "SELECT DocLength(d) || '|' || DocWordCnt(d) || '|' || DocUWordCnt(d) FROM imports WHERE id = 4")" "NoCopyText round trip: no text travels, so no terms come back"
same "$(val "IndexTerms(d)" 5)" "$(q -c "SELECT IndexTerms(d) FROM imports WHERE id = 5")" "external round trip refers to the same server file"
has "Client file error" "$(q -c "INSERT INTO imports SELECT 9, dt_Import('ImportName($WORK/nosuch),format(ascii):/x')" 2>&1)" "dt_Import of a missing client file"
check "no temporary file after exports and imports" tmp_empty

# ---- dt_ConvertTx --------------------------------------------------------------
q -c "CREATE FUNCTION put_file(path text, content text) RETURNS void LANGUAGE plpgsql AS \$\$
      DECLARE o oid; BEGIN o := lo_from_bytea(0, convert_to(content, 'UTF8')); PERFORM lo_export(o, path); PERFORM lo_unlink(o); END \$\$"
q -c "CREATE FUNCTION ascii_upper(i text, o text) RETURNS text LANGUAGE plpgsql AS \$\$
      BEGIN PERFORM put_file(dt_GetPathText(o), upper(pg_read_file(dt_GetPathText(i)))); RETURN o; END \$\$"
q -c "CREATE FUNCTION upper_shout(i text, o text) RETURNS text LANGUAGE plpgsql AS \$\$
      BEGIN PERFORM put_file(dt_GetPathText(o), pg_read_file(dt_GetPathText(i)) || '!'); RETURN o; END \$\$"
q -c "CREATE FUNCTION ascii_broken(i text, o text) RETURNS text LANGUAGE sql AS \$\$ SELECT NULL::text \$\$"
q -c "INSERT INTO \"DocumentConversions\" VALUES ('ascii', 'upper', 'ascii_upper'), ('upper', 'shout', 'upper_shout'), ('ascii', 'broken', 'ascii_broken')"
base=$(los)
out=$(val "dt_ConvertTx(d, 'upper', '$WORK/out')" 3)
same "format(upper):$WORK/out/pets.txt.$lo3" "$out" "dt_ConvertTx of a large object: spec and client name with its identifier"
same "$(tr a-z A-Z <"$WORK/pets.txt" | md5sum | cut -d' ' -f1)" "$(md5of "$WORK/out/pets.txt.$lo3")" "dt_ConvertTx: the converted file on the client"
out=$(val "dt_ConvertTx(d, 'format(upper),tag(x)', '$WORK/out')" 1)
has "format(upper),tag(x):$WORK/out/small.txt." "$out" "dt_ConvertTx of a small document with a spec as format"
same "DOG DOG CAT" "$(cat "${out#*:}")" "dt_ConvertTx of a small document: converted text"
out=$(val "dt_ConvertTx(d, 'ascii', '$WORK/out')" 5)
same "ExternalFile,format(ascii):" "${out%%$WORK*}" "dt_ConvertTx to the same format keeps the other parameters"
same "$(md5of "$ext")" "$(md5of "${out#*:}")" "same format: a copy"
out=$(val "dt_ConvertTx(d, 'shout', '$WORK/out')" 1)
same "dog dog cat
!" "$(cat "${out#*:}")" "dt_ConvertTx over two steps: each step reads the initial input"
has "ERROR:  XD00T: no conversion from \"format(ascii)\" to \"broken\"" "$(val "dt_ConvertTx(d, 'broken', '$WORK/out')" 3 2>&1)" "failed step: XD00T"
has "XD00T" "$(val "dt_ConvertTx(d, 'nosuch', '$WORK/out')" 3 2>&1)" "no path: XD00T"
same "$base" "$(los)" "conversions make no large object"
check "no temporary file after conversions" tmp_empty
has "this session does not receive client files; run the statement from docsql" "$(psql -X -c "SELECT dt_ConvertTx(d, 'upper', '$WORK/out') FROM docs WHERE id = 3" 2>&1)" "psql: dt_ConvertTx needs docsql"
check "no temporary file after a refused conversion" tmp_empty

# ---- DocDisplay and DocPrint -----------------------------------------------------
cmdout=$DOC_SERVER_DIR/cmd
mkdir -p "$cmdout"; chown postgres: "$cmdout"
same 0 "$(val "DocDisplay(d, 'cp %s $cmdout/shown', ':7')" 2)" "DocDisplay runs the command"
same "$(md5of "$WORK/gpl.txt")" "$(md5of "$cmdout/shown")" "DocDisplay: the command got the text"
same "0
:7" "$(val "DocDisplay(d, 'sh -c \"echo \$DISPLAY > $cmdout/display\"', ':7')" 1; cat "$cmdout/display")" "DocDisplay sets DISPLAY"
same 3 "$(val "DocPrint(d, 'sh -c \"exit 3\"')" 1)" "DocPrint returns the exit status"
val "DocPrint(d, 'cat %s;touch $cmdout/pwned')" 1 >/dev/null 2>&1
check "no shell reads the command: ';' is no separator" test ! -e "$cmdout/pwned"
check "DocDisplay and DocPrint leave no temporary file" tmp_empty
same "$ext" "$(val "DocDisplay(d, 'echo %s', '')" 5 >/dev/null; q -c "SELECT DocDisplay(d, 'sh -c \"echo \$0 > $cmdout/name\" %s', '') FROM docs WHERE id = 5" >/dev/null; cat "$cmdout/name")" "DocDisplay of an external document uses the server file"
check "the external file stays" test -f "$ext"

# ---- an ordinary role --------------------------------------------------------------
q -c "CREATE ROLE plain LOGIN" -c "GRANT ALL ON docs, exports TO plain"
p() { "$DOCSQL" -X -qtA -U plain "$@"; }
has "ERROR:  42501: permission denied to read server file" "$(p -c "INSERT INTO docs VALUES (70, 'format(ascii),ExternalFile:$ext')" 2>&1)" "plain role: ExternalFile refused"
has "ERROR:  42501: permission denied to write server files with GetDocInternal" "$(p -c "SELECT GetDocInternal(d, '$DOC_SERVER_DIR') FROM docs WHERE id = 1" 2>&1)" "plain role: GetDocInternal refused"
has "ERROR:  42501: permission denied to run a program with DocDisplay" "$(p -c "SELECT DocDisplay(d, 'true', '') FROM docs WHERE id = 1" 2>&1)" "plain role: DocDisplay refused"
has "ERROR:  42501: permission denied to run a program with DocPrint" "$(p -c "SELECT DocPrint(d, 'true') FROM docs WHERE id = 1" 2>&1)" "plain role: DocPrint refused"
before=$(los)
p -c "INSERT INTO docs VALUES (71, 'format(ascii):$WORK/gpl.txt')"
same "$((before + 1))|$(val "IndexTerms(d)" 2)" "$(los)|$(p -c "SELECT IndexTerms(d) FROM docs WHERE id = 71")" "plain role: enters and reads client documents"
same "$(md5of "$WORK/gpl.txt")" "$(p -c "SELECT md5(GetDocText(d)) FROM docs WHERE id = 71")" "plain role: GetDocText"
has "must be owner of large object" "$(p -c "SELECT lo_unlink(dt_LOOid(d)) FROM docs WHERE id = 71" 2>&1)" "plain role cannot remove a document's large object"
p -c "DELETE FROM docs WHERE id = 71"
same "$before" "$(los)" "plain role: deleting the row removes the large object"
check "no temporary file at the end" tmp_empty
finish
