#!/usr/bin/env bash
# Makes a private copy of the installed PostgreSQL 15 server tree under DIR
# (binaries, libraries, shared files; headers are linked, not copied).
# The server finds its shared files and libraries relative to its own
# binary, so a server started from DIR loads the extension installed there
# and nothing of the machine-wide installation changes.
#   tools/pgroot.sh DIR
set -euo pipefail
root=${1:?usage: tools/pgroot.sh DIR}
[ -x "$root/usr/lib/postgresql/15/bin/postgres" ] && exit 0
mkdir -p "$root/usr/lib/postgresql" "$root/usr/share/postgresql" "$root/usr/include" "$root/usr/local/bin"
cp -a /usr/lib/postgresql/15 "$root/usr/lib/postgresql/"
cp -a /usr/share/postgresql/15 "$root/usr/share/postgresql/"
ln -sfn /usr/include/postgresql "$root/usr/include/postgresql"
chmod 755 "$root" "$root/usr"
