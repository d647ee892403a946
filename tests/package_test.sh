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
    umask 077
    cpack -G DEB --config "$BUILD/CPackConfig.cmake" -B "$WORK/package" >&2
    umask 022
    PACKAGE=$(echo "$WORK"/package/*.deb)
    dpkg-deb -x "$PACKAGE" "$ROOT"
}

field() { dpkg-deb -f "$PACKAGE" "$1"; }

check_package() {
    local library
    for library in android-libbase libc6 libgcc-s1 libstdc++6; do
        expect "Depends" ", $(field Depends)," "*, $library [(]>= *"
    done
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
    expect "version" "$(packaged --version)" "extprop $(field Version)"
    local library loaded
    loaded=$(LD_DEBUG=libs packaged boot -q samples/overlay 2>&1 | sed -n 's/.*calling init: //p')
    for library in libtesvoextproperty.so libextprop_platform.so; do
        expect "$library" "$(grep "/$library$" <<<"$loaded" | xargs realpath | sort -u)" \
            "$ROOT/usr/lib/*/extprop/$library"
    done
}

check_manual() {
    local page=$ROOT/usr/share/man/man1/extprop.1.gz text command word
    mandoc -T lint -W warning "$page" || fail "manual: lint"
    text=$(mandoc -T ascii "$page" | sed 's/.\x08//g' | xargs -d '\n')
    for command in boot explain diff lint; do
        for word in $(packaged "$command" --help | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p'); do
            [[ $text == *" $word"[\ ,:]* ]] || fail "manual: nothing on $word of $command"
        done
    done
}

# Types a part of a command and a tab into the interactive shell, and prints the command line that
# comes of it, with a "|" at the end.
complete_in() {
    local shell=$1 line=$WORK/$1.line tries
    cat >"$WORK/bashrc" <<-END
		source /usr/share/bash-completion/bash_completion
		bind -x '"\C-t": echo "\$READLINE_LINE|" >$line; READLINE_LINE='
		END
    cat >"$WORK/.zshrc" <<-END
		fpath=($ROOT/usr/share/zsh/vendor-completions \$fpath)
		autoload -U compinit && compinit -u -D
		show_line() { print -r -- "\$BUFFER|" >$line; BUFFER= }
		zle -N show_line && bindkey -e && bindkey '^T' show_line
		END
    local command=(env -i HOME="$WORK" TERM=dumb PATH="$ROOT/usr/bin:$PATH")
    case $shell in
        bash) command+=(XDG_DATA_DIRS="$ROOT/usr/share" bash --rcfile "$WORK/bashrc" -i) ;;
        zsh) command+=(ZDOTDIR="$WORK" zsh -d -i) ;;
    esac
    {
        printf 'extprop boot samples cota-service:check\t\024'
        for ((tries = 0; tries < 1000; ++tries)); do [ -s "$line" ] && break || sleep 0.02; done
    } | script -qec "${command[*]@Q}" /dev/null >"$WORK/$shell.log" 2>&1 || true
    cat "$line"
}

make_package
cd "$DOC"
check_package
check_tool
check_manual
for shell in bash zsh; do
    expect "$shell" "$(complete_in "$shell")" "extprop boot samples cota-service:check_mount |"
done
exit "$((failures > 0))"
