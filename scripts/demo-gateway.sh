#!/usr/bin/env bash
# The demo's gateway, run inside `vgw run`: never on a real machine.
# A day in the life of a home gateway, told as it happens: every step waits
# for its effect (store, bus, files, mounts) with a deadline, prints how long
# after its cause it was seen, and stops the demo when it does not come.
set -euo pipefail
[ "${VGW_INSIDE:-}" = 1 ] || { echo "run me through tools/vgw/vgw run" >&2; exit 2; }

HOSTS=InternetGatewayDevice.LANDevice.1.Hosts
WAN=InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1
PC_MAC=02:00:00:00:10:01 PHONE_MAC=02:00:00:00:20:02 STB_MAC=02:00:00:00:30:03
BUS=/tmp/bus.log AGENT_LOG=/tmp/agent.log
START=$(date +%s%N)

now_ns() { date +%s%N; }
stamp() { local ms=$((($(now_ns) - START) / 1000000)); printf '[%3d.%03ds]' $((ms / 1000)) $((ms % 1000)); }
say() { printf '%s %s\n' "$(stamp)" "$*"; }
section() { printf '\n%s === %s\n' "$(stamp)" "$*"; }

# how_long NS_SINCE: "21 ms" or "9.6 s", the time since a moment taken with now_ns.
how_long() {
    local ms=$((($(now_ns) - $1) / 1000000))
    if [ "$ms" -lt 1000 ]; then echo "$ms ms"; else printf '%d.%d s\n' $((ms / 1000)) $((ms % 1000 / 100)); fi
}

fail() {
    printf '%s FAILED: %s\n' "$(stamp)" "$*" >&2
    echo "--- last lines of the agent's log:" >&2; tail -n 20 "$AGENT_LOG" >&2 || true
    echo "--- bus events:" >&2; tail -n 20 "$BUS" >&2 || true
    exit 1
}

# expect WHAT AFTER SINCE_NS SECONDS COMMAND...: polls COMMAND until it
# succeeds, then says "WHAT N ms AFTER"; after SECONDS, the demo fails.
expect() {
    local what=$1 after=$2 since=$3 seconds=$4; shift 4
    local deadline=$(($(now_ns) + seconds * 1000000000))
    until "$@" >/dev/null 2>&1; do
        [ "$(now_ns)" -lt "$deadline" ] || fail "$what: not seen within $seconds s $after"
        sleep 0.02
    done
    say "$what $(how_long "$since") $after"
}

# ---- what the demo looks at ----------------------------------------------
host_is() { znhosts --json | jq -e --arg m "$1" ".hosts[] | select(.MACAddress == \$m) | $2" >/dev/null; }
offline_copy() { znhosts --json | jq -e --arg m "$1" '.offline[] | select(.MACAddress == $m)' >/dev/null; }
bus_has() { grep -q -- "$1" "$BUS"; }
bus_count() { grep -c -- "$1" "$BUS" || true; }
store_is() { [ "$(znsUtil -g "$1" "$2")" = "$3" ]; }
show_hosts() { echo; znhosts | sed 's/^/    /'; echo; }

cleanup() {
    set +e
    [ -n "${AGENT:-}" ] && kill "$AGENT" 2>/dev/null
    # The agent never unmounts a removed stick; the demo cleans up its own.
    vgw usb clear >/dev/null 2>&1
    [ -f /tmp/dnsmasq.pid ] && kill "$(cat /tmp/dnsmasq.pid)" 2>/dev/null
    jobs -p | xargs -r kill 2>/dev/null
}
trap cleanup EXIT
trap 'echo; say "interrupted"; exit 130' INT TERM

# ---- the gateway before the story starts --------------------------------
vgw lan up
echo 02:00:00:00:00:01 > /etc/macAddrBase
# A returning host is confirmed reachable within seconds, not half a minute.
sysctl -qw net.ipv4.neigh.br0.base_reachable_time_ms=4000
# lan3 is bound to a bridged WAN connection: its hosts lease from the operator.
znsUtil -s "$WAN" ConnectionType string IP_Bridged
znsUtil -s "$WAN" X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.4
echo ${DEMO_TRACKER_LEVEL:-1} > /tmp/zn_event_agent_lanhost_debug
echo ETHER=eth4 > /var/wanPhysicalType
znsMonitor > "$BUS" &

