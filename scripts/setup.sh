# What run.sh and test.sh share; sourced by both.

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

TOOL_PACKAGES="g++ cmake ninja-build android-libbase-dev libfmt-dev libcli11-dev nlohmann-json3-dev
    libext2fs-dev libarchive-dev liblz4-dev liblzma-dev libprotobuf-dev libre2-dev libssl-dev
    libyaml-cpp-dev libzip-dev libzstd-dev protobuf-compiler zlib1g-dev"
TEST_PACKAGES="clang clang-format clang-tidy libclang-rt-dev libgtest-dev libgmock-dev libbenchmark-dev
    libglib2.0-dev pkg-config blueprint-tools bash-completion dpkg-dev file mandoc zsh e2fsprogs
    erofs-utils android-sdk-libsparse-utils git libxml2-utils python3 python3-jsonschema
    python3-yaml"
ARM64_PACKAGES="g++-aarch64-linux-gnu qemu-user-static android-libbase-dev:arm64 libfmt-dev:arm64
    libgtest-dev:arm64 libgmock-dev:arm64 libarchive-dev:arm64 libext2fs-dev:arm64
    liblz4-dev:arm64 liblzma-dev:arm64 libprotobuf-dev:arm64 libssl-dev:arm64 libzip-dev:arm64
    libzstd-dev:arm64 zlib1g-dev:arm64"

# Runs a command as root.
as_root() {
    local sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    "${sudo[@]}" "$@"
}

# Installs the packages that are missing.
install_packages() {
    local missing=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q "ok installed" ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing, which takes a minute or two: ${missing[*]}" >&2
    as_root apt-get update -qq >&2
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# Runs a command and prints its output only if it fails.
quietly() {
    local log
    log=$(mktemp)
    if ! "$@" >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
