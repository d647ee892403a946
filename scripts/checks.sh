# The checks that test.sh makes; sourced by it, and run in the project's root. The last line of a
# passing check's output is its summary.

PASSED=()
FAILED=()

# check NAME COMMAND...: makes one check. A failure does not stop the checks after it.
check() {
    local name=$1 log
    shift
    log=$(mktemp)
    echo "== $name"
    if "$@" 2>&1 | tee "$log"; then
        PASSED+=("$name ($(tail -n 1 "$log"))")
    else
        FAILED+=("$name")
    fi
    rm -f "$log"
}

# Prints in one line what passed, what failed and how long it took. Fails if a check failed.
report_checks() {
    local passed failed
    passed=$(printf ', %s' "${PASSED[@]}")
    failed=$(printf ', %s' "${FAILED[@]}")
    local text="passed: ${passed:2}"
    [ ${#PASSED[@]} -gt 0 ] || text="nothing passed"
    [ ${#FAILED[@]} -eq 0 ] || text="FAILED: ${failed:2}; $text"
    echo "$text; took $((SECONDS / 60)) min $((SECONDS % 60)) s"
    [ ${#FAILED[@]} -eq 0 ]
}

check_formats() {
    local difference
    difference=$(bpfmt -d system/core_common/extproperty/Android.bp)
    [ -z "$difference" ] || { echo "$difference"; return 1; }
    git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror || return 1
    echo "as they should be"
}

# check_preset PRESET [OPTION...]: builds the preset and runs its tests with these options of ctest.
check_preset() {
    build "$1" && run_tests "$@"
}

# check_named NAME...: runs the tests of the default preset whose names, or whose programs' names,
# match one of these regular expressions.
check_named() {
    local names program tests targets
    names=$(IFS='|' && echo "$*")
    quietly cmake --preset default || return 1
    # ctest does not know the tests of a program that is not built yet: look for them in its source.
    targets=()
    for source in tests/*_test.cpp "$EXTENSION_TESTS"/*_test.cpp; do
        program=$(basename "$source" .cpp)
        tests=$(tr -d '\n' <"$source" | grep -oE 'TEST(_F|_P)?\([^)]*\)' |
            sed -E 's/.*\((\w+), *(\w+)\)/\1.\2/')
        if grep -qE "$names" <<<"$program"; then
            names+="|(^|/)($(cut -d . -f 1 <<<"$tests" | sort -u | paste -sd '|'))\\."
        elif ! grep -qE "$names" <<<"$tests"; then
            continue
        fi
        targets+=("$program")
    done
    # Other tests name the programs that they run in their commands.
    # shellcheck disable=SC2207
    targets+=($(ctest --preset default -N -V -R "$names" | grep '^[0-9]*: Test command' |
        grep -oE 'build/default/bin/\w+|package_test' |
        sed 's|.*/||; s/package_test/all/' | sort -u))
    [ ${#targets[@]} -gt 0 ] || { echo "no test's name matches $names"; return 1; }
    build default --target "${targets[@]}" && run_tests default -R "$names" --no-tests=error
}
EXTENSION_TESTS=system/core_common/extproperty/tests

# build PRESET [OPTION...]: configures and builds.
build() {
    quietly cmake --preset "$1" && quietly cmake --build --preset "$@"
}

# run_tests PRESET [OPTION...]: runs the tests. The last line of its output is how many passed.
run_tests() {
    local log status=0
    log=$(mktemp)
    ctest --preset "$@" -j "$(nproc)" | tee "$log" || status=1
    sed -nE 's/^100% tests passed.* out of ([0-9]+)$/\1 tests/p' "$log"
    rm -f "$log"
    return $status
}

# Runs clang-tidy over the sources that have changed since it last passed.
check_tidy() {
    # shellcheck disable=SC2086
    scripts/tidy.py build/default build/tidy "$(dpkg-query -W $TOOL_PACKAGES $TEST_PACKAGES)"
}
