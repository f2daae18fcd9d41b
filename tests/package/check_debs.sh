#!/usr/bin/env bash
# Builds the Debian packages as on a fresh machine (dpkg-buildpackage -us
# -uc -b on a copy of the tree that holds no build) and has lintian check
# them. Then installs them with dpkg into this machine as seen through
# throwaway overlays (a private mount namespace whose /usr, /etc and /var
# take every write in memory), runs what they installed, and purges them.
# The machine's own files never change. Needs root; without it, exits 77.
set -euo pipefail
src=$1
[ "$(id -u)" -eq 0 ] || { echo "SKIPPED: installing the packages needs root"; exit 77; }
fail() {
  echo "$*" >&2
  exit 1
}

if [ "${NXC_PACKAGE_OVERLAY:-}" != 1 ]; then
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  mkdir "$work/nexcfg"
  if git -C "$src" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git -C "$src" ls-files -z -co --exclude-standard |
      tar -C "$src" --null -T - --ignore-failed-read -cf - 2>/dev/null | tar -C "$work/nexcfg" -xf -
  else
    tar -C "$src" --exclude='./build*' --exclude='./obj-*' -cf - . | tar -C "$work/nexcfg" -xf -
  fi
  if ! (cd "$work/nexcfg" && DEB_BUILD_OPTIONS="parallel=$(nproc)" dpkg-buildpackage -us -uc -b) \
    >"$work/build.log" 2>&1; then
    tail -n 40 "$work/build.log" >&2
    fail "dpkg-buildpackage failed"
  fi
  lintian --fail-on error "$work"/nexcfg_*.changes >"$work/lintian.log" 2>&1 || lintian=failed
  grep -v "running with root privileges" "$work/lintian.log" || true
  [ -z "${lintian:-}" ] || fail "lintian found errors"
  # The rest runs again in the overlays.
  NXC_PACKAGE_OVERLAY=1 NXC_PACKAGE_DIR=$work unshare --mount --fork "$0" "$src"
  exit
fi

# In a private mount namespace: every write to /usr, /etc and /var goes to
# a tmpfs that disappears with it; nothing runs before the overlays hold.
work=$NXC_PACKAGE_DIR
mount --make-rprivate /
mount -t tmpfs nxc-package "$work/nexcfg"
for dir in usr etc var; do
  mkdir "$work/nexcfg/$dir" "$work/nexcfg/$dir-work"
  mount -t overlay "nxc-$dir" -o "lowerdir=/$dir,upperdir=$work/nexcfg/$dir,workdir=$work/nexcfg/$dir-work" "/$dir"
done
mount -t tmpfs nxc-run /run

version=$(head -n1 "$src/VERSION")
arch=$(dpkg --print-architecture)
packages=(libnexcfg1 libnexcfg-dev nexcfg nexcfg-daemons)
relates() { # package, field, relation its control file must have
  local field
  field=$(dpkg-deb -f "$work/$1_${version}_$arch.deb" "$2")
  grep -q -- "$3" <<<"${field//,/$'\n'}" || fail "$1: $2 lacks $3"
}
relates nexcfg Recommends 'bash-completion'
relates nexcfg-daemons Depends 'isc-dhcp-server'
relates nexcfg-daemons Depends "nexcfg (= $version)"
(cd "$work" && dpkg -i "${packages[@]/%/_${version}_$arch.deb}") >"$work/install.log" 2>&1 ||
  { cat "$work/install.log" >&2; fail "dpkg -i failed"; }

# Each file where its package put it.
owns() { # package, path
  [ "$(dpkg -S "$2" 2>/dev/null | cut -d: -f1)" = "$1" ] || fail "$2 is not from $1"
}
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
owns libnexcfg1 "/usr/lib/$multiarch/libnexcfg.so.1"
owns libnexcfg-dev /usr/include/nexcfg/nexcfg.h
owns libnexcfg-dev "/usr/lib/$multiarch/pkgconfig/nexcfg.pc"
owns libnexcfg-dev "/usr/lib/$multiarch/cmake/nexcfg/nexcfgConfig.cmake"
owns nexcfg /usr/bin/nexcfg
owns nexcfg /usr/share/man/man1/nexcfg.1.gz
owns nexcfg /usr/share/bash-completion/completions/nexcfg
owns nexcfg-daemons /lib/systemd/system/nexcfg.service
for daemon in zynet-netifup zynet-dhcpd zynet-natd zynet-bridge; do
  owns nexcfg-daemons "/usr/bin/$daemon"
  [ "$(man -w "$daemon")" = /usr/share/man/man8/zynet-daemons.8.gz ] || fail "man $daemon finds no page"
done

said=$(nexcfg --version) || fail "the installed nexcfg --version failed"
echo "$said"
grep -qx "tool: *$version" <<<"$said" || fail "the installed nexcfg is not version $version"
report=$(systemd-analyze verify nexcfg.service 2>&1) || true
[ -z "$report" ] || fail "systemd-analyze verify nexcfg.service: $report"
# shellcheck disable=SC2046 # pkg-config's words are separate arguments
cc "$src/tests/install/consumer.c" $(pkg-config --cflags --libs nexcfg) -o "$work/consumer" &&
  "$work/consumer" >/dev/null || fail "a program built with the installed libnexcfg-dev does not run"

dpkg --purge "${packages[@]}" >"$work/purge.log" 2>&1 || { cat "$work/purge.log" >&2; fail "dpkg --purge failed"; }
[ ! -e /usr/bin/nexcfg ] && [ ! -e /lib/systemd/system/nexcfg.service ] || fail "the purge left files behind"
echo "the packages build, pass lintian, install, run and purge: version $version"
