#!/usr/bin/env bash
# Looks that every test that docs/faults.md names is there, and that the expression in docs/testing.md that is to run
# them all does. Usage: faults_names_test.sh TOP
set -euo pipefail
cd "$1"
missing=0
found=0
suite=
all=$(sed -n "s/^FAULTS='\(.*\)'$/\1/p" docs/testing.md)
[ -n "$all" ] || { echo "docs/testing.md has no expression for the tests of docs/faults.md"; exit 1; }
# `Suite`, `Suite.Case`, and `.Case` of the suite named last.
for name in $(sed -n '/^## Shown by/,$p' docs/faults.md | grep -oE '`([A-Z][A-Za-z0-9]+Test)?(\.[A-Z][A-Za-z0-9]+)?`' | tr -d '`'); do
    [ "${name%%.*}" = "" ] || suite=${name%%.*}
    case=$(cut -s -d. -f2 <<<"$name")
    source=$(grep -rlE "^(TEST|TEST_F|TEST_P)\($suite, *${case:-[A-Z]}" tests) || {
        echo "docs/faults.md names $suite.${case:-}, which is not there"
        missing=1
        continue
    }
    basename -s .cpp "$source" | grep -qE "$all" || {
        echo "docs/testing.md's expression for docs/faults.md leaves out $source"
        missing=1
    }
    found=$((found + 1))
done
[ "$found" -gt 20 ] || { echo "docs/faults.md names too few tests: $found"; missing=1; }
exit $missing
