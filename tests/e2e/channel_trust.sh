# Another database user's SQL cannot make a victim's docsql read or write
# files the victim did not name: a view that raises the push notices, a
# SECURITY DEFINER trigger that pulls a private file.  Files the statement
# names, directories its literals name, --allow-dir and --trust-server are
# served.
source "$(dirname "$0")/channel_common.bash"
setup_server
VHOME=$WORK/home
mkdir -p "$VHOME/data" "$VHOME/out" "$WORK/elsewhere"
printf 'the victim shell settings\n' >"$VHOME/.bashrc"
printf 'private key material\n' >"$VHOME/secret"
chmod 600 "$VHOME/secret"
head -c 2000 /usr/share/common-licenses/GPL-3 >"$VHOME/data/1.txt"
head -c 3000 /usr/share/common-licenses/GPL-2 >"$VHOME/data/2.txt"
bashrc_md5=$(md5of "$VHOME/.bashrc")
psql -X -q -c "CREATE ROLE mallory LOGIN" -c "CREATE ROLE victim LOGIN" \
     -c "GRANT CREATE ON SCHEMA public TO mallory, victim" >/dev/null
as() { local r=$1; shift; PGUSER=$r HOME=$VHOME "$DOCSQL" -X -qtA "$@" 2>&1; }

# A view whose every read raises the push notices for the victim's .bashrc.
data=$(printf 'rm -rf ~\n' | base64 -w0)
n=$(printf 'rm -rf ~\n' | wc -c)
as mallory -c "CREATE FUNCTION evil_push() RETURNS int LANGUAGE plpgsql AS \$\$
BEGIN
  RAISE INFO USING MESSAGE = '$VHOME/.bashrc', DETAIL = '$n', ERRCODE = 'XDC02';
  RAISE INFO USING MESSAGE = '$data', ERRCODE = 'XDC03';
  RAISE INFO USING MESSAGE = '$n', ERRCODE = 'XDC04';
  RETURN 1;
END \$\$" -c "CREATE VIEW news AS SELECT evil_push() AS headline" -c "GRANT SELECT ON news TO PUBLIC" >/dev/null
out=$(as victim -c "SELECT * FROM news")
same "$bashrc_md5" "$(md5of "$VHOME/.bashrc")" "a view's push notices do not replace the victim's .bashrc"
has "cannot write client file \"$VHOME/.bashrc\"" "$out" "docsql says it refused the file"
has "writes no file for it" "$out" "and why"
check "no stray file beside it" test -z "$(find "$VHOME" -maxdepth 1 -name '.bashrc.docsql-*')"

# A SECURITY DEFINER trigger on a table the victim inserts into pulls the
# victim's private file through a document literal of its own.
as mallory -c "CREATE TABLE loot (body doc)" -c "CREATE TABLE guestbook (msg text)" \
  -c "GRANT INSERT ON guestbook TO victim" \
  -c "CREATE FUNCTION steal() RETURNS trigger LANGUAGE plpgsql SECURITY DEFINER AS \$\$
BEGIN INSERT INTO loot VALUES (('format(ascii):$VHOME/secret')::doc); RETURN NEW; END \$\$" \
  -c "CREATE TRIGGER steal AFTER INSERT ON guestbook FOR EACH ROW EXECUTE FUNCTION steal()" >/dev/null
out=$(as victim -c "INSERT INTO guestbook VALUES ('hello')")
has "refused to send client file \"$VHOME/secret\"" "$out" "docsql refuses the trigger's pull"
has "42501" "$out" "the server reports the refusal with its own code"
same "0" "$(psql -X -qtA -c "SELECT count(*) FROM loot")" "nothing of the private file reached the server"

