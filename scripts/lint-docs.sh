#!/usr/bin/env bash
# Writes the rules in docs/lint.md from the texts of the tool: lint-docs.sh EXTPROP. With "check"
# after it, prints instead where the page differs from the tool.
set -euo pipefail
page=$(dirname "${BASH_SOURCE[0]}")/../docs/lint.md
mark='<!-- What follows is made by scripts/lint-docs.sh. -->'

make_page() {
    local rules
    rules=$("$1" lint --explain all)
    sed "\|^$mark$|q" "$page"
    printf '\n| Identifier | Severity | What it finds |\n|---|---|---|\n'
    awk '/^## / { rule = $2 }
        /^(error|warning): / && rule {
            severity = substr($1, 1, length($1) - 1)
            sub(/^[a-z]+: /, ""); sub(/\.$/, "")
            printf "| [`%s`](#%s) | %s | %s |\n", rule, rule, severity, $0
            rule = ""
        }' <<<"$rules"
    printf '\n%s\n' "$rules"
}

made=$(make_page "$1")
if [ "${2:-}" = check ]; then diff "$page" - <<<"$made"; else echo "$made" >"$page"; fi
