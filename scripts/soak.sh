#!/usr/bin/env bash
# Soak: the unchanged agent in a virtual gateway under churn for MINUTES
# (default 60), its RSS, descriptors and threads sampled every 10 s. At the
# end it checks the store and what is left running, prints the samples and a
# verdict, and exits 1 on a failed one.
#
#   scripts/soak.sh [--asan] [MINUTES]
#
# --asan (or SOAK_BUILD=DIR) runs the agent of build-asan (or DIR);
# SOAK_ASAN_OPTIONS adds sanitizer options to the soak's own.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${VGW_INSIDE:-}" != 1 ]; then
    build=${SOAK_BUILD:-build}
    [ "${1:-}" = --asan ] && { build=build-asan; shift; }
    [ -x "$build/bin/zn_event_agent" ] || { echo "soak: no $build/bin/zn_event_agent; build it first" >&2; exit 2; }
    # The preloaded kernel components come before the sanitizer runtime; the
    # agent never exits by itself, so a leak shows in its RSS, not at exit.
    # Freed memory stays in ASan's quarantine (the global one and one per
    # thread) and counts in RSS: keep it small, so that RSS shows the
    # agent's memory more than the sanitizer's.
    # SOAK_ASAN_OPTIONS is appended; with
    # malloc_context_size=0:quarantine_size_mb=0:thread_local_quarantine_size_kb=0
    # RSS stays near the agent's own memory (tests/README.md, Soak).
    export VGW_BUILD=$PWD/$build \
        ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0:abort_on_error=1:quarantine_size_mb=1:thread_local_quarantine_size_kb=64${SOAK_ASAN_OPTIONS:+:$SOAK_ASAN_OPTIONS} \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    exec tools/vgw/vgw run -- bash scripts/soak.sh "${1:-60}"
fi

MINUTES=$1
[[ "$MINUTES" =~ ^[1-9][0-9]*$ ]] || { echo "soak: MINUTES is a whole number" >&2; exit 2; }
DURATION=$((MINUTES * 60))
SAMPLE_EVERY=10
# The reference sample: at 10 minutes, or at the first sixth of a shorter run.
REFERENCE_AT=$((DURATION / 6 < 600 ? DURATION / 6 : 600))
DIR=/tmp/soak
AGENT_LOG=$DIR/agent.log BUS=$DIR/bus.log SAMPLES=$DIR/samples CHURN_LOG=$DIR/churn.log
WAN=InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1
HOSTS=InternetGatewayDevice.LANDevice.1.Hosts
mkdir -p $DIR

# Wired and wireless ports, one LAN host slot each; each slot comes back with
# one of four MACs, so hosts return as well as arrive and the tables stay
# bounded.
PORTS=(eth1 lan2 lan3 ra0.0 rax1.0 wlan0.2)
MAC_VARIANTS=4
declare -a HOST_MAC=() QUIET=()
# USB slots: NAME and plug options.
USB_NAMES=(sda1 sdb1)
USB_OPTS=("--bus usb1 --fs vfat --label SOAK1" "--bus usb2 --fs ntfs --label SOAK2")
declare -a USB_IN=()
UAS=("Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X) Mobile/15E148"
    "Mozilla/5.0 (Linux; Android 14; Pixel 8) AppleWebKit/537.36 Chrome/120.0 Mobile Safari/537.36"
    "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 Chrome/120.0 Safari/537.36"
    "Mozilla/5.0 (SMART-TV; Linux; Tizen 7.0) AppleWebKit/537.36 SamsungBrowser/5.0 TV Safari/537.36")
TIMERS=(InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer.1 InternetGatewayDevice.CMCC_TimedTask.1
    InternetGatewayDevice.CMCC_DeviceLimit.1 InternetGatewayDevice.X_ZN_UpgradeTask.Download
    InternetGatewayDevice.X_ZN_UpgradeTask.Upgrade)
# Short presses only: a long reset hold restores the store's defaults.
BUTTONS=("wifi tap 100" "wps tap 100" "led tap 100" "wlan-wps tap 100" "wlan-wps tap 3500" "reset tap 300")

now() { date +%s; }
START=$(now)
note() { printf '[%5ds] %s\n' $(($(now) - START)) "$*"; }

