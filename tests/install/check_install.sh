#!/usr/bin/env bash
# Installs the built tree into a scratch prefix and builds a consumer
# against it twice: with find_package(nexcfg) and with pkg-config.
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$here" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name libnexcfg.so.1)")
LD_LIBRARY_PATH="$libdir" "$work/consumer/consumer"
pcdir=$(dirname "$(find "$work/prefix" -name nexcfg.pc)")
PKG_CONFIG_PATH="$pcdir" cc "$here/consumer.c" -o "$work/pc-consumer" \
  $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs nexcfg)
LD_LIBRARY_PATH="$libdir" "$work/pc-consumer"
test -f "$work/prefix/share/man/man1/nexcfg.1"
# The daemons go where the library starts them from: BINDIR under the prefix.
for daemon in zynet-netifup zynet-dhcpd zynet-natd zynet-bridge; do test -x "$work/prefix/bin/$daemon"; done
test -f "$work/prefix/lib/systemd/system/nexcfg.service"
echo "installed library, headers, CMake package, pkg-config file, man page, daemons and unit work"
