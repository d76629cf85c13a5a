#!/usr/bin/env bash
# Installs what the build, the tests and the checks need, on Debian 12. Asks nothing, may be run
# again at any time, and does nothing (not even go to the network) when everything is there.
set -euo pipefail

packages=(
    # compilers and build
    g++ cmake ninja-build ccache
    # libraries that the programs use
    qt6-base-dev qt6-5compat-dev qt6-svg-dev libgl-dev
    libpugixml-dev libcli11-dev libfast-float-dev libzstd-dev libxxhash-dev pkg-config
    # tests, benchmarks and checks
    libgtest-dev libbenchmark-dev python3 git
    clang libclang-rt-14-dev clang-format clang-tidy
)

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "setup: this machine has no apt; install by hand what these Debian 12 packages hold:" >&2
    echo "setup: ${packages[*]}" >&2
    exit 1
fi

isInstalled() {
    [ "$(dpkg-query -W -f '${db:Status-Abbrev}' "$1" 2>/dev/null | cut -c1-2)" = ii ]
}

missing=()
for package in "${packages[@]}"; do
    isInstalled "$package" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

asRoot=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "setup: run this as root, since there is no sudo; missing: ${missing[*]}" >&2
        exit 1
    fi
    asRoot=(sudo)
fi

echo "setup: installing ${missing[*]}"
apt=("${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Dpkg::Use-Pty=0)
"${apt[@]}" update
"${apt[@]}" install --no-install-recommends "${missing[@]}"
