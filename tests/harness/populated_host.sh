#!/usr/bin/env bash
# populated_host.sh SKIP_PROBE TEST_PROGRAM...
#
# The test sandbox on a host whose fixed paths are already in use. In an
# outer private mount, network and pid namespace standing for such a host,
# it puts a networking database, a product config file and vnet folders in
# /etc/zymtra, pid files of running daemons in /var/run, a log in
# /var/log/nexcfg, a /dev/zynet1 node and host interfaces named zynet1 and
# zynet8. Then it runs each test program in full and checks that every
# listed test ran and passed (none skipped), that a test made to skip fails
# its program, and that the host's files, interfaces and daemons are exactly
# as they were.
set -euo pipefail
if [ "$(id -u)" -ne 0 ]; then
  echo "SKIPPED: the sandbox needs root"
  exit 77
fi
if [ "${NXC_HARNESS_HOST:-}" != 1 ]; then
  exec unshare --mount --net --pid --fork --mount-proc env NXC_HARNESS_HOST=1 "$0" "$@"
fi
probe=$1
shift

# ---- the host: its own files at every fixed path, all in memory ----------
mount --make-rprivate /
mount -t tmpfs harness-run /run
mkdir -p /run/harness-etc/upper /run/harness-etc/work /run/harness-dev
mount -t overlay harness-etc \
  -o lowerdir=/etc,upperdir=/run/harness-etc/upper,workdir=/run/harness-etc/work /etc
mount --bind /dev /run/harness-dev
mount -t tmpfs -o mode=0755 harness-dev /dev
for node in null zero full random urandom tty; do
  touch "/dev/$node"
  mount --bind "/run/harness-dev/$node" "/dev/$node"
done
mkdir /dev/net && touch /dev/net/tun && mount --bind /run/harness-dev/net/tun /dev/net/tun
umount -l /run/harness-dev
ln -s /proc/self/fd /dev/fd
mount -t tmpfs harness-log /var/log
[ "$(realpath /var/run)" = /run ] || mount -t tmpfs harness-varrun /var/run

rm -rf /etc/zymtra
mkdir -p /etc/zymtra/zynet1/dhcpd /etc/zymtra/zynet8/nat
printf 'VERSION=1,0\nanswer VNET_1_HOSTONLY_SUBNET 172.31.1.0\nanswer VNET_1_DHCP yes\nanswer VNET_8_NAT yes\n' \
  >/etc/zymtra/networking
echo 'bindir = "/usr/lib/host-bin"' >/etc/zymtra/config
echo 'subnet 172.31.1.0 netmask 255.255.255.0 {}' >/etc/zymtra/zynet1/dhcpd/dhcpd.conf
printf '[host]\nip = 172.31.8.2\n' >/etc/zymtra/zynet8/nat/nat.conf
echo 'Nov 23 00:00:00 the host'"'"'s own log line' >/var/log/nexcfg
sleep 600 &
daemon=$!
for f in zynet-natd-8 zynet-dhcpd-zynet1 zynet-netifup-zynet1 zynet-bridge-0; do
  echo "$daemon" >"/var/run/$f.pid"
done
mknod /dev/zynet1 c 241 1
# No IPv6 link-local addresses: their address detection would change the
# interfaces while the tests run.
echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6
ip link add zynet1 type veth peer name zynet1-peer
ip link add zynet8 type bridge
ip addr add 172.31.8.1/24 dev zynet8
ip link set zynet8 up

snapshot() {
  (cd / && find etc/zymtra run var/log dev -xdev -printf '%p %y %m %s %T@ %l\n' | grep -v '^run/harness-' | sort)
  (cd / && find etc/zymtra var/run/ var/log -type f -exec sha256sum {} + | sort)
  ip -o link show
  ip -o addr show
}
before=$(snapshot)

# ---- every listed test runs and passes ------------------------------------
failed=0
for program in "$@"; do
  name=$(basename "$program")
  listed=$("$program" --gtest_list_tests | grep -c '^  ')
  rc=0
  out=$("$program" 2>&1) || rc=$?
  passed=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\{0,1\}\..*/\1/p' <<<"$out")
  if [ "$rc" -ne 0 ] || [ "${passed:-0}" -ne "$listed" ] || grep -q '^\[  SKIPPED \]' <<<"$out"; then
    echo "FAIL: $name: exit $rc, $listed tests listed, ${passed:-0} passed"
    tail -n 40 <<<"$out"
    failed=1
  else
    echo "ok: $name: all $listed tests ran and passed"
  fi
done

# ---- a test made to skip fails its program --------------------------------
rc=0
out=$("$probe" 2>&1) || rc=$?
# A runner that counts "[  SKIPPED ]" lines as skips must see a failure.
if [ "$rc" -eq 0 ] || ! grep -q 'FAILED: HarnessProbe.MadeToSkip skipped: made to skip' <<<"$out" ||
  grep -q '^\[  SKIPPED \]' <<<"$out"; then
  echo "FAIL: a skipping test passed its program (exit $rc)"
  echo "$out"
  failed=1
else
  echo "ok: a skipping test fails its program (exit $rc), naming the test and its reason"
fi

# ---- the host is as it was --------------------------------------------------
after=$(snapshot)
if [ "$before" != "$after" ]; then
  echo "FAIL: the host's files or interfaces changed:"
  diff <(echo "$before") <(echo "$after") || true
  failed=1
else
  echo "ok: the host's files, device nodes and interfaces are unchanged"
fi
if ! kill -0 "$daemon" 2>/dev/null; then
  echo "FAIL: the host's daemon (pid $daemon) is gone"
  failed=1
fi
kill "$daemon" 2>/dev/null || true
exit "$failed"
