#!/usr/bin/env bash
# Plants single-line faults at random, one at a time, and prints those that no test notices:
# scripts/plant-faults.sh NUMBER [SEED] [FOLDER...]
# The folders hold the project's sources; the default is host and system. The faults go into a copy
# of the tree in build/, which keeps its build for the next run. Some of the printed faults change
# nothing that can be observed; judge that by eye.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
[ $# -ge 1 ] || { sed -n '2,6s/^# //p' "${BASH_SOURCE[0]}" >&2; exit 2; }
number=$1
seed=${2:-$RANDOM}
folders=("${@:3}")
[ ${#folders[@]} -gt 0 ] || folders=(host system)
# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES $TEST_PACKAGES

COPY=$ROOT/build/faults
BUILD=$COPY/build/default
LOG=$ROOT/build/faults.log

# Prints the tests to run first, those for the source's folder. All others run after them.
first_tests() {
    case $1 in
        system/*) echo 'cases_|Utils|Cota|Entry' ;;
        host/platform/*) echo 'Platform|cases_' ;;
        host/images/*) echo 'Archive|Erofs|ImageReader|Images' ;;
        host/sandbox/*) echo 'Sandbox|Images|Platform' ;;
        host/extprop/lint/*) echo 'Lint|Sarif|samples_test' ;;
        host/extprop/explain/*) echo 'ExplainTest|samples_test|explain_trial' ;;
        host/extprop/matrix/*) echo 'MatrixTest|samples_test' ;;
        host/extprop/commands/*) echo 'ExtpropTest|MatrixTest|samples_test' ;;
        host/extprop/output/*) echo 'samples_test|PageTest|Sarif|ExtpropTest|MatrixTest' ;;
        *) echo 'samples_test|ExtpropTest|ExplainTest' ;;
    esac
}

# Prints the possible faults of a source: the number of the line, and the changed line.
faults_of() {
    awk '
        function fault(text) { if (text != $0) print NR "\t" text }
        # Makes one fault of each match of the pattern.
        function replace(pattern, change, at, start, found) {
            start = 1
            while (match(substr($0, start), pattern)) {
                at = start + RSTART - 1
                found = substr($0, at, RLENGTH)
                if (substr($0, 1, at - 1) !~ /^[^"]*("[^"]*"[^"]*)*"[^"]*$/)  # not in a string
                    fault(substr($0, 1, at - 1) changed(found, change) substr($0, at + length(found)))
                start = at + length(found)
            }
        }
        function changed(found, change) {
            if (change == "+1") {
                match(found, /[0-9]+/)
                return substr(found, 1, RSTART - 1) (substr(found, RSTART, RLENGTH) + 1) \
                    substr(found, RSTART + RLENGTH)
            }
            return change
        }
        /^ *(\/\/|#|using |namespace |template|static_assert|constexpr char|})/ || /^ *$/ { next }
        /^ +(\} else )?(if|while) \(.*\) ?(\{|.*;)?$/ {
            # The condition ends at its closing bracket.
            depth = 0
            open = index($0, "(")
            for (i = open; i <= length($0); ++i) {
                character = substr($0, i, 1)
                depth += (character == "(") - (character == ")")
                if (depth == 0) break
            }
            if (depth == 0 && substr($0, open, i - open) !~ /;| = /)
                fault(substr($0, 1, open) "!(" substr($0, open + 1, i - open - 1) ")" substr($0, i))
        }
        /^ +[A-Za-z_][A-Za-z_0-9:.>()*-]*\(.*\);$/ && !/^ +(return|throw|if|for|while|case|delete)/ &&
            !/^ +[a-z:A-Z_<>]+ [a-z_]+\(/ {
            match($0, /^ +/)
            fault(substr($0, 1, RLENGTH) ";")
        }
        /^ +(continue|break);$/ { match($0, /^ +/); fault(substr($0, 1, RLENGTH) ";") }
        {
            replace(" == ", " != "); replace(" != ", " == ")
            replace(" < ", " <= "); replace(" <= ", " < ")
            replace(" > ", " >= "); replace(" >= ", " > ")
            replace(" && ", " || "); replace(" [|][|] ", " \\&\\& ")
            replace(" [+] 1", ""); replace(" - 1", "")
            replace("[^A-Za-z_0-9.\x27][0-9]+[^A-Za-z_0-9.\x27]", "+1")
            replace("true", "false"); replace("false", "true")
            replace("[.]front[(][)]", ".back()"); replace("[.]back[(][)]", ".front()")
            replace("std::min", "std::max"); replace("std::max", "std::min")
        }' "$1"
}

# A fault may make the tests kill, mount or fill what they should not. So they run in namespaces of
# their own, with a read-only root and little memory.
isolated() (
    local user=()
    [ "$(id -u)" -eq 0 ] || user=(--user --map-root-user)
    ulimit -v 8388608
    unshare "${user[@]}" --mount --pid --fork --kill-child --mount-proc bash -c '
        mount -t tmpfs tmpfs /tmp && mount --bind "$1" "$1" && mount -o remount,bind,ro / &&
            cd "$1" && exec "${@:2}"' isolated "$COPY" "$@"
)

notices() {
    timeout 900 cmake --build "$BUILD" >"$LOG" 2>&1 || return 2
    ! isolated timeout 1200 ctest --test-dir "$BUILD" --stop-on-failure --timeout 120 \
        -j "$(nproc)" "$@" >"$LOG" 2>&1
}

mkdir -p "$COPY"
find "$COPY" -mindepth 1 -maxdepth 1 ! -name build -exec rm -r {} +
(cd "$ROOT" && git ls-files -z | tar c --null -T -) | tar x -C "$COPY"
cd "$COPY"
quietly cmake --preset default -DCMAKE_UNITY_BUILD=OFF  # each fault is in one source
echo "Building the copy, and running its tests as they are" >&2
if notices -E none; then
    cat "$LOG" >&2
    exit 2
fi

noticed=0
unnoticed=0
while IFS=$'\t' read -r -u 3 _ source line text; do
    [ $((noticed + unnoticed)) -lt "$number" ] || break
    was=$(sed -n "${line}p" "$source")
    cp -p "$source" "$COPY/as-it-was"
    awk -v line="$line" -v text="${text//\\/\\\\}" 'NR == line { print text; next } { print }' \
        "$COPY/as-it-was" >"$source"
    status=0
    notices -R "$(first_tests "$source")" || status=$?
    if [ $status -eq 1 ]; then
        status=0
        notices -E "$(first_tests "$source")" || status=$?
    fi
    cp "$COPY/as-it-was" "$source"
    case $status in
        0) noticed=$((noticed + 1)) ;;
        1)
            unnoticed=$((unnoticed + 1))
            printf '%s:%s:\n  - %s\n  + %s\n' "$source" "$line" "${was##*( )}" "$text"
            ;;
    esac  # a line that does not compile is no fault
done 3< <(find "${folders[@]}" -name '*.cpp' ! -path '*/tests/*' | sort | while read -r source; do
    faults_of "$source" | sed "s|^|$source\t|"
done | awk -v seed="$seed" 'BEGIN { srand(seed) } { printf "%.9f\t%s\n", rand(), $0 }' | sort -n)
echo "seed $seed: $noticed of $((noticed + unnoticed)) faults noticed"
