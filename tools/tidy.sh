#!/usr/bin/env bash
# Runs clang-tidy over the sources of the product: tools/tidy.sh BUILD_FOLDER [JOBS]
# The configuration is .clang-tidy; any finding fails.
set -euo pipefail
cd "$(dirname "$0")/.."

folder=${1:?the folder of a build}
jobs=${2:-$(nproc)}
log=$folder/clang-tidy.log

# The build is gcc's; clang is not to complain about options that it doesn't know.
if ! run-clang-tidy -quiet -p "$folder" -j "$jobs" -extra-arg=-Wno-unknown-warning-option \
    "^$PWD/(host|plugin|rows|actions|input|forms|engine|apps)/" >"$log" 2>&1; then
    grep -E -A4 '(warning|error):' "$log" | head -200 >&2
    echo "tidy: see $log" >&2
    exit 1
fi
