# Documents in PostScript, DVI (through dvips), troff, PDF, TeX, LinuxDoc
# SGML and word-processor formats, generated here from Debian's own sources,
# entered through docsql by an ordinary role from client paths: converted by
# the installed steps, searchable, with no markup among their terms.  Paths
# a shell would read, attacks on the conversion table, failing filters, and
# the table through pg_dump and a restore.
source "$(dirname "$0")/channel_common.bash"
setup_server
psql -X -q -v ON_ERROR_STOP=1 \
    -c "CREATE ROLE reader LOGIN" \
    -c "CREATE TABLE docs (id int PRIMARY KEY, d doc)" \
    -c "GRANT SELECT, INSERT, DELETE ON docs TO reader" \
    -c "GRANT CREATE ON SCHEMA public TO reader" >/dev/null
# docsql as the ordinary role.
r() { PGUSER=reader "$DOCSQL" -X -qtA "$@"; }

# ---- documents made from Debian's sources ---------------------------------------
D=$WORK/docs
mkdir -p "$D"
zcat /usr/share/man/man1/ls.1.gz >"$D/ls.1"
zcat /usr/share/man/man1/cp.1.gz >"$D/cp.1"
groff -man -Tps "$D/ls.1" >"$D/ls.ps" 2>/dev/null
groff -man -Tdvi "$D/cp.1" 2>/dev/null >"$D/cp.dvi" && dvips -q -o "$D/cp.dvi.ps" "$D/cp.dvi" 2>/dev/null
groff -man -Tpdf "$D/ls.1" >"$D/ls.pdf" 2>/dev/null
zcat /usr/share/doc/linuxdoc-tools/example/example.sgml.gz >"$D/example.sgml"
# A real text for the word processors: the GNU GPL as Debian ships it.
sed -n '1,120p' /usr/share/common-licenses/GPL-3 >"$D/gpl.txt"
pandoc -f markdown -t latex "$D/gpl.txt" 2>/dev/null |
    { printf '\\documentclass{article}\n\\begin{document}\n'; cat; printf '\\end{document}\n'; } >"$D/gpl.tex"
for f in rtf docx odt html; do
    pandoc -s -f markdown --metadata title=License "$D/gpl.txt" -o "$D/gpl.$f" 2>/dev/null
done
# Word: no Debian program writes the binary format; a Word file that is RTF
# inside (as word processors save them) is refused by antiword and read by
# catdoc, the fall-back.
cp "$D/gpl.rtf" "$D/gpl.doc"
# WordPerfect: nothing in Debian writes it either; the simplest WordPerfect
# 5 document is the 16-byte file prefix (the magic bytes, the offset of the
# text, product 1, file type 10 for a document, version 0.0, no encryption)
# and the text, a hard return (10) ending each paragraph.
python3 - "$D/gpl.txt" "$D/gpl.wpd" <<'PY'
import struct, sys
text = open(sys.argv[1], encoding="utf-8").read()
paras = [" ".join(p.split()) for p in text.split("\n\n")]
body = "\n".join(p for p in paras if p).encode("ascii", "replace") + b"\n"
open(sys.argv[2], "wb").write(b"\xffWPC" + struct.pack("<I", 16) + bytes([1, 10, 0, 0, 0, 0, 0, 0]) + body)
PY
for f in ls.1 ls.ps cp.dvi.ps ls.pdf example.sgml gpl.tex gpl.rtf gpl.docx gpl.odt gpl.html gpl.doc gpl.wpd; do
    check "generated $f" test -s "$D/$f"
done

