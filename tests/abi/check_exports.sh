#!/usr/bin/env bash
# Compares the dynamic symbols the library defines with the checked-in list
# of the system's exported names: nothing missing, nothing extra.
set -euo pipefail
lib=$1
expected=$2
actual=$(nm -D --defined-only "$lib" | awk '{print $3}' | sort)
if ! diff -u <(sort "$expected") <(printf '%s\n' "$actual"); then
  echo "exported symbols differ from $expected (- expected, + exported)" >&2
  exit 1
fi
echo "$(printf '%s\n' "$actual" | wc -l) exported symbols match"
