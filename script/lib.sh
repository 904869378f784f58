# What the scripts share. To be sourced, from anywhere in the tree.
# shellcheck shell=bash
# shellcheck disable=SC2034 # the lists are used by the scripts that source this

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

build_packages=(
    g++ cmake ninja-build ccache pkg-config
    libarchive-dev libboost-dev libcli11-dev libcurl4-openssl-dev libedit-dev libgoogle-perftools-dev libsodium-dev
    libspdlog-dev libsqlite3-dev libsystemd-dev nlohmann-json3-dev unixodbc-dev
)
test_packages=(
    libbenchmark-dev libfaketime libgmock-dev libgtest-dev python3-aiosmtpd sqlite3
    postgresql-15 odbc-postgresql mariadb-server odbc-mariadb tdsodbc
)
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
    # The database servers are for the tests, which start their own: no data, no service.
    if [[ " ${missing[*]} " == *" postgresql-"* && ! -e /etc/postgresql-common/createcluster.conf ]]; then
        "${as_root[@]}" mkdir -p /etc/postgresql-common
        echo "create_main_cluster = false" | "${as_root[@]}" tee /etc/postgresql-common/createcluster.conf >/dev/null
    fi
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# build PRESET [TARGET…]: configures and builds what has changed.
build() {
    local preset=$1
    shift
    (cd "$root" && cmake --preset "$preset" >/dev/null)
    cmake --build "$root/build/$preset" ${1:+--target "$@"}
}