# enter ID FORMAT FILE WORDS: entered by the ordinary role, then searched.
# PostScript operators and the names of its fonts' dictionaries, TeX and
# LaTeX commands, LinuxDoc tags, RTF control words, XML and HTML tags and
# entities, troff requests and macros.
markup='^(showpage|moveto|rmoveto|setfont|findfont|scalefont|setlinewidth|fontname|bop|eop|dict|exch|dup|bind|documentclass|usepackage|textbf|emph|hline|tabular|itemize|sect|sect1|descrip|enum|tscreen|verb|htmlurl|rtf|ansi|fonttbl|deff|pard|fs|xml|xmlns|div|span|nbsp|amp|br|th|sh|tp|ip|fb|fr|fi|nh|ad)$'
enter() {
    local id=$1 fmt=$2 file=$3 words=$4 out terms
    out=$(r -c "INSERT INTO docs VALUES ($id, 'format($fmt):$D/$file')" 2>&1)
    if [ -n "$out" ]; then fail "$fmt: $file entered: $out"; return; fi
    same "t" "$(r -c "SELECT Contains(d, '$words') FROM docs WHERE id = $id")" "$fmt: Contains finds '$words' in $file"
    terms=$(r -c "SELECT string_agg(t, ' ') FROM (SELECT split_part(x, ':', 1) t FROM docs, regexp_split_to_table(btrim(TopNTerms(d, 40)), ' ') x WHERE id = $id) s")
    local bad=""
    for t in $terms; do [[ "$t" =~ $markup ]] && bad="$bad $t"; done
    if [ -z "$terms" ]; then fail "$fmt: no terms"
    elif [ -n "$bad" ]; then fail "$fmt: markup among the top terms:$bad ($terms)"
    else pass "$fmt: no markup among the top 40 terms"; fi
}
t0=$(date +%s)
enter 1 postscript ls.ps "directory and alphabetically and entries"
enter 2 dvips cp.dvi.ps "copy and source and destination"
enter 3 troff ls.1 "directory and alphabetically and entries"
enter 4 pdf ls.pdf "directory and alphabetically"
enter 5 latex gpl.tex "software and freedom and license"
enter 6 sgml example.sgml "linuxdoc and example and sgml"
enter 7 rtf gpl.rtf "software and freedom and license"
enter 8 docx gpl.docx "software and freedom and license"
enter 9 odt gpl.odt "software and freedom and license"
enter 10 html gpl.html "software and freedom and license"
enter 11 msword gpl.doc "software and freedom and license"
enter 12 wordperfect gpl.wpd "software and freedom and license"
enter 13 "wordperfect5),version(5.1" gpl.wpd "software and freedom and license"
echo "13 documents converted in $(($(date +%s) - t0)) s"
same "1 3 4" "$(r -c "SELECT string_agg(id::text, ' ' ORDER BY id) FROM docs WHERE Contains(d, 'alphabetically')")" \
    "a search over the collection finds the three forms of the ls page"
check "nothing left in the temporary directory" tmp_empty

# ---- paths a shell would read ---------------------------------------------------
# The client's directory and file names hold blanks, quotes, semicolons,
# $() and back quotes, and a newline; the server's temporary copy takes the
# last component of the name.
odd="$WORK/odd dir; it's \"quoted\" \$(touch $WORK/pwned1) \`touch $WORK/pwned2\`"
mkdir -p "$odd"
name=$'page $(touch pwned3);`touch pwned4` x\ny\'s.1'
cp "$D/ls.1" "$odd/$name"
lit="format(troff):$odd/$name"
out=$(r -c "INSERT INTO docs VALUES (20, '${lit//\'/\'\'}')" 2>&1)
same "" "$out" "a troff page under a name full of shell syntax is entered"
same "t" "$(r -c "SELECT Contains(d, 'directory and alphabetically') FROM docs WHERE id = 20")" "and converted"
cp "$D/gpl.docx" "$odd/$name.docx"
lit="format(docx):$odd/$name.docx"
out=$(r -c "INSERT INTO docs VALUES (21, '${lit//\'/\'\'}')" 2>&1)
same "" "$out" "an Office document under that name (its converter hands paths to a shell) is entered"
same "t" "$(r -c "SELECT Contains(d, 'freedom') FROM docs WHERE id = 21")" "and converted"
cp "$D/example.sgml" "$odd/$name.sgml"
lit="format(sgml):$odd/$name.sgml"
out=$(r -c "INSERT INTO docs VALUES (22, '${lit//\'/\'\'}')" 2>&1)
same "" "$out" "an SGML document under that name is entered"
same "t" "$(r -c "SELECT Contains(d, 'linuxdoc') FROM docs WHERE id = 22")" "and converted"
ran=$( (find "$WORK" "$DOC_SERVER_DIR" / -maxdepth 1 -name 'pwned[0-9]'; find "$WORK" "$SERVER_TMP" -name 'pwned[0-9]') 2>/dev/null | sort -u)
same "" "$ran" "nothing that the names spell was run, on the client or the server"
check "nothing left in the temporary directory" tmp_empty

