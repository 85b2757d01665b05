# Bulk loading with \load: every file of a directory tree, or the paths read
# from standard input, entered as documents, with a summary; bad files are
# reported and do not stop the rest unless asked.
source "$(dirname "$0")/channel_common.bash"
setup_server
mkdir -p "$WORK/man/sub"
n=0
for f in $(ls /usr/share/man/man1/*.1.gz | head -30); do
    n=$((n + 1))
    if [ $n -le 20 ]; then d="$WORK/man"; else d="$WORK/man/sub"; fi
    zcat "$f" >"$d/$(basename "$f" .gz)"
done
bytes=$(cat "$WORK"/man/*.1 "$WORK"/man/sub/*.1 | wc -c)
q -c "CREATE TABLE pages (id serial, body doc)"
out=$("$DOCSQL" -X --no-progress -c "\\load pages body $WORK/man" 2>&1)
has "loaded 30 files, $bytes bytes" "$out" "\\load enters every file of the tree"
has "0 failed" "$out" "with no failure"
same 30 "$(q -c "SELECT count(*) FROM pages")" "thirty rows"
same 0 "$(q -c "SELECT count(*) FROM pages WHERE DocWordCnt(body) = 0")" "every page has its words"
name=$(ls "$WORK/man" | head -1)
same "$(md5of "$WORK/man/$name")" "$(q -c "SELECT md5(GetDocText(body)) FROM pages WHERE body::text LIKE '%/$name'")" "a page reads back whole"

# Paths from standard input, with bad ones among them.
printf '%s\n' "$WORK/man/sub/$(ls "$WORK/man/sub" | head -1)" "$WORK/missing.txt" "$WORK/man/$name" "$WORK/man" \
    | "$DOCSQL" -X --no-progress -c "\\load pages body - format(ascii)" >"$WORK/out" 2>&1
rc=$?
out=$(cat "$WORK/out")
has "loaded 2 files" "$out" "paths from standard input: the good ones are loaded"
has "2 failed" "$out" "the bad ones are counted"
has "$WORK/missing.txt: " "$out" "a missing file is reported with its reason"
has "No such file or directory" "$out" "the operating system's reason"
same 3 "$rc" "a load with failures exits with status 3"
same 32 "$(q -c "SELECT count(*) FROM pages")" "two more rows"
printf '%s\n' "$WORK/missing.txt" "$WORK/man/$name" | "$DOCSQL" -X --no-progress -c "\\load pages body - --stop-on-error" >/dev/null 2>&1
same 32 "$(q -c "SELECT count(*) FROM pages")" "--stop-on-error stops at the first bad file"
out=$("$DOCSQL" -X -c "\\load pages" 2>&1)
has "usage: \\load TABLE COLUMN DIR" "$out" "\\load without its arguments says how to use it"
check "nothing left in the temporary directory" tmp_empty
finish