# ---- the gateway ------------------------------------------------------------
vgw lan up
echo 02:00:00:00:00:01 > /etc/macAddrBase
sysctl -qw net.ipv4.neigh.br0.base_reachable_time_ms=4000
znsUtil -s "$WAN" ConnectionType string IP_Bridged
znsUtil -s "$WAN" X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.4
echo ETHER=eth4 > /var/wanPhysicalType
ip netns add operator
ip link add eth4 type veth peer name fibre netns operator
echo 1 > /proc/sys/net/ipv6/conf/eth4/disable_ipv6
ip link set eth4 up
ip -n operator link set fibre up
# Two-minute leases (dnsmasq's shortest): renewed by the churn, or left to run out.
dnsmasq --port=0 --interface=br0 --bind-interfaces --dhcp-range=192.168.1.100,192.168.1.199,2m \
    --dhcp-leasefile=/etc/dnsmasq.leases --dhcp-script="$PWD/tools/vgw/dnsmasq_lease.sh" \
    --pid-file=$DIR/dnsmasq.pid --log-facility=$DIR/dnsmasq.log
znsMonitor > $BUS &
MONITOR=$!

zn_event_agent > $AGENT_LOG 2>&1 &
AGENT=$!
for _ in $(seq 100); do
    [ "$(ls /proc/$AGENT/task 2>/dev/null | wc -l)" -eq 7 ] && grep -q /tmp/zn_event_agent_timer /proc/net/unix && break
    sleep 0.1
done
kill -0 $AGENT 2>/dev/null || { echo "soak: the agent did not start" >&2; cat $AGENT_LOG >&2; exit 1; }
note "agent $AGENT runs on $(readlink /proc/$AGENT/exe)"
processes() { ps -e -o comm= | sort; }
processes > $DIR/processes.before
sort /proc/mounts > $DIR/mounts.before

# ---- sampling -----------------------------------------------------------------
sample() {
    local label=$1 rss fds threads
    rss=$(awk '/^VmRSS:/ {print $2}' /proc/$AGENT/status 2>/dev/null) || rss=
    fds=$(ls /proc/$AGENT/fd 2>/dev/null | wc -l)
    threads=$(ls /proc/$AGENT/task 2>/dev/null | wc -l)
    echo "$label ${rss:-dead} $fds $threads" >> $SAMPLES
}
sampler() {
    local t
    for ((t = 0; t <= DURATION; t += SAMPLE_EVERY)); do
        sleep $((START + t - $(now) > 0 ? START + t - $(now) : 0))
        sample $t
    done
}

# ---- churn ----------------------------------------------------------------------
# act NAME CMD...: one step; its outcome is counted by name.
act() {
    local name=$1; shift
    if "$@" >> $CHURN_LOG 2>&1; then echo "$name ok" >> $DIR/acts; else echo "$name failed" >> $DIR/acts; fi
}
pick() { local -n list=$1; echo "${list[RANDOM % ${#list[@]}]}"; }
host_mac() { printf '02:00:00:5a:%02x:%02x' "$1" $((RANDOM % MAC_VARIANTS)); }
lease() {
    local ip
    ip=$(vgw host exec "h$1" udhcpc -i eth0 -n -q -t 3 -s /bin/true -x "hostname:soak-$1" 2>&1 |
        sed -n 's/.*lease of \([0-9.]*\) .*/\1/p')
    [ -n "$ip" ] || return 1
    vgw host exec "h$1" ip addr flush dev eth0 scope global
    vgw host exec "h$1" ip addr add "$ip/24" dev eth0
}
join() {
    local i=$1 mac
    mac=$(host_mac "$i")
    vgw host add "h$i" "${PORTS[i]}" "$mac" || return 1
    HOST_MAC[i]=$mac
    lease "$i"
}
leave() {
    local i=$1 mac=${HOST_MAC[$1]}
    HOST_MAC[i]= QUIET[i]=
    vgw host del "h$i"
    case ${PORTS[i]} in ra* | wlan*) znkernel wlan-leave "$mac" > /dev/null ;; esac
}
# A host that stops answering (or speaks again): the tracker's ageing and
# probes take it offline, its next frame back online.
quiet() {
    local ignore=8
    [ -n "${QUIET[$1]:-}" ] && ignore=0
    vgw host exec "h$1" sysctl -qw net.ipv4.conf.all.arp_ignore=$ignore || return 1
    if [ $ignore = 8 ]; then QUIET[$1]=1; else QUIET[$1]=; vgw host exec "h$1" ping -c 1 -W 1 192.168.1.1; fi
}
flap_port() { ip link set "$1" down && sleep 1 && ip link set "$1" up; }
flap_wan() { ip -n operator link set fibre down && sleep 2 && ip -n operator link set fibre up; }
usb_plug() { vgw usb plug "${USB_NAMES[$1]}" ${USB_OPTS[$1]}; }
# The agent keeps the mount of a pulled stick: the soak takes it away.
usb_unplug() {
    local node=/dev/${USB_NAMES[$1]} mp
    vgw usb unplug "${USB_NAMES[$1]}"
    sleep 1
    for mp in $(awk -v d="$node" '$1 == d {print $2}' /proc/mounts); do umount -l "$mp"; done
}
burst() { vgw host exec "h$1" python3 tools/vgw/send.py macs eth0 $((0x5b000000 + RANDOM % 4 * 50)) 50; }
snoop() {
    vgw host exec "h$1" python3 tools/vgw/send.py dhcp eth0 3 "${HOST_MAC[$1]}" "192.168.1.$((200 + $1))" "snoop-$1"
}