# ---- what an ordinary role cannot make the server run ------------------------------
out=$(r -c "INSERT INTO \"DocumentConversions\" VALUES ('evil', 'ascii', 'public.evil')" 2>&1)
has "permission denied for table DocumentConversions" "$out" "an ordinary role cannot add a row"
out=$(r -c "UPDATE \"DocumentConversions\" SET function_name = 'public.evil'" 2>&1)
has "permission denied" "$out" "nor change one"
out=$(r -c "SELECT dt_GetPathText('a:b')" -c "SET document.home = '$WORK/fakehome'" 2>&1)
has "permission denied" "$out" "nor move the filter directory"
# Set before the library is loaded, the setting is dropped when it loads.
mkdir -p "$WORK/fakehome/extend/document/bin"
printf '#!/bin/sh\ntouch %s/pwned0\n' "$WORK" >"$WORK/fakehome/extend/document/bin/deroff"
chmod 755 "$WORK/fakehome/extend/document/bin/deroff"
r -c "SET document.home = '$WORK/fakehome'" -c "INSERT INTO docs VALUES (29, 'format(troff):$D/ls.1')" >/dev/null 2>&1
check "a filter directory set by the role before the library loaded is not used" test ! -e "$WORK/pwned0"
same "t" "$(r -c "SELECT Contains(d, 'alphabetically') FROM docs WHERE id = 29")" "the installed filter converted the page"
out=$(r -c "SELECT troff2ascii('format(troff):/etc/passwd', 'format(ascii):$SERVER_TMP/x')" 2>&1)
has "permission denied for function troff2ascii" "$out" "nor call a step directly"
out=$(r -c "SELECT ravelcnvt('$WORK', 'html', 'asc', '', '', '/etc/passwd', '$SERVER_TMP/x')" 2>&1)
has "permission denied for function ravelcnvt" "$out" "nor the engine"
# A format name or a version that looks like a program or a command.
for spec in "format(/bin/sh)" "format(\$(touch $WORK/pwned5))" "format(wordperfect),version(\$(touch $WORK/pwned6))" \
            "format(../../../../bin/sh)"; do
    out=$(r -c "INSERT INTO docs VALUES (30, '$spec:$D/ls.1')" 2>&1)
    has "XD00N" "$out" "$spec: refused with the conversion error"
done
# A step of the role's own, named like the module's and found first on its
# search path, is never taken for it: a bare step name is looked up in the
# extension's schema only.
r -c "CREATE FUNCTION public.evil_step(i text, o text) RETURNS text LANGUAGE plpgsql AS \$\$
      BEGIN EXECUTE format('COPY (SELECT 1) TO PROGRAM %L', 'touch $WORK/pwned7'); RETURN o; END \$\$" >/dev/null
