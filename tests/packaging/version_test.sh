#!/usr/bin/env bash
# The version is what this release is to have, and whatever names it agrees. Usage: version_test.sh SOURCE-DIRECTORY
set -euo pipefail
cd "$1"

# Control software reads it in the service's first log line, so it is written down once more, apart from project():
# a change there is meant only when it is made here, too.
expected=1.8.2

first() { sed -n "$1" "$2" | head -n 1; }
status=0
agrees() {
    [ "$2" = "$3" ] || { echo "$1: expected $2, found ${3:-none}"; status=1; }
}
agrees "CMakeLists.txt, project()" "$expected" "$(first 's/^project(cuewright VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)"
agrees debian/changelog "$expected" "$(first 's/^cuewright (\([^)]*\)).*/\1/p' debian/changelog)"
agrees CHANGELOG.md "$expected" "$(first 's/^## \([0-9][0-9.]*\).*/\1/p' CHANGELOG.md)"

# The day of the release: the packages' files carry the one of debian/changelog.
day=$(date -u -d "$(first 's/^ -- .*>  //p' debian/changelog)" +%Y-%m-%d)
agrees "CHANGELOG.md, date of the newest entry" "$day" "$(first 's/^## [0-9][0-9.]*, \(.*\)/\1/p' CHANGELOG.md)"
exit $status
