#!/usr/bin/env bash
# What a flooding LAN host costs the unchanged agent, each flood in a virtual
# gateway of its own:
#   bench/flood.sh [SIZE...]        (default 1000 10000 100000)
# "macs": a host on eth1 sends one frame from each of SIZE new MACs; the
# bridge learns them and the tracker makes a host record of each report it
# reads. "options": the user-agent module reports a DHCP option request for
# each of SIZE MACs; the tracker keeps an entry for each. Prints one row per
# flood once the agent has read all there is to read. FLOOD_FDB_MAX sets the
# bridge's limit of learnt entries (tools/vgw/fdb_limit.py); by default
# there is none.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD
deadline=${FLOOD_DEADLINE:-3600} # seconds for one flood to be read
out=/tmp/agent.out

tick=$(getconf CLK_TCK)
# RSS and anonymous memory in KiB, CPU seconds of the agent and of the
# commands it ran and waited for.
sample() {
    local rss anon
    rss=$(awk '/^VmRSS/ { print $2 }' "/proc/$1/status")
    anon=$(awk '/^RssAnon/ { print $2 }' "/proc/$1/status")
    awk -v t="$tick" -v rss="$rss" -v anon="$anon" \
        '{ sub(/^.*\) /, ""); printf "%d %d %.1f %.1f\n", rss, anon, ($12 + $13) / t, ($14 + $15) / t }' \
        "/proc/$1/stat"
}

# Receive queue bytes and drops, summed over the agent's routing sockets.
netlink_queue() {
    local inodes
    inodes=$(find "/proc/$1/fd" -lname 'socket:*' -printf '%l\n' 2>/dev/null | tr -dc '0-9\n' | paste -sd' ')
    awk -v want=" $inodes " '$2 == 0 && index(want, " " $10 " ") { q += $5; d += $9 } END { print q + 0, d + 0 }' \
        /proc/net/netlink
}

# Waits until COUNT_CMD stops growing for 3 s and the agent's routing queue is
# empty; fails past the deadline.
settle() {
    local agent=$1 count=$2 last=-1 still=0 now queue
    local end=$((SECONDS + deadline))
    while ((still < 3)); do
        ((SECONDS < end)) || { echo "flood: not settled within ${deadline}s" >&2; return 1; }
        kill -0 "$agent" || { echo "flood: the agent died" >&2; return 1; }
        sleep 1
        now=$(eval "$count")
        read -r queue _ < <(netlink_queue "$agent")
        if [[ $now == "$last" && $queue == 0 ]]; then still=$((still + 1)); else still=0; fi
        last=$now
    done
}

inside() {
    local kind=$1 size=$2 agent before after started count
    vgw lan up
    # Entries outlive the run, so that no record goes before it is counted.
    ip link set br0 type bridge ageing_time 360000
    python3 "$src/tools/vgw/fdb_limit.py" br0 "${FLOOD_FDB_MAX:-0}" >/dev/null
    echo 3 >/tmp/zn_event_agent_lanhost_debug
    ip neigh replace 192.168.1.254 lladdr 02:00:00:00:99:99 dev br0 nud stale
    zn_event_agent >"$out" 2>&1 &
    agent=$!
    # The tracker flushes br0's neighbours last before its loop, and reads
    # the debug level on its first 5-second tick.
    timeout 30 bash -c "until [ -z \"\$(ip neigh show 192.168.1.254 dev br0)\" ] &&
        grep -q 'macAgeingDetect timer call back' $out; do sleep 0.2; done"
    before=$(sample "$agent")
    started=$SECONDS
    if [[ $kind == macs ]]; then
        vgw host add flood eth1 02:00:00:ff:ff:01
        vgw host exec flood sysctl -qw net.ipv6.conf.eth0.disable_ipv6=1
        vgw host exec flood python3 "$src/tools/vgw/send.py" macs eth0 $((1 << 24)) "$size"
        count="grep -c 'nlmsgType=RTM_NEWNEIGH macAddr:02:00:01' $out || true"
    else
        timeout 30 bash -c 'until znkernel log | grep -q greeting; do sleep 0.2; done'
        # 10 reports fill the tracker's read of 1 KiB; a full queue loses the
        # datagram, and znkernel says so.
        python3 -c "
import sys
for first in range(0, $size, 10):
    print(' '.join('02:00:01:%02x:%02x:%02x bridge_dhcp_option,requestip=192.168.%d.%d,hostname=pc%d,alt=pc%d'
                   % ((i >> 16) & 255, (i >> 8) & 255, i & 255, (i >> 8) & 255, i & 255, i, i)
                   for i in range(first, min(first + 10, $size))))" |
            while read -r -a pairs; do znkernel ua report "${pairs[@]}" 2>>/tmp/lost || true; done
        count="grep -c 'SLIST_INSERT_HEAD mac:02:00:01' $out || true"
    fi
    settle "$agent" "$count"
    after=$(sample "$agent")
    local records learned drops lost rss0 anon0 cpu0 ccpu0 rss1 anon1 cpu1 ccpu1
    if [[ $kind == macs ]]; then
        records=$(grep -o 'nlmsgType=RTM_NEWNEIGH macAddr:02:00:01[0-9A-Fa-f:]*' "$out" | sort -u | wc -l)
        learned=$(python3 "$src/tools/vgw/fdb_limit.py" br0 | awk '{ print $2 }')
        read -r _ drops < <(netlink_queue "$agent")
        lost=$drops
    else
        records=$(grep -o 'SLIST_INSERT_HEAD mac:02:00:01[0-9a-f:]*' "$out" | sort -u | wc -l)
        learned=-
        lost=$(($(grep -c . /tmp/lost || true) * 10))
    fi
    read -r rss0 anon0 cpu0 ccpu0 <<<"$before"
    read -r rss1 anon1 cpu1 ccpu1 <<<"$after"
    awk -v row="| $kind | $size | $learned | $lost | $records | $rss0 > $rss1 | $anon0 > $anon1 |" \
        -v secs=$((SECONDS - started)) -v cpu="$cpu0 $cpu1 $ccpu0 $ccpu1" \
        'BEGIN { split(cpu, c, " "); printf "%s %.1f | %.1f | %d |\n", row, c[2] - c[1], c[4] - c[3], secs }'
    kill "$agent"
}

if [[ ${1:-} == --inside ]]; then
    shift
    inside "$@"
    exit
fi

sizes=("$@")
((${#sizes[@]})) || sizes=(1000 10000 100000)
printf '| Flood | Size | Learnt by the bridge | Lost before the agent | Records | RSS KiB, before > after | Anon KiB, before > after | Agent CPU s | CPU s of its commands | Read in s |\n'
printf '|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n'
for kind in macs options; do
    for size in "${sizes[@]}"; do
        tools/vgw/vgw run -- bash "$src/bench/flood.sh" --inside "$kind" "$size" | tail -1
    done
done