psql -X -q -c "CREATE SCHEMA mine AUTHORIZATION reader" >/dev/null
r -c "CREATE FUNCTION mine.ps2ascii(i text, o text) RETURNS text LANGUAGE sql AS \$\$ SELECT public.evil_step(i, o) \$\$" >/dev/null
out=$(PGOPTIONS="-c search_path=mine,public" r -c "INSERT INTO docs VALUES (31, 'format(postscript):$D/ls.ps')" 2>&1)
same "" "$out" "a step on the role's search path named like the module's is not run"
same "1" "$(r -c "SELECT count(*) FROM docs WHERE id = 31 AND Contains(d, 'alphabetically')")" "the module's own step converted the document"
# Named with its schema in a row, the role's own step runs with the role's
# rights only, so it cannot run a program either.
psql -X -q -c "INSERT INTO \"DocumentConversions\" VALUES ('mine', 'ascii', 'mine.ps2ascii')" >/dev/null
out=$(r -c "INSERT INTO docs VALUES (35, 'format(mine):$D/ls.ps')" 2>&1)
has "pg_execute_server_program" "$out" "the role's own step runs with its own rights: no program"
psql -X -q -c "DELETE FROM \"DocumentConversions\" WHERE source_format = 'mine'" >/dev/null
# Even when the table's owner lets someone add rows, their code is never run
# for anyone else (here, a superuser).
psql -X -q -c "GRANT INSERT, DELETE ON \"DocumentConversions\", \"DocumentConversionsRemoved\" TO reader" >/dev/null
r -c "INSERT INTO \"DocumentConversions\" VALUES ('trojan', 'ascii', 'public.evil_step')" >/dev/null
out=$(q -c "INSERT INTO docs VALUES (32, 'format(trojan):$D/ls.1')" 2>&1)
has "42501" "$out" "a superuser entering a document is not made to run the role's step"
out=$(PGOPTIONS="-c search_path=mine,public" q -c "INSERT INTO docs VALUES (33, 'format(postscript):$D/ls.ps')" 2>&1)
lacks "ERROR" "$out" "nor the role's step found first on a search path (the module's runs)"
psql -X -q -c "DELETE FROM \"DocumentConversions\" WHERE source_format = 'trojan'" \
     -c "REVOKE ALL ON \"DocumentConversions\", \"DocumentConversionsRemoved\" FROM reader" >/dev/null
# troff requests that run programs are refused (groff's safer mode), and
# the filters cannot read the server's files outside their input's directory.
printf '.TH X 1\n.SH NAME\nharmless page\n.sy touch %s/pwned8\n.pso touch %s/pwned9\n.so %s/data/postgresql.conf\n' \
    "$WORK" "$WORK" "$DOC_SERVER_DIR" >"$D/sy.1"
r -c "INSERT INTO docs VALUES (34, 'format(troff):$D/sy.1')" >/dev/null 2>&1
same "t|f" "$(r -c "SELECT Contains(d, 'harmless')::int::bool || '|' || Contains(d, 'listen_addresses or shared_buffers') FROM docs WHERE id = 34" | sed 's/true/t/; s/false/f/')" \
    "a troff page cannot include the server's configuration"
# Files the server's account reads but the role may not: troff includes
# (.so, .mso with a relative path) and an SGML external entity read nothing
# but the input, its temporary directory and the programs' own data.
DATADIR=$(psql -X -qtA -c "SHOW data_directory")
psql -X -q -c "COPY (SELECT 'zebrasecret') TO '$DATADIR/filtersecret.txt'" >/dev/null
printf '.TH X 1\n.SH NAME\nharmless page\n.so /etc/passwd\n.so %s/filtersecret.txt\n.mso ../../../../../../../etc/passwd\n' \
    "$DATADIR" >"$D/so.1"
r -c "INSERT INTO docs VALUES (36, 'format(troff):$D/so.1')" >/dev/null 2>&1
same "t|f|f" "$(r -c "SELECT Contains(d, 'harmless') || '|' || Contains(d, 'nologin') || '|' || Contains(d, 'zebrasecret') FROM docs WHERE id = 36" | sed 's/true/t/g; s/false/f/g')" \
    "troff .so and .mso read neither /etc/passwd nor a file of the data directory"
{ printf '<!doctype linuxdoc system [\n<!ENTITY pw SYSTEM "/etc/passwd">\n<!ENTITY sec SYSTEM "%s/filtersecret.txt">\n]>\n' "$DATADIR"
  printf '<article>\n<title>Harmless entity page</title>\n<author>Nobody</author>\n<sect>One<p>\nharmless words &pw; &sec;\n</article>\n'; } >"$D/ent.sgml"
r -c "INSERT INTO docs VALUES (37, 'format(sgml):$D/ent.sgml')" >/dev/null 2>&1
same "f|f" "$(r -c "SELECT coalesce((SELECT Contains(d, 'nologin') || '|' || Contains(d, 'zebrasecret') FROM docs WHERE id = 37), 'f|f')" | sed 's/true/t/g; s/false/f/g')" \
    "an SGML external entity reads neither /etc/passwd nor a file of the data directory"
