#!/usr/bin/env bash
# Every benchmark of the agent, each in a virtual gateway of its own, printed
# as the tables of bench/README.md (as root on Debian 12, after
# scripts/setup.sh; about 15 minutes), or those numbered:
#   bash bench/run.sh [NUMBER...]
# Timings are printed beside the reference measured in the same run and as a
# ratio to it, since absolute figures drift on a shared machine.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build >/dev/null

bench() { tools/vgw/vgw run -- python3 bench/bench.py "$@"; }
# The value of KEY in a line of "key=value" figures.
field() { sed -n "s/.* $1=\([^ ]*\).*/\1/p" <<<" $2"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "-" }'; }
wanted=" $* "
want() { [[ $wanted == "  " || $wanted == *" $1 "* ]]; }

echo "Machine: $(nproc) cores, $(sed -n 's/^model name\s*: //p' /proc/cpuinfo | head -1), kernel $(uname -r)," \
    "load $(cut -d' ' -f1 /proc/loadavg), $(date -u +%F)"

if want 1; then
echo
echo "1. Ingest: N new MACs at once from one LAN namespace, no MAC filter"
echo "| N | kernel's notifications ms | agent's N records ms | N runs of \`brctl showmacs\` ms | records ÷ runs | records ÷ kernel | N Host objects after N lease messages ms | after N neighbour confirmations ms | overflows |"
echo "|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
for n in 10 100 250 1000; do
    if ((n <= 250)); then
        lease=$(bench ingest $n lease) neigh=$(bench ingest $n neigh)
    else
        lease=$(bench ingest $n none) neigh=
    fi
    k=$(field kernel_ms "$lease") r=$(field records_ms "$lease") s=$(field showmacs_ms "$lease")
    echo "| $n | $k | $r | $s | $(ratio "$r" "$s") | $(ratio "$r" "$k") |" \
        "$([ -n "$neigh" ] && field objects_ms "$lease" || echo -) | $([ -n "$neigh" ] && field objects_ms "$neigh" || echo -) |" \
        "$(field overflows "$lease") |"
done

echo
echo "1b. Ingest with a wired MAC filter table present: one \`brctl showmacs\` per new MAC"
echo "| N | kernel's notifications ms | agent's N records ms | N runs of \`brctl showmacs\` ms | records ÷ runs | records ÷ kernel | overflows |"
echo "|---:|---:|---:|---:|---:|---:|---:|"
for n in 10 100 250 1000; do
    t=$(bench ingest $n none table)
    k=$(field kernel_ms "$t") r=$(field records_ms "$t") s=$(field showmacs_ms "$t")
    echo "| $n | $k | $r | $s | $(ratio "$r" "$s") | $(ratio "$r" "$k") | $(field overflows "$t") |"
done
fi

if want 2; then
echo
echo "2. Offline at scale: N silent wired hosts, last frame to Active 0 (window 9 to 11 s)"
echo "| N | offline within 40 s | inside the window | min s | median s | 90th s | max s | probes sent |"
echo "|---:|---:|---:|---:|---:|---:|---:|---:|"
for n in 10 60 128 160; do
    o=$(bench offline $n)
    echo "| $n | $(field offline "$o") | $(field inside "$o") ($(awk -v a="$(field inside "$o")" -v n=$n \
        'BEGIN { printf "%d%%", 100 * a / n }')) | $(field min_s "$o") | $(field median_s "$o") |" \
        "$(field p90_s "$o") | $(field max_s "$o") | $(field probes "$o") |"
done
fi

if want 3 || want 4; then
echo
echo "3 and 4. Steady cost over 60 s and memory, 250 known hosts that answer probes"
s=$(bench steady 250)
echo "| 250 hosts | CPU % of one core | of it in user space | wake-ups per s | frames sent on br0 per s (the probes) |"
echo "|---|---:|---:|---:|---:|"
for phase in quiet talking; do
    echo "| $phase | $(field ${phase}_cpu_pct "$s") | $(field ${phase}_user_pct "$s") | $(field ${phase}_wakeups "$s") |" \
        "$(field ${phase}_probes "$s") |"
done
echo
echo "| | RSS KiB | PSS KiB (shared pages divided among their users) | anonymous KiB (heaps and stacks) |"
echo "|---|---:|---:|---:|"
for k in 0 1; do
    echo "| $((k * 250)) hosts | $(field rss$k "$s") | $(field pss$k "$s") | $(field anon$k "$s") |"
done
growth() { awk -v k=$(($(field ${1}1 "$s") - $(field ${1}0 "$s"))) 'BEGIN { printf "%d", k * 1024 / 250 }'; } # bytes per host
echo "| per host, bytes | $(growth rss) | $(growth pss) | $(growth anon) |"
fi

if want 5; then
echo
echo "5. Size, stripped, x86-64 ($(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' build/CMakeCache.txt) build)"
echo "| File | bytes |"
echo "|---|---:|"
for f in build/bin/zn_event_agent build/lib/libznsutils.so build/lib/libznsmsg.so build/lib/libzn.so; do
    strip -o build/stripped "$f"
    echo "| \`$(basename "$f")\` | $(stat -c %s build/stripped) |"
done
rm -f build/stripped
fi

if want 6; then
echo
echo "6. Flash: store saves while one host a second leaves and comes back"
f=$(bench flash 120)
echo "| seconds | host changes | saves | saves per minute | shortest gap s |"
echo "|---:|---:|---:|---:|---:|"
echo "| $(field seconds "$f") | $(field changes "$f") | $(field saves "$f") | $(field per_min "$f") | $(field min_gap_s "$f") |"
fi

if want 7; then
echo
echo "7. One host synchronisation: store calls against the lease-file search (medians of 3)"
json=$(tools/vgw/vgw run -- build/bench/store_bench --benchmark_repetitions=3 \
    --benchmark_report_aggregates_only=true --benchmark_format=json \
    --benchmark_filter='BM_HostSync/lease_search:0|BM_LeaseFileSearch|BM_LeaseFileGrep' 2>/dev/null)
median() { jq -r --arg n "$1" '.benchmarks[] | select(.run_name == $n and .aggregate_name == "median")
    | .real_time / {"ns": 1e6, "us": 1e3, "ms": 1}[.time_unit]' <<<"$json"; }
sync=$(median BM_HostSync/lease_search:0) search=$(median BM_LeaseFileSearch) grep=$(median BM_LeaseFileGrep)
echo "| store calls of one sync ms | lease-file search ms | search ÷ store | the search through the shell ms | shell ÷ search |"
echo "|---:|---:|---:|---:|---:|"
printf '| %.3f | %.3f | %s | %.2f | %s |\n' "$sync" "$search" "$(ratio "$search" "$sync")" "$grep" \
    "$(ratio "$grep" "$search")"
fi
