#!/bin/sh
# zymtra-ping.sh - stand-in for the hypervisor's ping program.
#
# Each run appends its command line (the program as called and its
# arguments, joined by single blanks) as one line to /run/zymtra-ping/calls
# and exits with a code the test chose: /run/zymtra-ping/exit-codes holds
# blank-separated codes, the n-th run (0 based, counted by the lines already
# in "calls") uses the n-th one and the last one repeats. Without that file
# every run exits with 1 (no reply).
dir=/run/zymtra-ping
run=0
[ -f "$dir/calls" ] && run=$(wc -l <"$dir/calls")
printf '%s\n' "$0 $*" >>"$dir/calls" || exit 99
codes=
[ -f "$dir/exit-codes" ] && read -r codes <"$dir/exit-codes"
# shellcheck disable=SC2086 # the codes are separate words
set -- $codes
[ $# -gt 0 ] || exit 1
[ "$run" -lt $# ] || run=$(($# - 1))
shift "$run"
exit "$1"