rm -f "$DATADIR/filtersecret.txt"
# A filter that writes forever is stopped at document.filter_max_output.
printf '.TH X 1\n.SH NAME\nloop\n.de L\nwords without end\n.br\n..\n.while 1 .L\n' >"$D/loop.1"
psql -X -q -c "ALTER ROLE reader SET document.filter_max_output = '256kB'" >/dev/null
out=$(r -c "INSERT INTO docs VALUES (38, 'format(troff):$D/loop.1')" 2>&1)
has "ERROR:  54000: conversion program" "$out" "a troff page writing forever stops at the limit (54000)"
has "document.filter_max_output" "$out" "the error names the setting"
check "the runaway filter leaves nothing in the temporary directory" tmp_empty
out=$(r -c "SELECT dt_GetFormat(dt_FromText('x'))" -c "SET document.filter_max_output = '2GB'" 2>&1)
has "permission denied" "$out" "an ordinary role cannot raise the limit"
psql -X -q -c "ALTER ROLE reader RESET document.filter_max_output" >/dev/null
same "64MB" "$(psql -X -qtA -c "SELECT dt_GetFormat(dt_FromText('x'))" -c "SHOW document.filter_max_output" | tail -1)" "the default limit is 64 MB"
ran=$(find "$WORK" "$DOC_SERVER_DIR" -name 'pwned[0-9]' 2>/dev/null)
same "" "$ran" "no program of the role's choosing ran"

# ---- failing filters leave nothing behind ---------------------------------------------
printf 'not a word-processor file\n' >"$D/fake.wpd"
for spec in "format(wordperfect):$D/fake.wpd" "format(sgml):$D/ls.1" "format(pdf):$D/ls.1" "format(dvips):$D/nosuchfile"; do
    out=$(r -c "INSERT INTO docs VALUES (40, '$spec')" 2>&1)
    case "$spec" in
        *nosuchfile) has "ERROR" "$out" "$spec: refused" ;;
        *) has "XD00N" "$out" "$spec: the conversion error" ;;
    esac
    check "$spec: nothing left in the temporary directory" tmp_empty
done
same "0" "$(r -c "SELECT count(*) FROM docs WHERE id IN (30, 32, 35, 38, 40)")" "no row from a refused document"

# ---- a stored document handed back in another format -----------------------------------
out=$(r -c "SELECT dt_ConvertTx(d, 'ascii', '$WORK/') FROM docs WHERE id = 1" 2>&1)
back=$(printf '%s' "$out" | sed -n 's/^format(ascii)://p')
if [ -n "$back" ] && [ -f "$back" ] && grep -q alphabetically "$back"; then
    pass "dt_ConvertTx hands the PostScript document back as text ($back)"
else
    fail "dt_ConvertTx: $out"
fi

# ---- the table through pg_dump and a restore ----------------------------------------------
psql -X -q -c "DELETE FROM \"DocumentConversions\" WHERE source_format = 'wordstar'" \
     -c "UPDATE \"DocumentConversions\" SET function_name = 'ps2ascii' WHERE source_format = 'dvips'" \
     -c "INSERT INTO \"DocumentConversions\" VALUES ('ps', 'ascii', 'ps2ascii')" >/dev/null
table="SELECT string_agg(source_format || '>' || target_format || '=' || function_name, ' ' ORDER BY source_format, target_format, function_name) FROM \"DocumentConversions\""
before=$(psql -X -qtA -c "$table")
"$PGBIN/pg_dump" -Fc -f "$WORK/db.dump" "$PGDATABASE"
createdb restored
"$PGBIN/pg_restore" -d restored "$WORK/db.dump" 2>"$WORK/restore.err"
after=$(psql -X -qtA -d restored -c "$table")
same "$before" "$after" "the restored table has the same rows: an installed row deleted, one changed, one added"
same "1" "$(psql -X -qtA -d restored -c "SELECT count(*) FROM \"DocumentConversions\" WHERE source_format = 'ps'")" "the added row once, not twice"
same "39" "$(psql -X -qtA -d restored -c "SELECT count(*) FROM \"DocumentConversions\"")" "39 rows"
finish
