# The checks that test.sh makes; sourced by it, and run in the project's root. A check that passes
# says what it has seen in the last line of its output.

PASSED=()
FAILED=()

# check NAME COMMAND...: makes one check, the others after it whatever its result.
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

# Prints what passed, what failed and how long it took, in one line. Fails if a check did.
tell_checks() {
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

# check_preset PRESET [OPTION...]: builds, and runs the tests with ctest's options.
check_preset() {
    build "$1" && run_tests "$@"
}

# check_named NAME...: those tests of the build as it is whose names, or whose programs' names,
# match one of the regular expressions.
check_named() {
    local names program tests targets
    names=$(IFS='|' && echo "$*")
    quietly cmake --preset default || return 1
    # A program that is not built yet has no tests for ctest, but its source has.
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
    # The other tests' commands name the programs that they run.
    # shellcheck disable=SC2207
    targets+=($(ctest --preset default -N -V -R "$names" | grep '^[0-9]*: Test command' |
        grep -oE 'build/default/bin/\w+|package_test' |
        sed 's|.*/||; s/package_test/all/' | sort -u))
    [ ${#targets[@]} -gt 0 ] || { echo "no test's name matches $names"; return 1; }
    build default --target "${targets[@]}" && run_tests default -R "$names" --no-tests=error
}
EXTENSION_TESTS=system/core_common/extproperty/tests

# build PRESET [OPTION...]
build() {
    quietly cmake --preset "$1" && quietly cmake --build --preset "$@"
}

# run_tests PRESET [OPTION...]: ends with how many passed.
run_tests() {
    local log status=0
    log=$(mktemp)
    ctest --preset "$@" -j "$(nproc)" | tee "$log" || status=1
    sed -nE 's/^100% tests passed.* out of ([0-9]+)$/\1 tests/p' "$log"
    rm -f "$log"
    return $status
}

# Runs clang-tidy over what has changed since it last passed.
check_tidy() {
    # shellcheck disable=SC2086
    scripts/tidy.py build/default build/tidy "$(dpkg-query -W $TOOL_PACKAGES $TEST_PACKAGES)"
}
