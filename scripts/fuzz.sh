#!/usr/bin/env bash
# Runs every fuzz target (or the ones named) from its corpus until it has used
# SECONDS of CPU time (default 600), one after another:
#   scripts/fuzz.sh [SECONDS] [TARGET...]
# CPU time, not wall time, so that a run on a loaded machine still fuzzes as
# long as it says. Each target's findings stay in build-fuzz/fuzz/NAME/ and
# fail the run; every run appends a line to build-fuzz/fuzz/runs.tsv.
set -euo pipefail
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
cd "$(dirname "$0")/.."
seconds=600
if [[ ${1:-} =~ ^[0-9]+$ ]]; then seconds=$1; shift; fi

CC=clang CXX=clang++ bash scripts/build.sh build-fuzz -DZN_FUZZ=ON

targets=("$@")
if ((${#targets[@]} == 0)); then
    mapfile -t targets < <(find tests -path '*/corpus/*' -maxdepth 3 -mindepth 3 -type d \
                               -printf '%f\n' | sort)
fi

tick=$(getconf CLK_TCK)
cpu_seconds() {  # user + system time of a running process
    awk -v t="$tick" '{ sub(/^.*\) /, ""); print int(($12 + $13) / t) }' "/proc/$1/stat" 2>/dev/null || echo 0
}

failed=()
mkdir -p build-fuzz/fuzz
for name in "${targets[@]}"; do
    bin=build-fuzz/bin/$name
    corpus=$(find tests -path "*/corpus/$name" -type d | head -1)
    [[ -x $bin && -n $corpus ]] || { echo "fuzz: no target $name" >&2; failed+=("$name"); continue; }
    work=build-fuzz/fuzz/$name
    mkdir -p "$work/corpus"
    log=$work/run.log
    "$bin" -timeout=10 -rss_limit_mb=1024 -print_final_stats=1 -artifact_prefix="$work/" \
        "$work/corpus" "$corpus" >"$log" 2>&1 &
    pid=$!
    used=0
    while kill -0 "$pid" 2>/dev/null; do
        used=$(cpu_seconds "$pid")
        ((used >= seconds)) && { kill -INT "$pid"; break; }
        sleep 2
    done
    rc=0; wait "$pid" || rc=$?
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    # libFuzzer leaves with 72 when interrupted: the time was used up, nothing found.
    if ((rc == 72)); then verdict=clean; else verdict="finding (exit $rc, see $log)"; failed+=("$name"); fi
    printf '%s\t%s\t%s\t%s\t%s\n' "$(date -u +%F)" "$name" "$used" "${execs:-?}" "$verdict" \
        | tee -a build-fuzz/fuzz/runs.tsv
done
if ((${#failed[@]})); then
    echo "fuzz: findings or errors in: ${failed[*]}" >&2
    exit 1
fi
