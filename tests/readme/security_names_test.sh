#!/usr/bin/env bash
# Looks that every test and fuzz target that docs/security.md names is there. Usage: security_names_test.sh TOP
set -euo pipefail
cd "$1"
missing=0
names() { grep -oE "\`$1\`" docs/security.md | tr -d '`' | sort -u; }
absent() { echo "docs/security.md names $1 $2, which is not there"; missing=1; }

for test in $(names '[a-z_0-9]+_test'); do
    [ -n "$(find tests -name "$test.cpp")" ] || absent "the test" "$test"
done
for case in $(names '[A-Z][A-Za-z0-9]*[A-Z][a-z][A-Za-z0-9]*'); do
    grep -rqE "^TEST(_F|_P)?\([A-Za-z]+, *$case\)" tests || absent "the case" "$case"
done
# As in "the fuzz targets `a`, `b` and `c`"; tests may follow in the same list.
targets=$(tr '\n' ' ' < docs/security.md | grep -oE 'fuzz targets? (`[a-z_]+`(, | and )?)+' | grep -oE '`[a-z_]+`' | tr -d '`' | grep -v '_test$')
for target in $targets; do
    [ -e "fuzz/$target.cpp" ] || absent "the fuzz target" "$target"
done
for source in $(sed -n '/^set(fuzz_target_names/,/)$/p' fuzz/CMakeLists.txt | grep -oE '^  [a-z_]+'); do
    grep -q "\`$source\`" docs/security.md || { echo "docs/security.md does not name the fuzz target $source"; missing=1; }
done
exit $missing
