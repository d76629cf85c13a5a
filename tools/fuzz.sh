#!/usr/bin/env bash
# Runs every fuzz target for a number of seconds: tools/fuzz.sh SECONDS [NAME...]
# Needs the preset "fuzz" built. The target of tests/fuzz/NAME_fuzz.cpp starts from the inputs in
# tests/fuzz/corpus/NAME; what it finds on the way is kept in build/fuzz/corpus/NAME, and an input
# that breaks it in build/fuzz/findings.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?seconds for each target}
shift
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    for source in tests/fuzz/*_fuzz.cpp; do
        [ -e "$source" ] && names+=("$(basename "$source" _fuzz.cpp)")
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
    if ! "build/fuzz/bin/${name}_fuzz" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -verbosity=0 -artifact_prefix="build/fuzz/findings/$name-" \
        "$found" "${seeds[@]}" >"build/fuzz/$name.log" 2>&1; then
        tail -60 "build/fuzz/$name.log" >&2
        exit 1
    fi
    grep -E 'number_of_executed_units|peak_rss_mb' "build/fuzz/$name.log"
done
