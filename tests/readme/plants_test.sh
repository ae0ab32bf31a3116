#!/usr/bin/env bash
# Looks that every planted fault of scripts/plant still changes one line of its file, or swaps two.
# Usage: plants_test.sh TOP
set -euo pipefail
top=$1 wrong=0 count=0
changed=$(mktemp)
trap 'rm -f "$changed"' EXIT
while IFS= read -r line; do
    case $line in '#'*) continue ;; *' @ '*) ;; *) continue ;; esac
    rest=${line#* @ } file=${rest%% @ *} rest=${rest#* @ } change=${rest%% @ *} words=${rest#* @ }
    count=$((count + 1))
    sed "$change" "$top/$file" >"$changed"
    difference=$(diff -U0 "$top/$file" "$changed" | grep -cE '^[-+]([^-+]|$)' || true)
    [ "$difference" = 2 ] || { echo "${line%% @ *}: changes $difference lines, not one for one: $words"; wrong=1; }
done < <(cat "$top/tests/core/mutations" "$top/tests/models/mutations")
[ $count -ge 100 ] || { echo "only $count faults are listed"; wrong=1; }
exit $wrong