# What the user names is served: a file, a directory literal, a prefix.
as victim -c "CREATE TABLE mydocs (id int, body doc)" >/dev/null
out=$(as victim -c "INSERT INTO mydocs VALUES (1, 'format(ascii):$VHOME/data/1.txt')")
same "" "$out" "a file named in the statement is sent"
out=$(as victim -c "INSERT INTO mydocs SELECT i, ('format(ascii):$VHOME/data/' || i || '.txt')::doc FROM generate_series(2, 2) i")
same "1|2" "$(psql -X -qtA -c "SELECT string_agg(id::text, '|' ORDER BY id) FROM mydocs")" "a file under a directory the text names is sent"
out=$(as victim -c "SELECT GetDoc(body, '$VHOME/out/') FROM mydocs ORDER BY id")
same "$(md5of "$VHOME/data/1.txt")" "$(md5of "$VHOME/out/1.txt" 2>&1)" "pushes into a directory the text names are written"
# ... but nothing outside it, by .. or by a symbolic link.
ln -s "$WORK/elsewhere" "$VHOME/out/link"
out=$(as victim -c "SELECT GetDoc(body, '$VHOME/out/' || 'link/') FROM mydocs WHERE id = 1")
has "cannot write client file" "$out" "a push never follows a symbolic link out of the named directory"
check "nothing written through the link" test -z "$(ls -A "$WORK/elsewhere")"
out=$(as victim -c "SELECT GetDoc(body, '$VHOME/out/' || '../') FROM mydocs WHERE id = 1")
has "cannot write client file" "$out" "nor goes up with .."
check "nothing written above it" test ! -e "$VHOME/1.txt"
mkdir "$VHOME/out2"
ln -s "$VHOME/.bashrc" "$VHOME/out2/1.txt"
out=$(as victim -c "SELECT GetDoc(body, '$VHOME/out2/') FROM mydocs WHERE id = 1")
same "$bashrc_md5" "$(md5of "$VHOME/.bashrc")" "a push never replaces a symbolic link, even in a named directory"

# A trigger of another role on a table the victim inserts into sends the
# push notices for the very file the victim's INSERT names to be read: a
# path named for reading is never written.
data2_md5=$(md5of "$VHOME/data/2.txt")
as mallory -c "CREATE TABLE inbox (id int, body doc)" -c "GRANT INSERT ON inbox TO victim" \
  -c "CREATE FUNCTION overwrite() RETURNS trigger LANGUAGE plpgsql AS \$\$
BEGIN
  RAISE INFO USING MESSAGE = '$VHOME/data/2.txt', DETAIL = '$n', ERRCODE = 'XDC02';
  RAISE INFO USING MESSAGE = '$data', ERRCODE = 'XDC03';
  RAISE INFO USING MESSAGE = '$n', ERRCODE = 'XDC04';
  RETURN NEW;
END \$\$" -c "CREATE TRIGGER overwrite BEFORE INSERT ON inbox FOR EACH ROW EXECUTE FUNCTION overwrite()" >/dev/null
out=$(as victim -c "INSERT INTO inbox VALUES (1, 'format(ascii):$VHOME/data/2.txt')")
same "$data2_md5" "$(md5of "$VHOME/data/2.txt")" "a trigger's push to the file the INSERT reads does not replace it"
has "cannot write client file \"$VHOME/data/2.txt\"" "$out" "docsql reports the refused write"
has "no function that writes client files" "$out" "and why"
out=$(as victim -c "INSERT INTO inbox SELECT i, ('format(ascii):$VHOME/data/' || i || '.txt')::doc FROM generate_series(1, 2) i")
same "$data2_md5" "$(md5of "$VHOME/data/2.txt")" "nor a file under a directory the INSERT reads"
has "cannot write client file" "$out" "that write is reported too"

# A prefix serves no hidden file or directory below it (~/.ssh, ~/.bashrc):
# those are read only when the statement names them whole.
out=$(as victim -c "INSERT INTO mydocs SELECT 9, ('format(ascii):$VHOME/' || '.bashrc')::doc")
has "refused to send client file \"$VHOME/.bashrc\"" "$out" "a prefix does not give away a hidden file under it"
same "0" "$(psql -X -qtA -c "SELECT count(*) FROM mydocs WHERE id = 9")" "nothing of it reached the server"

# The options widen it on purpose.
out=$(PGUSER=victim HOME=$VHOME "$DOCSQL" -X -qtA --allow-dir "$VHOME/data" -c "INSERT INTO mydocs SELECT 3, ('format(ascii):' || '$VHOME' || '/data/2.txt')::doc" 2>&1)
same "3" "$(psql -X -qtA -c "SELECT count(*) FROM mydocs")" "--allow-dir serves files under that directory"
out=$(PGUSER=victim HOME=$VHOME "$DOCSQL" -X -qtA --trust-server -c "SELECT * FROM news" 2>&1)
same "rm -rf ~" "$(cat "$VHOME/.bashrc")" "--trust-server serves what the server names (here: the view's push)"
has "--allow-dir" "$("$DOCSQL" --help)" "--help lists --allow-dir"
has "--trust-server" "$("$DOCSQL" --help)" "--help lists --trust-server"
check "nothing left in the temporary directory" tmp_empty
finish
