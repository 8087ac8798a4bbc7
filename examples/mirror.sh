#!/bin/sh
# SPDX-License-Identifier: MIT
# Usage: examples/mirror.sh [BIN]
#
# Publishes 1,000 records of Dublin Core and a directory of documents as two catalogs, serves them, harvests and mirrors
# them, changes them, and mirrors them again. BIN is the directory of the programs (default: build/release/bin). Exits
# with 0 if each mirror equals its catalog.

set -eu
cd -- "$(dirname -- "$(readlink -f -- "$0")")/.."
case ${1-} in
  -h | --help)
    sed -n '/^# Usage/,/^$/s/^# \{0,1\}//p' "$0"
    exit
    ;;
esac
bin=$(readlink -f -- "${1:-build/release/bin}")
plugin=$(readlink -f -- "$bin/../lib/librdm.so")
here=$(mktemp -d)
server=''
end() {
  [ -z "$server" ] || kill "$server"
  rm -rf "$here"
}
trap end EXIT
trap 'exit 1' INT TERM

# Records as many repositories export them.
dublin_core() {
  echo '<?xml version="1.0" encoding="UTF-8"?>'
  echo '<records xmlns:dc="http://purl.org/dc/elements/1.1/">'
  seq "$1" | while read -r number; do
    cat <<END
<record>
  <dc:identifier>http://localhost/records/$number</dc:identifier>
  <dc:title>Record $number</dc:title>
  <dc:creator>Ada</dc:creator>
  <dc:creator>Grace</dc:creator>
  <dc:subject>Café &amp; more</dc:subject>
</record>
END
  done
  echo '</records>'
}

# One file for each page, some in a directory below.
documents() {
  mkdir -p "$here/documents/more"
  for number in 1 2 3 4 5; do
    printf '# Notes %s\n\nThe text of these notes.\n' "$number" >"$here/documents/notes-$number.md"
    printf '<title>Page %s</title><p>Its text.' "$number" >"$here/documents/more/page-$number.html"
  done
}

gather() {
  "$bin/rdmgather" --quiet --base-url http://localhost/documents/ --state "$here/gather.state" \
    --deletions "$here/vanished" "$here/documents"
}

publish() {
  "$bin/rdmctl" publish --quiet "$@"
}

# service writes the configuration of a service with two catalogs and starts the server on a free port.
service() {
  printf 'csid="%s"\ncatalog-database="%s"\n' records "$here/records.db" documents "$here/documents.db" >"$here/csid.conf"
  printf '%s="%s"\n' bindir "$bin" tmpdir "$here" csid-config "$here/csid.conf" csid-default records \
    logfile "$here/log" debug-loglevel 0 >"$here/rdm.conf"
  : >"$here/errors"
  "$bin/rdmd" --listen 127.0.0.1:0 --plugin "$plugin" --config "$here/rdm.conf" 2>"$here/errors" &
  server=$!
  until url=$(sed -n 's|.*listening on \(127[^ ,]*\).*|http://\1/rdm|p' "$here/errors" | grep .); do
    kill -0 "$server" 2>/dev/null || { cat "$here/errors" >&2; exit 1; }
    sleep 0.1
  done
}

# mirror CATALOG brings its mirror up to date, deletions included, and compares it with the catalog.
mirror() {
  "$bin/rdm" mirror --quiet --state "$here/state" --csid "$1" --full-every 0 "$url" "$here/mirror-of-$1.db" >"$here/gone"
  "$bin/rdmctl" diff --quiet "$here/$1.db" "$here/mirror-of-$1.db"
}

dublin_core 1000 >"$here/records.xml"
"$bin/soif" from --quiet dc-xml "$here/records.xml" -o "$here/records.soif"
publish "$here/records.db" "$here/records.soif"
documents
gather >"$here/documents.soif"
publish "$here/documents.db" "$here/documents.soif"

service
"$bin/rdm" harvest --quiet --csid records "$url" --output "$here/harvest.soif"
echo "harvested: $(grep -c '^@' "$here/harvest.soif")"
mirror records
mirror documents

# A feed of everything, in which some records are missing, and a directory from which a document has vanished.
dublin_core 950 | "$bin/soif" from --quiet dc-xml | publish --full-feed "$here/records.db" -
rm "$here/documents/notes-3.md"
printf '# Notes 6\n' >"$here/documents/notes-6.md"
gather >"$here/documents.soif"
publish "$here/documents.db" "$here/documents.soif"
"$bin/minidba" -q -d "$here/documents.db" delete - <"$here/vanished" >"$here/count"
"$bin/minidba" -q -d "$here/documents.db" -i "$here/documents.db.idx" index >"$here/count"
mirror records
mirror documents
echo 'each mirror equals its catalog'
