#!/usr/bin/env bash
# Installs what this Debian lacks: install_packages.sh GROUP...   (groups: play, check, windows)
# Asks the network only when something is missing. Writes to standard error alone.
set -euo pipefail

packages=()
# JACK's library is named with RtMidi, which needs one of the two there are: left to choose, apt takes the one that the
# server of the group "check" would put out again, and RtMidi with it. Who has that one already keeps it for playing.
jack=(libjack-jackd2-dev)
! dpkg-query -W -f '${db:Status-Status}' libjack0 2>/dev/null | grep -qx installed || jack=()
for group in "$@"; do
    case $group in
        play) packages+=(g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libncurses-dev
                         "${jack[@]}" librtmidi-dev) ;;
        check) packages+=(libgtest-dev libgmock-dev libbenchmark-dev clang-16 libclang-rt-16-dev clang-format-16
                          clang-tidy-16 python3 python3-jsonschema python3-mido
                          jackd2 libjack-jackd2-dev librtmidi-dev python3-jack-client) ;;
        windows) packages+=(g++-mingw-w64-x86-64-posix python3) ;;
        *) echo "install_packages.sh: no group $group" >&2; exit 2 ;;
    esac
done

if ! command -v dpkg-query >/dev/null; then
    echo "Not a Debian system: assuming that these are installed: ${packages[*]}" >&2
    exit 0
fi
installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${packages[@]}" 2>/dev/null || true)
missing=()
for package in "${packages[@]}"; do
    grep -qx "installed $package" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null || ! { sudo -n true 2>/dev/null || { [ -t 0 ] && sudo true; }; }; then
        echo "These packages are missing and this user may not install them. As root:" >&2
        echo "    apt-get install --no-install-recommends ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

echo "Installing ${missing[*]} ..." >&2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y -o DPkg::Lock::Timeout=300 "$@" </dev/null >>"$log" 2>&1
}
# Without the network an old list of packages may still do.
apt update || true
if ! apt install --no-install-recommends "${missing[@]}"; then
    tail -n 30 "$log" >&2
    echo "apt-get could not install ${missing[*]} (see above; written for Debian 12)" >&2
    exit 1
fi
# What was configured without them has to look again.
rm -f "$(dirname "${BASH_SOURCE[0]}")"/../build/*/build.ninja