section "1. The agent starts"
t=$(now_ns)
zn_event_agent > "$AGENT_LOG" 2>&1 &
AGENT=$!
# Six workers besides the main thread, the last of them listening.
workers() { [ "$(ls /proc/$AGENT/task | wc -l)" -eq 7 ] && grep -q /tmp/zn_event_agent_timer /proc/net/unix; }
expect "zn_event_agent (pid $AGENT) runs its six workers" "after its start" "$t" 5 workers
# The WAN port is up and waits for the operator's side, which lives in a
# namespace of its own; the link comes up when that side does.
ip netns add operator
ip link add eth4 type veth peer name fibre netns operator
echo 1 > /proc/sys/net/ipv6/conf/eth4/disable_ipv6
ip link set eth4 up
expect "WAN port eth4 seen down, waiting for its signal" "after it was made" "$t" 5 grep -q "WAN eth4 Link Down" /var/log/messages
t=$(now_ns)
ip -n operator link set fibre up
expect "WAN link up on the bus (event 200 ETHER=eth4)" "after the WAN port came up" "$t" 5 bus_has "^200 0x[0-9a-f]* ETHER=eth4$"

section "2. Hosts join the LAN"
# dnsmasq reports each lease to the agent, as the gateway's DHCP server does.
dnsmasq --port=0 --interface=br0 --bind-interfaces --dhcp-range=192.168.1.100,192.168.1.150,3600 \
    --dhcp-leasefile=/etc/dnsmasq.leases --dhcp-script="$PWD/tools/vgw/dnsmasq_lease.sh" \
    --pid-file=/tmp/dnsmasq.pid --log-facility=/tmp/dnsmasq.log
# lease HOST NAME: the host asks dnsmasq for a lease as NAME and takes the
# address it gets; prints the address.
lease() {
    local ip
    ip=$(vgw host exec "$1" udhcpc -i eth0 -n -q -t 5 -s /bin/true -x "hostname:$2" 2>&1 |
        sed -n 's/.*lease of \([0-9.]*\) .*/\1/p')
    [ -n "$ip" ] || fail "$1 got no lease (see /tmp/dnsmasq.log)"
    vgw host exec "$1" ip addr add "$ip/24" dev eth0
    echo "$ip"
}

vgw host add pc eth1 "$PC_MAC"
ip=$(lease pc family-pc); t=$(now_ns)
say "the PC on eth1 leased $ip from dnsmasq as family-pc"
expect "PC in the store, online, named family-pc" "after its lease" "$t" 5 \
    host_is "$PC_MAC" ".Active == 1 and .HostName == \"family-pc\" and .AddressSource == \"DHCP\""

vgw host add phone ra0.0 "$PHONE_MAC"
ip=$(lease phone my-phone); t=$(now_ns)
say "the phone joined the Wi-Fi (ra0.0) and leased $ip"
expect "phone in the store on Wi-Fi" "after its lease" "$t" 5 \
    host_is "$PHONE_MAC" ".Active == 1 and .InterfaceType == \"802.11\""
# A web server on the gateway, for the page the phone opens.
mkdir -p /tmp/www && echo welcome > /tmp/www/index.html
busybox httpd -p 192.168.1.1:80 -h /tmp/www
UA="Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X) Mobile/15E148"
vgw host exec phone curl -s -m 2 -A "$UA" http://192.168.1.1/ >/dev/null || fail "the phone could not open the page"
t=$(now_ns)
# The kernel's HTTP module (played by znkernel) reports the request it saw.
znkernel ua report "$PHONE_MAC" "GET / HTTP/1.1 User-Agent: $UA" >/dev/null
expect "device type of the phone on the bus (event 1601)" "after its web request" "$t" 5 bus_has "^1601 "

