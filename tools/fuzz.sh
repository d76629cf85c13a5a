#!/usr/bin/env bash
# Runs every fuzz target for a number of seconds: tools/fuzz.sh SECONDS [NAME...]
# Needs the preset "fuzz" built. Starts from tests/fuzz/corpus/NAME; what is found on the way is
# kept in build/fuzz/corpus, and an input that breaks a target in build/fuzz/findings.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?seconds for each target}
shift
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    for source in tests/fuzz/*_fuzz.cpp; do
        [ -e "$source" ] && names+=("$(basename "$source" .cpp)")
    done
fi
if [ ${#names[@]} -eq 0 ]; then
    echo "fuzz: there is no tests/fuzz/*_fuzz.cpp" >&2
    exit 1
fi

export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for name in "${names[@]}"; do
    found=build/fuzz/corpus/$name
    mkdir -p "$found" build/fuzz/findings
    seeds=()
    [ -d "tests/fuzz/corpus/$name" ] && seeds=("tests/fuzz/corpus/$name")
    echo "fuzz: $name for $seconds s"
    if ! "build/fuzz/bin/$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -verbosity=0 -artifact_prefix="build/fuzz/findings/$name-" \
        "$found" "${seeds[@]}" >"build/fuzz/$name.log" 2>&1; then
        tail -60 "build/fuzz/$name.log" >&2
        exit 1
    fi
    grep -E 'number_of_executed_units|peak_rss_mb' "build/fuzz/$name.log"
done
