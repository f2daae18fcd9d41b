#!/usr/bin/env bash
# Builds the Debian packages as on a fresh machine (dpkg-buildpackage -us
# -uc -b on a copy of the tree that holds no build), has lintian check
# them, unpacks them into a scratch root, runs the installed nexcfg there,
# and has systemd-analyze verify the installed unit in that root.
set -euo pipefail
src=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "$*" >&2
  exit 1
}

mkdir "$work/nexcfg"
git -C "$src" ls-files -z -co --exclude-standard |
  tar -C "$src" --null -T - --ignore-failed-read -cf - 2>/dev/null | tar -C "$work/nexcfg" -xf -
if ! (cd "$work/nexcfg" && DEB_BUILD_OPTIONS="parallel=$(nproc)" dpkg-buildpackage -us -uc -b) \
  >"$work/build.log" 2>&1; then
  tail -n 40 "$work/build.log" >&2
  fail "dpkg-buildpackage failed"
fi
lintian --fail-on error "$work"/nexcfg_*.changes >"$work/lintian.log" 2>&1 || lintian=failed
grep -v "running with root privileges" "$work/lintian.log" || true
[ -z "${lintian:-}" ] || fail "lintian found errors"

# Each package holds its part and depends on what it uses.
version=$(head -n1 "$src/VERSION")
deb() { echo "$work/$1_${version}_$(dpkg --print-architecture).deb"; }
holds() { # package, path pattern
  local contents
  contents=$(dpkg-deb -c "$(deb "$1")")
  grep -q -- "$2" <<<"$contents" || fail "$1 lacks $2"
}
relates() { # package, field, relation
  local field
  field=$(dpkg-deb -f "$(deb "$1")" "$2")
  grep -q -- "$3" <<<"${field//,/$'\n'}" || fail "$1 $2 lacks $3"
}
holds libnexcfg1 '/libnexcfg\.so\.1 -> '
holds libnexcfg-dev '/usr/include/nexcfg/nexcfg\.h$'
holds libnexcfg-dev '/pkgconfig/nexcfg\.pc$'
holds libnexcfg-dev '/cmake/nexcfg/nexcfgConfig\.cmake$'
holds nexcfg '/usr/bin/nexcfg$'
holds nexcfg '/man1/nexcfg\.1\.gz$'
holds nexcfg '/bash-completion/completions/nexcfg$'
holds nexcfg-daemons '/lib/systemd/system/nexcfg\.service$'
for daemon in zynet-netifup zynet-dhcpd zynet-natd zynet-bridge; do
  holds nexcfg-daemons "/usr/bin/$daemon\$"
  holds nexcfg-daemons "/man8/$daemon\.8\.gz -> "
done
relates libnexcfg-dev Depends "libnexcfg1 (= $version)"
relates nexcfg Depends 'libnexcfg1 '
relates nexcfg Recommends 'bash-completion'
relates nexcfg-daemons Depends 'isc-dhcp-server'
relates nexcfg-daemons Depends 'libnftables1 '
relates nexcfg-daemons Depends "nexcfg (= $version)"

# The installed tool, with the installed library.
root=$work/root
for package in libnexcfg1 libnexcfg-dev nexcfg nexcfg-daemons; do dpkg-deb -x "$(deb $package)" "$root"; done
export LD_LIBRARY_PATH=$root/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
ldd "$root/usr/bin/nexcfg" | grep -q "libnexcfg\.so\.1 => $root/" || fail "nexcfg does not use the unpacked library"
said=$("$root/usr/bin/nexcfg" --version) || fail "the installed nexcfg --version failed"
echo "$said"
grep -qx "tool: *$version" <<<"$said" || fail "the installed nexcfg is not version $version"

# The unit, among the host's own units, has nothing to report.
mkdir -p "$root/usr/lib/systemd/system"
cp -a /lib/systemd/system/. "$root/usr/lib/systemd/system/"
rm -f "$root/usr/lib/systemd/system/nexcfg.service"
report=$(MANPATH=$root/usr/share/man systemd-analyze verify --root="$root" nexcfg.service 2>&1) || true
[ -z "$report" ] || fail "systemd-analyze verify: $report"
echo "the packages build, pass lintian, install, and nexcfg $version runs from them"