vgw host add stb lan3 "$STB_MAC"
t=$(now_ns)
# The set-top box renews with the operator's server; the agent snoops the request.
stb_seen() { host_is "$STB_MAC" '.IPAddress == "192.168.1.53" and .LeaseTimeRemaining == -1'; }
stb_request() { vgw host exec stb python3 tools/vgw/send.py dhcp eth0 3 "$STB_MAC" 192.168.1.53 settop-box; stb_seen; }
expect "set-top box on lan3 taken from its DHCP request" "after it first asked" "$t" 10 stb_request
show_hosts

section "3. A USB stick is plugged in"
t=$(now_ns)
vgw usb plug sda1 --bus usb3 --vendor 0781 --product 5567 --fs vfat --label HOLIDAY >/dev/null
mounted() { grep -q '^/dev/sda1 /mnt/usb' /proc/mounts; }
expect "stick mounted from /dev/sda1" "after it was plugged" "$t" 10 mounted
expect "stick listed in /tmp/usbDevListMore" "after it was plugged" "$t" 5 grep -q HOLIDAY /tmp/usbDevListMore
expect "USB add on the bus (event 1300)" "after it was plugged" "$t" 5 bus_has "^1300 "
say "    $(grep HOLIDAY /tmp/usbDevListMore)"

section "4. Buttons, a timed task, the PON driver"
t=$(now_ns)
znkernel button wifi tap 120
expect "Wi-Fi switched off in the store by the Wi-Fi button" "after the press" "$t" 5 \
    store_is InternetGatewayDevice.X_ZN_WiFi X_ZN_Enable 0
t=$(now_ns)
zncli timer fire InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer.1
expect "sleep timer carried out (sleep mode set)" "after the scheduler's message" "$t" 5 \
    grep -q ' sleepMode ' /var/log/zn_platform.journal
t=$(now_ns)
znkernel pon wan-change 1 >/dev/null
expect "PON mode GPON on the bus (event 199) and in /tmp/FC_ponlink" "after the driver's report" "$t" 5 \
    sh -c 'grep -q "^199 .*GPON" '"$BUS"' && grep -q GPON /tmp/FC_ponlink'

section "5. Hosts leave and return"
# The PC stops answering; from its last frame the agent's sweep and probe decide.
vgw host exec pc sysctl -qw net.ipv4.conf.all.arp_ignore=8 net.ipv6.conf.eth0.disable_ipv6=1
vgw host exec pc ping -c 1 -W 1 192.168.1.1 >/dev/null || true
last=$(now_ns)
say "the PC falls silent"
expect "PC offline" "after its last frame" "$last" 20 host_is "$PC_MAC" ".Active == 0"
expect "PC copied to the OfflineHost table" "after its last frame" "$last" 2 offline_copy "$PC_MAC"

t=$(now_ns)
vgw host del phone
znkernel wlan-leave "$PHONE_MAC" >/dev/null
expect "phone out of range: its port gone, the Wi-Fi driver's word, offline" "after it left" "$t" 5 \
    host_is "$PHONE_MAC" ".Active == 0"
show_hosts

vgw host exec pc sysctl -qw net.ipv4.conf.all.arp_ignore=0
t=$(now_ns)
pc_back() { vgw host exec pc ping -c 1 -W 1 192.168.1.1 >/dev/null; host_is "$PC_MAC" ".Active == 1"; }
expect "PC back online" "after it spoke again" "$t" 20 pc_back

section "6. The stick is removed"
t=$(now_ns)
vgw usb unplug sda1 >/dev/null
expect "USB remove on the bus (event 1301)" "after it was pulled" "$t" 5 bus_has "^1301 "
expect "stick gone from /tmp/usbDevListMore" "after it was pulled" "$t" 5 sh -c '! grep -q HOLIDAY /tmp/usbDevListMore'

section "The gateway now"
host_is "$PHONE_MAC" ".Active == 0" || fail "the phone, gone for good, shows online again"
show_hosts
echo "bus events:"; sed 's/^/    /' "$BUS"
say "demo complete"
[ -z "${DEMO_KEEP_LOG:-}" ] || cp "$AGENT_LOG" "$DEMO_KEEP_LOG"
