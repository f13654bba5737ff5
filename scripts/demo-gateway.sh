#!/usr/bin/env bash
# The demo's gateway, run inside `vgw run`: never on a real machine.
set -euo pipefail
[ "${VGW_INSIDE:-}" = 1 ] || { echo "run me through tests/sandbox/vgw run" >&2; exit 2; }

hosts() {
    echo "--- store: $1"
    znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts |
        grep -E 'HostNumberOfEntries|\.(MACAddress|IPAddress|AddressSource|HostName|Layer2Interface|Active|UTCDowntime)=' |
        sed 's/^InternetGatewayDevice.LANDevice.1.Hosts.//'
}

vgw lan up
echo 02:00:00:00:00:01 > /etc/macAddrBase
vgw host add pc eth1 02:00:00:00:10:01 192.168.1.10/24
vgw host add phone ra0.0 02:00:00:00:20:02 192.168.1.20/24
vgw host add laptop lan2 02:00:00:00:30:03 192.168.1.30/24
echo 3 > /tmp/zn_event_agent_lanhost_debug

znsMonitor > /tmp/bus.log &
zn_event_agent > /tmp/agent.log 2>&1 &
agent=$!
sleep 2
echo "--- zn_event_agent running as pid $agent; its sockets:"
grep -E 'leasetime|dhcp6s|radvd' /proc/net/unix | awk '{print "unix " $NF}' | sort -u
echo "--- kernel-component log:"; znkernel log | cut -c1-100

for h in pc phone laptop; do vgw host exec "$h" ping -c 2 -W 1 192.168.1.1 >/dev/null || true; done
sleep 3
hosts "three hosts have talked to the gateway"

echo "--- the phone opens a web page; the kernel module reports its User-Agent"
znkernel ua report 02:00:00:00:20:02 "GET / HTTP/1.1 User-Agent: Mozilla/5.0 (iPhone; CPU iPhone OS 17_0) Mobile" || true
echo "--- the phone leaves the Wi-Fi, the laptop keeps talking, the pc falls silent"
znkernel wlan-leave 02:00:00:00:20:02 || true
for i in $(seq 1 12); do vgw host exec laptop ping -c 1 -W 1 192.168.1.1 >/dev/null || true; sleep 1; done
hosts "12 seconds later"

echo "--- bus events:"; cat /tmp/bus.log
echo "--- last lines of the agent's log:"; tail -n 15 /tmp/agent.log
kill "$agent"
