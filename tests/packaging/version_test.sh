#!/usr/bin/env bash
# The version is written in project(); whatever names it again must agree. Usage: version_test.sh SOURCE-DIRECTORY
set -euo pipefail
cd "$1"

first() { sed -n "$1" "$2" | head -n 1; }
project=$(first 's/^project(cuewright VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$project" ] || { echo "CMakeLists.txt: no version in project()"; exit 1; }

status=0
agrees() {
    [ "$2" = "$project" ] || { echo "$1: expected version $project, as in project() in CMakeLists.txt, found ${2:-none}"; status=1; }
}
agrees debian/changelog "$(first 's/^cuewright (\([^)]*\)).*/\1/p' debian/changelog)"
agrees CHANGELOG.md "$(first 's/^## \([0-9][0-9.]*\).*/\1/p' CHANGELOG.md)"
exit $status
