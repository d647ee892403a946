#!/usr/bin/env bash
# Makes the Debian package from a build directory and tests it as it would be installed:
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

# Makes the package, $PACKAGE, under a strict umask, and unpacks it.
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
    # No directory that other packages own, and no file that others may write.
    local directory='^drwxr-xr-x root/root .*/$'
    local file='^(-rw[x-]r-[x-]r-[x-]|l[rwx]{9}) root/root .* \./usr/(bin/extprop'
    file+='|lib/[^/]+/extprop/[^/]+\.so|share/(doc/extprop/.+|man/man1/extprop\.1\.gz'
    file+='|bash-completion/completions/extprop|zsh/vendor-completions/_extprop))$'
    local others
    others=$(dpkg-deb -c "$PACKAGE" | grep -Ev "$directory|$file" || true)
    expect "other files" "$others" ""
    diff -r "$SOURCE/samples" "$DOC/samples" || fail "samples"
}

# Runs the packaged tool by its name, in the caller's directory.
packaged() { PATH=$ROOT/usr/bin:$PATH extprop "$@"; }

check_tool() {
    expect "version" "$(packaged --version)" "extprop $(field Version)"
    local library loaded
    mkdir "$WORK/device"
    PATH=$PATH:/usr/sbin mke2fs -q "$WORK/device/odm.img" 1M
    loaded=$(LD_DEBUG=libs packaged boot -q "$WORK/device" 2>&1 | sed -n 's/.*calling init: //p')
    for library in libtesvoextproperty.so libextprop_platform.so libextprop_decoders.so; do
        expect "$library" "$(grep "/$library$" <<<"$loaded" | xargs realpath | sort -u)" \
            "$ROOT/usr/lib/*/extprop/$library"
    done
    # The links to the manual that editors and services show.
    packaged check samples/carriers "$WORK/expectations" --record >/dev/null
    packaged lint samples/carriers --sarif "$WORK/sarif"
    local page
    for page in $(grep -ohE 'file:///usr/[^"# ]+' "$WORK/expectations" "$WORK/sarif" | sort -u); do
        [ -e "$ROOT${page#file://}" ] || fail "there is no $page"
    done
}

# Prints the words that may follow COMMAND, or the tool's name if COMMAND is empty, one a line:
# options, commands, and the beginnings of steps, as listed in the tool's help.
help_words() {
    # shellcheck disable=SC2086
    packaged $1 --help | sed -nE -e 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p' \
        -e '/^Commands:/,/^$/s/^  ([a-z]+) .*/\1/p' -e '/^Steps,/,$s/^  ([a-z-]+:?).*/\1/p'
}

# Prints the same words as bash's completion offers them.
bash_words() (
    set +eu
    _filedir() { :; }
    __ltrim_colon_completions() { :; }
    # shellcheck disable=SC2034
    _init_completion() {
        words=(extprop ${command:+"$command" device} "$typed")
        cur=$typed cword=$((${#words[@]} - 1))
    }
    source "$ROOT/usr/share/bash-completion/completions/extprop"
    command=$1
    for typed in "" --; do
        COMPREPLY=()
        _extprop
        printf '%s\n' "${COMPREPLY[@]}"
    done
)

# Prints the same words as zsh's completion offers them.
zsh_words() {
    zsh -fc '
        compset() { return 1 }
        _describe() { print -rl -- ${(P)4} ${6:+${(P)6}} }
        _arguments() {
            [[ $1 == -C && -n $words ]] || print -rl -- "$@"
            [[ $1 == -C ]] || { [[ "$*" != *_step* ]] || _extprop_step; return 0 }
            state=${words:+arguments}
            [[ -n $state ]] || state=command
            return 1
        }
        words=($2)
        source $1' zsh "$ROOT/usr/share/zsh/vendor-completions/_extprop" "$1" |
        sed -nE -e 's/^(\([^)]*\))?\*?(--[a-z-]+)\[.*/\2/p' -e 's/\\:/:/' \
            -e 's/^([a-z-]+:?):.*/\1/p'
}

check_words() {
    local page=$ROOT/usr/share/man/man1/extprop.1.gz text command word known= shell
    mandoc -T lint -W warning "$page" || fail "manual: lint"
    text=$(mandoc -T ascii "$page" | sed 's/.\x08//g' | xargs -d '\n')
    for command in "" $(help_words "" | grep -v -e --); do
        for shell in bash zsh; do
            expect "$shell: words of '$command'" \
                "$("${shell}_words" "$command" | grep . | sort -u | xargs)" \
                "$(help_words "$command" | sort -u | xargs)"
        done
        for word in $(help_words "$command"); do
            known+=" $word "
            [[ $text == *" $word"[\ ,:a-z]* ]] || fail "manual: nothing on $word of $command"
        done
    done
    for word in $(grep -oE -e ' --[a-z-]+' <<<"$text"); do
        [[ $known == *" $word "* ]] || fail "manual: no command has $word"
    done
}

# The library's own words, as the tool lists them, must be wherever words are offered or explained.
check_library_words() {
    local page file words word
    page=$(mandoc -T ascii "$ROOT/usr/share/man/man1/extprop.1.gz" | sed 's/.\x08//g')
    words=$({
        packaged boot samples/overlay sim:unknown
        packaged boot samples/overlay cota-service:unknown
        packaged matrix samples/overlay --over unknown 2>&1 | sed 's/.*axes are \(.*\)/one of \1;/'
        packaged boot --help | xargs -d '\n' | sed 's/.*Hand VALUE, of \(.*\), *to the bind.*/one of \1;/'
    } 2>&1 | sed -n 's/.*one of \([^;]*\);.*/\1/p' | tr ', ' '\n\n' | grep .)
    expect "the library's words" "$(wc -w <<<"$words")" 24
    for file in docs/manual.md "$ROOT"/usr/share/{bash-completion/completions/extprop,zsh/vendor-completions/_extprop}; do
        for word in $words; do
            grep -qw -- "$word" "$file" || fail "$file: nothing on $word"
            grep -qw -- "$word" <<<"$page" || fail "manual: nothing on $word"
        done
    done
}

# Types a part of a command and a tab into an interactive shell, and prints the resulting command
# line with a "|" at the end.
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
check_words
check_library_words
for shell in bash zsh; do
    expect "$shell" "$(complete_in "$shell")" "extprop boot samples cota-service:check_mount |"
done
exit "$((failures > 0))"