# One step: a host action on a random port's host (a join when none is
# there), or, one time in three, something beside the hosts.
churn_step() {
    local i=$((RANDOM % ${#PORTS[@]})) u=$((RANDOM % ${#USB_NAMES[@]}))
    local present=${HOST_MAC[i]:-}
    if [ $((RANDOM % 3)) -ne 0 ]; then
        [ -n "$present" ] || { act join join "$i"; return 0; }
        case $((RANDOM % 8)) in
        0) act leave leave "$i" ;;
        1) act renew lease "$i" ;;
        2) act user-agent znkernel ua report "$present" "GET / HTTP/1.1 User-Agent: $(pick UAS)" ;;
        3) act dhcp-report snoop "$i" ;;
        4) act ping vgw host exec "h$i" ping -c 2 -W 1 192.168.1.1 ;;
        5) act mac-burst burst "$i" ;;
        6) act lan-flap flap_port "${PORTS[i]}" ;;
        7) act quiet quiet "$i" ;;
        esac
        return 0
    fi
    case $((RANDOM % 7)) in
    0) if [ -n "${USB_IN[u]:-}" ]; then USB_IN[u]=; act usb-unplug usb_unplug "$u"; else USB_IN[u]=1; act usb-plug usb_plug "$u"; fi ;;
    1) act button znkernel button $(pick BUTTONS) ;;
    2) act wan-flap flap_wan ;;
    3) act timer zncli timer fire "$(pick TIMERS)" ;;
    4) act pon-mode znkernel pon wan-change $(((RANDOM % 8) + 1)) ;;
    5) act pon-recovered znkernel pon recovered $((RANDOM % 4)) ;;
    6) if [ -n "${USB_IN[u]:-}" ]; then USB_IN[u]=; act usb-unplug usb_unplug "$u"; else USB_IN[u]=1; act usb-plug usb_plug "$u"; fi ;;
    esac
    return 0
}

# Warm-up, before the clock starts: every port's host joins, the burst MACs
# are learnt, each stick comes and goes once, so that the tables and the
# allocator have their working size before the reference sample.
note "warming up"
for i in "${!PORTS[@]}"; do act join join "$i"; done
for i in 0 1 2 3; do act mac-burst vgw host exec h0 python3 tools/vgw/send.py macs eth0 $((0x5b000000 + i * 50)) 50; done
for u in "${!USB_NAMES[@]}"; do act usb-plug usb_plug "$u"; sleep 2; act usb-unplug usb_unplug "$u"; done
note "warmed up in $(($(now) - START)) s; churn for $MINUTES min"
START=$(now)

sampler &
SAMPLER=$!
while [ $(($(now) - START)) -lt $DURATION ] && kill -0 $AGENT 2>/dev/null; do
    churn_step
    sleep "$((RANDOM % 2)).$((RANDOM % 10))"
done
kill -0 $AGENT 2>/dev/null && wait $SAMPLER || kill $SAMPLER 2>/dev/null || true

# ---- the end: quiet, then checks --------------------------------------------------
note "churn over; settling"
for i in "${!PORTS[@]}"; do [ -n "${HOST_MAC[i]:-}" ] && leave "$i" >> $CHURN_LOG 2>&1; done
for u in "${!USB_NAMES[@]}"; do [ -n "${USB_IN[u]:-}" ] && usb_unplug "$u" >> $CHURN_LOG 2>&1; done
sleep 5
sample end
FAILED=()
fail() { FAILED+=("$*"); }

kill -0 $AGENT 2>/dev/null || fail "the agent died: $(tail -n 5 $AGENT_LOG | tr '\n' ' ')"
grep -qE 'ERROR: (Address|Leak)Sanitizer|runtime error:' $AGENT_LOG && fail "sanitizer report in $AGENT_LOG"

