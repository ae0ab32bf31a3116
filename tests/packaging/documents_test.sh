#!/usr/bin/env bash
# Looks that manual page and completion know every option of a program and of its commands, and no other.
# Usage: documents_test.sh TOP PROGRAM
set -euo pipefail
top=$1 program=$2 name=$(basename "$2") wrong=0
page=$top/docs/man/$name.1
. "$top/packaging/completion/$name"

# complete_words WORD...: what is offered for the last word, one a line
complete_words() {
    COMP_WORDS=("$name" "$@") COMP_CWORD=$#
    "_${name//-/_}" "$name"
    printf '%s\n' "${COMPREPLY[@]}" | sort -u
}
# The options that a help text defines, and those that lines of the manual page name.
options_of_help() { grep -E '^  (-h,)?--' | sed -E 's/^  (-h,)?(--[a-z-]+).*/\2/' | sort -u; }
options_of_page() { grep -oE 'Fl -[a-z][a-z-]*' | sed 's/Fl -/--/' | sort -u; }
# What every program has stands once on each page, not with each command.
without_common() { grep -vxE -- '--(help|version)' || true; }
# differ TEXT ONE OTHER: complains of lines that are in one of both only
differ() {
    local difference
    difference=$(comm -3 <(echo "$2") <(echo "$3") | tr -d '\t')
    [ -z "$difference" ] || { echo "$name: $1: $(tr '\n' ' ' <<<"$difference")"; wrong=1; }
}

own=$("$program" --help | options_of_help)
[ "$(wc -l <<<"$own")" -ge 3 ] || { echo "$name --help names too few options: $own"; wrong=1; }
differ "help and completion differ" "$own" "$(complete_words --)"
differ "help and manual page differ" "$(without_common <<<"$own")" \
    "$(grep '^\.It Fl' "$page" | options_of_page | without_common)"

commands=$("$program" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' | sort -u)
[ -z "$commands" ] || differ "commands and completion differ" "$commands" "$(complete_words '')"
for command in $commands; do
    of_command=$("$program" "$command" --help | options_of_help)
    # The program's own may also stand behind a command.
    offered=$(complete_words "$command" --)
    differ "$command: help and completion differ" "$of_command" \
        "$(grep -vxF -- "$(grep -vxF -- "$of_command" <<<"$own")" <<<"$offered")"
    lines=$(grep "^\.It Ic $command\( \|$\)" "$page") || { echo "the manual page lacks $command"; wrong=1; }
    differ "$command: help and manual page differ" "$(without_common <<<"$of_command")" \
        "$(options_of_page <<<"$lines")"
done
exit $wrong
