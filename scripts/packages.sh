# shellcheck shell=bash
# Sourced by the other scripts: the Debian packages that each kind of work needs, and how to have them installed.

BUILD_PACKAGES="g++ cmake ninja-build pkg-config libsqlite3-dev libplist-dev libcli11-dev nlohmann-json3-dev"
TEST_PACKAGES="$BUILD_PACKAGES git libgtest-dev clang-format clang-tidy python3 python3-jsonschema locales sqlite3"
TEST_PACKAGES="$TEST_PACKAGES systemd mandoc dpkg-dev file tzdata"

# The 32-bit build: the compiler's other half, and the libraries that are unpacked for it beside the build.
MULTILIB_PACKAGES="g++-multilib"
I386_PACKAGES="libsqlite3-0 libsqlite3-dev libplist3 libplist-dev libgtest-dev"

# install_packages NAME...: installs those that are missing, as root or through sudo; where neither is to be had it says
# which are missing and returns 1. Touches nothing when all are there, and never removes a package to make room.
install_packages() {
    local missing=() name
    for name in "$@"; do
        dpkg-query -W -f='${Status}' "$name" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing, and there is neither root nor sudo to install them:" >&2
            echo "    ${missing[*]}" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    "${as_root[@]}" apt-get -qq update &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-remove --no-install-recommends \
            "${missing[@]}" >/dev/null
}
