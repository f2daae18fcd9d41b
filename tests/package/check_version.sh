#!/usr/bin/env bash
# Every place that states the project's version says what VERSION says:
# the tool, the library's SONAME and interface version, the pkg-config
# file, the Debian changelog, the library package's name and CHANGELOG.md.
set -euo pipefail
src=$1
tool=$2
lib=$3
pc=$4
version=$(head -n1 "$src/VERSION")
major=${version%%.*}
minor=${version#*.}
minor=${minor%%.*}
failed=0
expect() { # what, what it says, what it should say
  [ "$2" = "$3" ] && return
  echo "$1 says \"$2\", VERSION says \"$3\"" >&2
  failed=1
}
expect "debian/changelog" "$(dpkg-parsechangelog -l "$src/debian/changelog" -S Version)" "$version"
expect "CHANGELOG.md" "$(sed -n 's/^## \([0-9][^ ]*\).*/\1/p' "$src/CHANGELOG.md" | head -n1)" "$version"
expect "debian/control (the library package)" \
  "$(sed -n 's/^Package: \(libnexcfg[0-9]*\)$/\1/p' "$src/debian/control")" "libnexcfg$major"
expect "the SONAME" "$(readelf -d "$lib" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')" "libnexcfg.so.$major"
json=$("$tool" --json version)
expect "nexcfg --version" "$(sed -n 's/.*"tool": "\(.*\)".*/\1/p' <<<"$json")" "$version"
expect "NXC_Version" "$(sed -n 's/.*"interface": "\(.*\)".*/\1/p' <<<"$json")" "$major.$minor"
expect "the pkg-config file" "$(sed -n 's/^Version: //p' "$pc")" "$version"
[ $failed -eq 0 ] || exit 1
echo "every place says $version"