# The store: HostNumberOfEntries counts the active hosts; one object per MAC
# in each table. A write may be under way: the check gets 10 s to agree.
store_check() {
    znhosts --json > $DIR/hosts.json || return 1
    jq -e '(.HostNumberOfEntries == ([.hosts[] | select(.Active == 1)] | length))
        and ([.hosts[].MACAddress] | length == (unique | length))
        and ([.offline[].MACAddress] | length == (unique | length))' $DIR/hosts.json > /dev/null
}
consistent=no
for _ in $(seq 20); do store_check && { consistent=yes; break; }; sleep 0.5; done
[ $consistent = yes ] || fail "store inconsistent: $(jq -c '{HostNumberOfEntries, active: [.hosts[] | select(.Active == 1)] | length,
    hosts: [.hosts[].MACAddress] | group_by(.) | map(select(length > 1)[0]),
    offline: [.offline[].MACAddress] | group_by(.) | map(select(length > 1)[0])}' $DIR/hosts.json 2>&1)"

# Nothing left running or mounted that was not there before the churn.
children=$(ps --ppid $AGENT -o pid=,comm= | tr -s '\n ' ' ' || true)
[ -z "${children// /}" ] || fail "the agent's children still run: $children"
zombies=$(ps -e -o stat=,pid=,comm= | awk '$1 ~ /^Z/' | tr '\n' ' ')
[ -z "$zombies" ] || fail "zombies: $zombies"
vgw usb clear > /dev/null 2>&1 || true
extra=$(comm -13 $DIR/processes.before <(processes | grep -vxE 'ps|sort|comm|bash|grep|tr|awk|sleep') | tr '\n' ' ')
[ -z "$extra" ] || fail "processes left: $extra"
extra=$(comm -13 $DIR/mounts.before <(sort /proc/mounts) | tr '\n' ';')
[ -z "$extra" ] || fail "mounts left: $extra"

# ---- the table and the verdict ---------------------------------------------------------
ref=$(awk -v t=$REFERENCE_AT '$1 == t' $SAMPLES)
last=$(awk '$1 != "end"' $SAMPLES | tail -n 1)
end=$(awk '$1 == "end"' $SAMPLES)
echo
echo "samples (every $SAMPLE_EVERY s; one row a minute, the reference and the last):"
printf '%8s %10s %5s %8s\n' seconds rss_kB fds threads
awk -v r=$REFERENCE_AT '$1 == "end" || $1 % 60 == 0 || $1 == r' $SAMPLES |
    awk '{printf "%8s %10s %5s %8s\n", $1, $2, $3, $4}'
{
    echo "actions:"
    sort $DIR/acts | uniq -c | awk '{a[$2] = a[$2] " " $3 "=" $1} END {for (k in a) printf "  %-14s%s\n", k, a[k]}' | sort
} 2>/dev/null || true

read -r _ ref_rss ref_fds ref_threads <<< "$ref"
read -r _ last_rss _ _ <<< "$last"
read -r _ _ end_fds end_threads <<< "$end"
if [[ "${ref_rss:-}" =~ ^[0-9]+$ && "${last_rss:-}" =~ ^[0-9]+$ ]]; then
    growth=$(awk -v a="$ref_rss" -v b="$last_rss" 'BEGIN {printf "%+.1f", (b - a) * 100 / a}')
    awk -v g="$growth" 'BEGIN {exit !(g <= 10 && g >= -10)}' ||
        fail "RSS not flat: $ref_rss kB at ${REFERENCE_AT}s, $last_rss kB at the end (${growth}%)"
else
    growth=?
    fail "no RSS sample at ${REFERENCE_AT}s or at the end"
fi
[ "${end_fds:-x}" = "${ref_fds:-y}" ] || fail "descriptors: ${ref_fds:-?} at ${REFERENCE_AT}s, ${end_fds:-?} at the end"
[ "${end_threads:-x}" = "${ref_threads:-y}" ] || fail "threads: ${ref_threads:-?} at ${REFERENCE_AT}s, ${end_threads:-?} at the end"

kill $AGENT $MONITOR 2>/dev/null || true
kill "$(cat $DIR/dnsmasq.pid)" 2>/dev/null || true
echo
echo "RSS ${growth}% since ${REFERENCE_AT}s; descriptors ${ref_fds:-?} -> ${end_fds:-?}; threads ${ref_threads:-?} -> ${end_threads:-?}; store consistent: $consistent ($(jq -r '"\(.HostNumberOfEntries) active, \(.hosts | length) Host, \(.offline | length) OfflineHost objects"' $DIR/hosts.json 2>/dev/null))"
if [ ${#FAILED[@]} -gt 0 ]; then
    printf 'FAIL: %s\n' "${FAILED[@]}"
    echo "--- last lines of the agent's log:"; tail -n 20 $AGENT_LOG
    exit 1
fi
echo "PASS"
