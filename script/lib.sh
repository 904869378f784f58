# What the scripts share. To be sourced, from anywhere in the tree.
# shellcheck shell=bash
# shellcheck disable=SC2034 # the lists are used by the scripts that source this

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

build_packages=(
    g++ cmake ninja-build ccache pkg-config
    libarchive-dev libboost-dev libcli11-dev libcurl4-openssl-dev libedit-dev libsodium-dev libspdlog-dev libsqlite3-dev
    libsystemd-dev nlohmann-json3-dev
)
test_packages=(libfaketime libbenchmark-dev libgmock-dev libgtest-dev python3-aiosmtpd)
lint_packages=(clang-format clang-tidy)

# install_packages NAME…: installs what is missing, as root or with sudo.
install_packages() {
    local missing=() as_root=() package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
    done
    [[ ${#missing[@]} -eq 0 ]] && return
    if [[ $(id -u) -ne 0 ]]; then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing: ${missing[*]}" >&2
            echo "Run this script as root, or have them installed: apt-get install ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}"
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# build PRESET [TARGET…]: configures and builds what has changed.
build() {
    local preset=$1
    shift
    (cd "$root" && cmake --preset "$preset" >/dev/null)
    cmake --build "$root/build/$preset" ${1:+--target "$@"}
}
