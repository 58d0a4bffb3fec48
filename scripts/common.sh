# Shared by scripts/run, scripts/test and bench/run: package installation and
# the build. Source it; do not run it.

QUENVAR_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# What building needs, and what the tests need on top (the IRC server the
# end-to-end tests start, openssl for their certificates, an X server for
# looking at the program, fonts so that text renders the same everywhere).
QUENVAR_BUILD_PACKAGES="cmake g++ make pkg-config qt6-base-dev qt6-base-dev-tools qt6-svg-dev libgl-dev libxcb1-dev fonts-dejavu-core fonts-noto-color-emoji"
# The tests also check the installed desktop entry and metainfo
# (desktop-file-utils, appstream) and the Debian package (dpkg-dev).
QUENVAR_TEST_PACKAGES="inspircd ngircd openssl python3 xvfb xauth desktop-file-utils appstream dpkg-dev"
# The offline demo (scripts/run --demo): its IRC server and chatty peers.
QUENVAR_DEMO_PACKAGES="inspircd python3"
# Making the Debian package (scripts/package): dpkg-shlibdeps.
QUENVAR_PACKAGE_PACKAGES="dpkg-dev"
# Installed without the packages they recommend: the keyring library would
# bring a desktop's keyring and GTK, anope a mail server. The tests run their
# own gnome-keyring on a private session bus.
QUENVAR_KEYCHAIN_PACKAGES="qtkeychain-qt6-dev libsecret-1-0"
QUENVAR_TEST_SERVICES_PACKAGES="anope gnome-keyring dbus-daemon dbus-bin"
# The fuzz targets: clang and its libFuzzer and sanitizer runtimes.
QUENVAR_FUZZ_PACKAGES="clang libclang-rt-14-dev"

quenvar_log() { printf '==> %s\n' "$*" >&2; }

# Installs the Debian packages among "$@" that are not installed yet
# (--no-recommends first: without the packages they recommend).
quenvar_ensure_packages() {
    local missing=() pkg apt_flags=()
    if [ "${1:-}" = --no-recommends ]; then
        apt_flags=(--no-install-recommends)
        shift
    fi
    for pkg in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        if command -v sudo >/dev/null 2>&1; then
            sudo=(sudo)
        else
            echo "Missing packages: ${missing[*]}" >&2
            echo "Install them as root (apt-get install ${missing[*]}) or install sudo." >&2
            return 1
        fi
    fi
    quenvar_log "Installing ${missing[*]}"
    # In containers without an init system the server packages must not try
    # to start services while they are installed.
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 \
        apt-get install -y -qq "${apt_flags[@]}" "${missing[@]}" </dev/null
}

# What any build needs: the build packages, then the keyring library.
quenvar_ensure_build_packages() {
    quenvar_ensure_packages $QUENVAR_BUILD_PACKAGES "$@"
    quenvar_ensure_packages --no-recommends $QUENVAR_KEYCHAIN_PACKAGES
}

# Configures and builds into the folder $1 with extra CMake arguments after it.
quenvar_build() {
    local dir=$1
    shift
    quenvar_log "Configuring $dir"
    cmake -S "$QUENVAR_ROOT" -B "$dir" -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
    quenvar_log "Building $dir"
    cmake --build "$dir" -j"$(nproc 2>/dev/null || echo 2)"
}
