# docsql's interactive mode in a pseudo-terminal (tests/e2e/docsql_interactive.py),
# and the psql-like options of its scripted mode.
source "$(dirname "$0")/channel_common.bash"
setup_server
python3 "$(dirname "$0")/docsql_interactive.py" "$DOCSQL" "$WORK"
rc=$?
same 0 "$rc" "interactive session in a pseudo-terminal"

# Options psql users reach for.
same "docsql (document) 1.2.1" "$("$DOCSQL" --version)" "--version prints docsql's own version"
out=$("$DOCSQL" -X --csv -c "SELECT 1 AS a, 'x,y' AS b")
same 'a,b
1,"x,y"' "$out" "--csv"
out=$("$DOCSQL" -X -x -c "SELECT 1 AS a, 2 AS b")
has "RECORD 1" "$out" "-x expanded display"
out=$("$DOCSQL" -X -qtA -v n=5 -c "SELECT :n + 1")
same 6 "$out" "-v NAME=VALUE"
"$DOCSQL" -X -q -o "$WORK/out.txt" -c "SELECT 'to the file' AS w"
has "to the file" "$(cat "$WORK/out.txt")" "-o FILE"
q -c "CREATE TABLE one (x int)"
out=$("$DOCSQL" -X -q -1 -c "INSERT INTO one VALUES (1)" -c "INSERT INTO one VALUES (1/0)" 2>&1)
same 0 "$(q -c "SELECT count(*) FROM one")" "-1: a failing script leaves nothing"
"$DOCSQL" -X -q -1 -c "INSERT INTO one VALUES (1)" -c "INSERT INTO one VALUES (2)"
same 2 "$(q -c "SELECT count(*) FROM one")" "-1: a whole script commits"
out=$(printf 'SELECT 1 AS one;\n\\dt\n' | "$DOCSQL" -X 2>&1)
has "one" "$out" "backslash commands in a script (standard input)"
has "List of relations" "$out" "\\dt from a script"
for opt in -1 -v -x --csv -o -X --allow-dir --trust-server; do
    has "$opt" "$("$DOCSQL" --help)" "--help lists $opt"
done
# The man page keeps up with --help.
man=$(sed 's/\\//g' "$(dirname "$0")/../../docs/docsql.1")
for opt in $("$DOCSQL" --help | grep -oE -- '--[a-z][a-z-]+' | sort -u); do
    has "$opt" "$man" "the man page describes $opt"
done
finish
