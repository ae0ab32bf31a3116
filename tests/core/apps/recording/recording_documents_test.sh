#!/usr/bin/env bash
# Looks that manual page and completion know every option of the commands that the completion offers.
# Usage: recording_documents_test.sh TOP PROGRAM
set -euo pipefail
top=$1 program=$2 wrong=0
. "$top/packaging/completion/cuewright-recording"

# complete WORD...: what is offered for the last word
complete_words() {
    COMP_WORDS=(cuewright-recording "$@") COMP_CWORD=$#
    _cuewright_recording
    printf '%s\n' "${COMPREPLY[@]}"
}

commands=$(complete_words '' | grep -v '^-')
[ "$(wc -w <<<"$commands")" -ge 6 ] || { echo "too few commands are offered: $commands"; wrong=1; }
for command in $commands; do
    offered=$(complete_words "$command" --)
    grep -q "^\.Ss $command$" "$top/docs/man/cuewright-recording.1" || { echo "the manual page lacks $command"; wrong=1; }
    grep -q "\`$command " "$top/docs/recordings.md" || { echo "docs/recordings.md lacks $command"; wrong=1; }
    for option in $("$program" "$command" --help | grep -oE '^  (-h,)?--[a-z-]+' | grep -oE '\-\-[a-z-]+'); do
        grep -qx -- "$option" <<<"$offered" || { echo "completion lacks $command $option"; wrong=1; }
        [ "$option" = --help ] ||
            sed -n "/^\.Ss $command$/,/^\.S[sh] /p" "$top/docs/man/cuewright-recording.1" | grep -qE "^\.It .*Fl -${option#--}( |$)" ||
            { echo "the manual page lacks $command $option"; wrong=1; }
    done
    for option in $offered; do
        "$program" "$command" --help | grep -q -- "$option" || { echo "$command has no $option"; wrong=1; }
    done
done
[ "$(complete_words generate --pattern r)" = $'ramp\nrandom' ] || { echo "the patterns are not completed"; wrong=1; }
exit $wrong
