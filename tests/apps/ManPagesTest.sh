#!/bin/sh
# The manual pages: installed by cmake --install, read by groff without a
# warning, and tarnvel-cli's page names exactly the options that its --help
# names.
# Usage: ManPagesTest.sh BUILD_DIR TARNVEL_CLI
set -eu
build=$1 cli=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --component man --prefix "$prefix" >/dev/null
for page in tarnvel tarnvel-cli tarnvel-send; do
  file=$(find "$prefix" -path "*/man1/$page.1")
  [ -n "$file" ] || { echo "not installed: $page.1"; exit 1; }
  warnings=$(groff -man -ww -z "$file" 2>&1)
  [ -z "$warnings" ] || { echo "$page.1: $warnings"; exit 1; }
done
options() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }
"$cli" --help | options > "$prefix/help"
MANWIDTH=200 man -l "$prefix"/*/man/man1/tarnvel-cli.1 2>/dev/null | options > "$prefix/man"
diff "$prefix/help" "$prefix/man" || { echo "--help and the manual page name different options"; exit 1; }
[ "$(wc -l < "$prefix/help")" -ge 12 ] || { echo "too few options found"; exit 1; }
echo "manual pages: 3 installed, $(wc -l < "$prefix/help") options alike"
