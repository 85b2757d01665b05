# The search operators on documents entered through docsql, on every kind
# of storage (in the row, in the row up to ExpandLimit, a large object with
# its term table, NoCopyText, an external server file): fixed answers, a
# query that must not open its document, and random queries, word lists and
# document pairs checked against a reference evaluation written here (sets
# of documents, over the unrewritten query).
source "$(dirname "$0")/channel_common.bash"
setup_server
psql() { command psql -X -q -v ON_ERROR_STOP=1 "$@"; }

# ---- fixed answers on every kind of storage -----------------------------------
one='Two dogs chased a cat up the tree.'
printf '%s\n' "$one" >"$WORK/small.txt"
for i in 1 2 3 4; do printf '%s ' "$one"; done >"$WORK/long.txt"; echo >>"$WORK/long.txt"
chmod 644 "$WORK"/*.txt
q -c "CREATE TABLE kinds(kind text, body doc)"
q -c "INSERT INTO kinds VALUES
      ('small',    'format(ascii):$WORK/small.txt'),
      ('expand',   'format(ascii),ExpandLimit(2048):$WORK/long.txt'),
      ('lo',       'format(ascii):$WORK/long.txt'),
      ('nocopy',   'format(ascii),NoCopyText:$WORK/long.txt'),
      ('external', 'format(ascii),ExternalFile:$WORK/long.txt')"
same "small:false expand:false lo:true nocopy:true external:true" \
    "$(q -c "SELECT string_agg(kind || ':' || (body::text LIKE '%handle(%')::text, ' ' ORDER BY ctid) FROM kinds")" \
    "five kinds of storage (in the row or behind a handle)"
same "lo:20 nocopy:20 external:20" \
    "$(q -c "SELECT string_agg(kind || ':' || DocWordCnt(body), ' ' ORDER BY ctid) FROM kinds WHERE body::text LIKE '%handle(%'")" \
    "the long text's terms are counted"
while IFS='|' read -r query want; do
    got=$(q -c "SELECT string_agg(Contains(body, '$query')::text, ' ' ORDER BY ctid) FROM kinds")
    same "$want $want $want $want $want" "$got" "Contains(d, '$query') on every kind is $want"
done <<'EOF'
dog|true
dog and cat|true
dog and !cat|false
!cat and dog|false
dog andnot cat|true
bird or tree|true
bird or tree and cat|true
bird or (tree and mouse)|false
!(bird or mouse)|true
!!dog|true
!!!dog|false
dogs:5 and cats:2|true
the|true
!the|false
the and dog|true
the or bird|true
Dogs and TREES|true
CHASED and !Trees|false
EOF
same "t t t t t" "$(q -c "SELECT string_agg((body @@@ '=10|%50|bird cats')::text, ' ' ORDER BY ctid) FROM kinds" | tr -d 'ruefals' )" \
    "ContainsWords with an options prefix on every kind"
same "5" "$(q -c "SELECT count(*) FROM kinds a JOIN kinds b ON a.kind = 'small' AND a.body % b.body")" \
    "DocLike of the short document finds all five"
same "cat:4 chased:4 dog:4 tree:4 two:4" \
    "$(q -c "SELECT DISTINCT string_agg(term || ':' || weight, ' ' ORDER BY term) FROM kinds, dt_QueryTerms(MakeQueryFromDoc(body)) WHERE kind <> 'small' GROUP BY kind")" \
    "MakeQueryFromDoc gives the same weighted terms for every stored kind of the long text"

# A document that is gone: queries that need no document still answer.
cp "$WORK/long.txt" "$WORK/gone.txt"
q -c "INSERT INTO kinds VALUES ('gone', 'format(ascii),ExternalFile:$WORK/gone.txt')"
rm "$WORK/gone.txt"
same "f t f" "$(q -F' ' -c "SELECT Contains(body, '!the'), Contains(body, 'the or dog'), ContainsWords(body, '42') FROM kinds WHERE kind = 'gone'")" \
    "'!the', 'the or dog' and a list without words do not open a missing file"
out=$(q -c "SELECT Contains(body, 'dog') FROM kinds WHERE kind = 'gone'" 2>&1)
has "TL001: Large object error: Open of large object EXT:$WORK/gone.txt failed: No such file or directory" "$out" "'dog' has to open it: TL001 with the file and the reason"
q -c "DELETE FROM kinds WHERE kind = 'gone'"

# ---- random documents and queries against a reference evaluation ---------------
python3 - "$WORK" <<'PY'
import random, sys
work = sys.argv[1]
random.seed(20240606)
vocab = ("dog dogs cat cats mouse mice goose geese tree trees river rivers run ran "
         "house houses bird birds apple stone stones child children green quickly "
         "the of with").split()
docs = []
for i in range(40):
    kind = ["small", "expand", "lo", "nocopy", "external"][i % 5]
    if i in (7, 19):
        words = random.choice([[], ["the", "of", "with"]])
    elif kind == "small":
        words = random.sample(vocab, random.randint(1, 8))
    else:
        words = [random.choice(vocab) for _ in range(random.randint(22, 60))]
    sep = lambda: random.choice([" ", " ", ", ", ". ", "\n", " (", ") ", "! "])
    text = "".join((w.capitalize() if random.random() < 0.2 else w) + sep() for w in words) + "\n"
    if kind == "small":
        assert len(text) <= 100, text
    elif len(text) <= 100:
        text += "tree " * 20 + "\n"
    path = f"{work}/d{i}.txt"
    open(path, "w").write(text)
    spec = {"small": "format(ascii)", "expand": "format(ascii),ExpandLimit(2048)", "lo": "format(ascii)",
            "nocopy": "format(ascii),NoCopyText", "external": "format(ascii),ExternalFile"}[kind]
    docs.append((i, kind, f"{spec}:{path}"))
with open(f"{work}/docs.sql", "w") as f:
    f.write("INSERT INTO rdocs VALUES " + ",\n".join(f"({i}, '{k}', '{s}')" for i, k, s in docs) + ";\n")
open(f"{work}/vocab", "w").write("\n".join(sorted(set(vocab))) + "\n")
PY
chmod 644 "$WORK"/d*.txt
q -c "CREATE TABLE rdocs(id int, kind text, body doc)"
check "40 random documents entered through docsql" q -f "$WORK/docs.sql"
same 40 "$(q -c "SELECT count(*) FROM rdocs")" "40 rows"

# The analysis of each vocabulary word, from the server's own word functions.
psql -c "CREATE TABLE vocab(w text)" -c "\\copy vocab FROM '$WORK/vocab'"
psql -A -t -F' ' -c "SELECT w, lower(StemWord(w)), IsStopWord(w) FROM vocab" >"$WORK/stems"
# The words of each document as the reader cuts them, one row per word.
for f in "$WORK"/d*.txt; do
    id=$(basename "$f" .txt); id=${id#d}
    tr -c 'A-Za-z0-9_\n' ' ' <"$f" | tr ' ' '\n' | grep -E '^[A-Za-z]' | sed "s/^/$id /"
done >"$WORK/docwords"

python3 - "$WORK" <<'PY'
import random, sys
work = sys.argv[1]
random.seed(77)
stem, stop = {}, set()
for line in open(f"{work}/stems"):
    w, s, isstop = line.split()
    stem[w] = s
    if isstop == "t":
        stop.add(w)
terms = {i: set() for i in range(40)}
for line in open(f"{work}/docwords"):
    i, w = line.split()
    w = w.lower()
    if w not in stop:
        terms[int(i)].add(stem[w])
ALL = set(range(40))
words = sorted(stem)

def word_set(w):
    w = w.lower()
    if w in stop:
        return set(ALL)           # a stop word matches every document
    return {d for d in ALL if stem[w] in terms[d]}

# A random query as text, with its meaning computed on the unrewritten
# tree: left to right without precedence, "!" by parity, sets of documents.
def operand(depth):
    nots = random.choice([0, 0, 0, 1, 1, 2, 3])
    if depth < 3 and random.random() < 0.3:
        text, s = expr(depth + 1)
        text = "(" + text + ")"
    else:
        w = random.choice(words)
        if random.random() < 0.2:
            w = w.upper() if random.random() < 0.5 else w.capitalize()
        text, s = w, word_set(w)
        if random.random() < 0.15:
            text += ":" + str(random.randint(0, 9))
    if nots % 2:
        s = ALL - s
    return "!" * nots + text, s

def expr(depth):
    text, s = operand(depth)
    for _ in range(random.choice([0, 1, 1, 2, 3])):
        op = random.choice(["and", "or", "and", "or", "andnot", "order", "anders"])
        t2, s2 = operand(depth)
        text += " " + op + " " + t2
        s = (s & s2) if op.startswith("and") else (s | s2)
    return text, s

with open(f"{work}/queries.sql", "w") as f, open(f"{work}/expected", "w") as e:
    f.write("INSERT INTO rq VALUES\n")
    rows = []
    for n in range(30):
        text, s = expr(0)
        rows.append(f"({n}, 'c', '{text}')")
        e.writelines(f"c {n} {d}\n" for d in sorted(s))
    for n in range(30, 45):
        ws = random.sample(words, random.randint(0, 4))
        lst = random.choice(["", "=5|", "%20|=3|"]) + " ".join(w + (":2" if random.random() < 0.2 else "") for w in ws)
        rows.append(f"({n}, 'w', '{lst}')")
        content = [w for w in ws if w not in stop]
        if not ws:
            s = set()
        elif not content:
            s = set(ALL)
        else:
            s = {d for d in ALL if any(stem[w] in terms[d] for w in content)}
        e.writelines(f"w {n} {d}\n" for d in sorted(s))
    f.write(",\n".join(rows) + ";\n")
    for a in sorted(ALL):
        for b in sorted(ALL):
            if terms[a] & terms[b]:
                e.write(f"l {a} {b}\n")
PY
psql -c "CREATE TABLE rq(n int, kind text, q text)" -f "$WORK/queries.sql"
sort "$WORK/expected" >"$WORK/expected.sorted"
{
    psql -A -t -F' ' -c "SELECT 'c', n, id FROM rq, rdocs WHERE rq.kind = 'c' AND Contains(body, q)"
    psql -A -t -F' ' -c "SELECT 'w', n, id FROM rq, rdocs WHERE rq.kind = 'w' AND ContainsWords(body, q)"
    psql -A -t -F' ' -c "SELECT 'l', a.id, b.id FROM rdocs a, rdocs b WHERE DocLike(a.body, b.body)"
} | sort >"$WORK/got.sorted"
pairs=$(psql -A -t -c "SELECT (SELECT count(*) FROM rq) * 40 + 40 * 40")
if diff "$WORK/expected.sorted" "$WORK/got.sorted" >"$WORK/diff"; then
    pass "Contains, ContainsWords and DocLike agree with the reference on all $pairs pairs ($(wc -l <"$WORK/got.sorted") matches)"
else
    fail "disagreement with the reference:"; head -20 "$WORK/diff"
    psql -A -t -c "SELECT n, q FROM rq" | head -50
fi
# The operators give the same answers as the functions.
same 0 "$(psql -A -t -c "SELECT count(*) FROM rq, rdocs WHERE rq.kind = 'c' AND (body @@ q) <> Contains(body, q)")" \
    "body @@ q is Contains(body, q)"
same 0 "$(psql -A -t -c "SELECT count(*) FROM rq, rdocs WHERE rq.kind = 'w' AND (body @@@ q) <> ContainsWords(body, q)")" \
    "body @@@ q is ContainsWords(body, q)"
# Every document matches the query made from it, unless it has no terms.
same "0" "$(psql -A -t -c "SELECT count(*) FROM rdocs WHERE MakeQueryFromDoc(body) <> '()' AND NOT Contains(body, MakeQueryFromDoc(body))")" \
    "each document matches MakeQueryFromDoc of itself"
check "no temporary file left behind" tmp_empty
finish
