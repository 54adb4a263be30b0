# SPDX-License-Identifier: MIT
#
# Sourced by what runs programs under Wine. WINEPREFIX names Wine's folder.

wine=/usr/lib/wine/wine64

# under_wine PROGRAM ARGUMENT...: Wine itself fails about one start in a hundred, in words of its own.
# Then, and only then, the program is started again, with its input from the beginning.
under_wine() {
  local status errors
  errors=$(mktemp)
  for _ in 1 2 3; do
    status=0
    "$wine" "$@" </dev/stdin 2>"$errors" || status=$?
    grep -q '^wine client error\|^Inconsistency detected by ld.so' "$errors" || break
  done
  cat "$errors" >&2
  rm -f "$errors"
  return "$status"
}
