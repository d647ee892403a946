#!/usr/bin/env bash
# Makes the Debian package of a build directory and uses it as it will lie on a machine:
# package_test.sh BUILD_DIR
set -euo pipefail

BUILD=$(realpath "$1")
SOURCE=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
ROOT=$WORK/root
DOC=$ROOT/usr/share/doc/extprop
MAN=$ROOT/usr/share/man/man1/extprop.1.gz

failures=0
fail() {
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}

# expect WHAT ACTUAL PATTERN
expect() {
    # shellcheck disable=SC2053
    [[ $2 == $3 ]] || fail "$1: '$2' instead of '$3'"
}

# Makes the package, $PACKAGE, as somebody with a strict umask, and unpacks it.
make_package() {
    local log=$WORK/cpack.log
    umask 077
    cpack -G DEB --config "$BUILD/CPackConfig.cmake" -B "$WORK/package" >"$log" 2>&1 || {
        cat "$log"
        exit 1
    }
    umask 022
    PACKAGE=$(echo "$WORK"/package/*.deb)
    dpkg-deb -x "$PACKAGE" "$ROOT"
}

field() { dpkg-deb -f "$PACKAGE" "$1"; }

check_package() {
    expect "file name" "$(basename "$PACKAGE")" \
        "extprop_$(field Version)_$(dpkg --print-architecture).deb"
    expect "changelog" "$(dpkg-parsechangelog -l "$DOC/changelog.gz" -S Version)" "$(field Version)"
    local library
    for library in android-libbase libc6 libgcc-s1 libstdc++6; do
        expect "Depends" ", $(field Depends)," "*, $library [(]>= *"
    done
    expect "control files" "$(dpkg-deb --ctrl-tarfile "$PACKAGE" | tar t | sort | xargs)" \
        "./control ./md5sums"
    # Nothing that another package may own, and nothing that others may write.
    local directory='^drwxr-xr-x root/root .*/$'
    local file='^(-rw[x-]r-[x-]r-[x-]|l[rwx]{9}) root/root .* \./usr/(bin/extprop'
    file+='|lib/[^/]+/extprop/[^/]+\.so|share/(doc/extprop/.+|man/man1/extprop\.1\.gz'
    file+='|bash-completion/completions/extprop|zsh/vendor-completions/_extprop))$'
    local others
    others=$(dpkg-deb -c "$PACKAGE" | grep -Ev "$directory|$file" || true)
    expect "other files" "$others" ""
    diff -r "$SOURCE/samples" "$DOC/samples" || fail "samples"
}

# Runs the packaged tool by its name, from wherever the caller is.
packaged() { PATH=$ROOT/usr/bin:$PATH extprop "$@"; }

check_tool() {
    cd "$DOC"
    expect "version" "$(packaged --version)" "extprop $(field Version)"
    expect "boot" "$(packaged boot -q samples/overlay)" \
        "$("$BUILD/bin/extprop" boot -q "$SOURCE/samples/overlay" | sed 's/[][\\*?]/\\&/g')"
    local library loaded
    loaded=$(LD_DEBUG=libs packaged boot -q samples/overlay 2>&1 | sed -n 's/.*calling init: //p')
    for library in libtesvoextproperty.so libextprop_platform.so; do
        expect "$library" "$(grep "/$library$" <<<"$loaded" | xargs realpath | sort -u)" \
            "$ROOT/usr/lib/*/extprop/$library"
    done

    cmake --install "$BUILD" --prefix "$WORK/local" >/dev/null
    expect "installed version" "$("$WORK/local/bin/extprop" --version)" "extprop $(field Version)"
    [ -f "$WORK/local/share/zsh/site-functions/_extprop" ] || fail "zsh looks elsewhere"
}

# The long options of a command.
options_of() { packaged "$1" --help | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p'; }

# The words that steps begin with.
steps() { packaged boot --help | sed -nE '/^Steps/,/^$/s/^  ([a-z-]+).*/\1/p' | sort -u; }

check_manual() {
    mandoc -T lint -W warning "$MAN" || fail "manual: lint"
    local text command word
    text=$(mandoc -T ascii "$MAN" | sed 's/.\x08//g' | xargs -d '\n')
    for command in boot explain diff lint; do
        for word in $(options_of "$command") $(steps); do
            [[ $text == *" $word"[\ ,:]* ]] || fail "manual: nothing on $word of $command"
        done
    done
}

# type_into SHELL TYPED...: types each of the texts and a tab into an interactive shell, and prints
# the command lines that come of it, with a "|" at the end.
type_into() {
    local shell=$1 lines=$WORK/lines typed tries count=0
    shift
    cat >"$WORK/bashrc" <<-END
		source /usr/share/bash-completion/bash_completion
		bind -x '"\C-t": echo "\$READLINE_LINE|" >>$lines; READLINE_LINE='
		END
    cat >"$WORK/.zshrc" <<-END
		fpath=($ROOT/usr/share/zsh/vendor-completions \$fpath)
		autoload -U compinit && compinit -u -D
		show_line() { print -r -- "\$BUFFER|" >>$lines; BUFFER= }
		zle -N show_line && bindkey -e && bindkey '^T' show_line
		END
    local command=(env -i HOME="$WORK" TERM=dumb PATH="$ROOT/usr/bin:$PATH")
    case $shell in
        bash) command+=(XDG_DATA_DIRS="$ROOT/usr/share" bash --rcfile "$WORK/bashrc" -i) ;;
        zsh) command+=(ZDOTDIR="$WORK" zsh -d -i) ;;
    esac
    : >"$lines"
    for typed in "$@"; do
        printf '%s\t\024' "$typed"
        count=$((count + 1))
        for ((tries = 0; tries < 1000 && $(wc -l <"$lines") < count; ++tries)); do sleep 0.02; done
    done | script -qec "${command[*]@Q}" /dev/null >"$WORK/$shell.log" 2>&1 || true
    cat "$lines"
}

check_completion() {
    # What is typed, and what is expected to be added.
    local cases=(
        "ex" "plain "
        "boot sam" "ples/"
        "boot REA" ""
        "boot samples pers" "ist "
        "boot samples sim:reg" "ionSwitch "
        "boot samples early cota-service:check" "_mount "
        "boot samples early cota-s" "ervice:"
        "boot samples --props REA" "DME.md "
        "boot --request module" "_bind_single_boot "
        "boot --timeout 5 sam" "ples/"
        "explain samples ro.some.name dusk" "rider "
        "diff samples sam" "ples/"
        "diff samples --b --set a=b pers" "ist "
        "lint sam" "ples/"
        "lint samples pers" ""
    )
    local command word
    for command in boot explain diff lint; do
        for word in $(options_of "$command"); do cases+=("$command samples $word" " "); done
    done
    for word in $(steps); do cases+=("boot samples ${word%?}" "${word: -1}*"); done

    cd "$DOC"
    expect "what --help tells" "$(options_of lint | xargs) $(steps | xargs)" \
        "--help --json cota cota-service * sim"
    local typed=() i shell completed
    for ((i = 0; i < ${#cases[@]}; i += 2)); do typed+=("extprop ${cases[i]}"); done
    for shell in bash zsh; do
        mapfile -t completed < <(type_into "$shell" "${typed[@]}")
        for ((i = 0; i < ${#typed[@]}; ++i)); do
            expect "$shell" "${completed[i]-}" "${typed[i]}${cases[2 * i + 1]}|"
        done
    done
}

make_package
check_package
check_tool
check_manual
check_completion
exit "$((failures > 0))"
