#!/usr/bin/env python3
"""The agent's benchmarks, run inside a virtual gateway (tools/vgw/vgw):
  bench.py ingest N lease|neigh|none [table]
                                  N new MACs at once, then N lease messages, N
                                  neighbour confirmations or nothing; with
                                  "table", a wired MAC filter table is there
  bench.py offline N              N silent wired hosts: last frame to Active 0
  bench.py steady N               CPU and wake-ups with N known hosts, quiet and
                                  talking; memory with 0 and N hosts
  bench.py flash SECONDS          store saves while hosts come and go
  bench.py answer IFACE N         (in a LAN host) answers the ARP probes of the
                                  burst's first N MACs, as living hosts would
Each prints one line of "key=value" figures; bench/run.sh makes the tables.
Every timing is taken against a reference measured in the same run: the
kernel's own notifications of the burst, and N runs of the command the
tracker runs for each new MAC when a wired MAC filter table is there."""
import os
import socket
import struct
import subprocess
import sys
import threading
import time

SRC = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SEND = os.path.join(SRC, "tools/vgw/send.py")
AGENT_LOG = "/tmp/agent.out"
HOSTS = "InternetGatewayDevice.LANDevice.1.Hosts"
SAVE_FILE = "/userconfig/config/zns_store.conf"
FIRST = 1 << 24  # the burst's MACs are 02:00:01:00:00:00 and up
FLOODER = "02:00:00:ff:ff:01"
LAN_ETH_TABLE = "/tmp/LanEthmacfilter_table"
TICK = os.sysconf("SC_CLK_TCK")
RTMGRP_NEIGH, RTM_NEWNEIGH, AF_BRIDGE, NDA_LLADDR = 4, 28, 7, 2


def sh(cmd):
    return subprocess.run(cmd, shell=True, check=True, stdout=subprocess.PIPE, text=True).stdout


def mac(i):
    n = FIRST + i
    return "02:00:%02x:%02x:%02x:%02x" % (n >> 24, (n >> 16) & 255, (n >> 8) & 255, n & 255)


def ip(i):  # 192.168.1.2 and up; N stays under 250
    return "192.168.1.%d" % (2 + i)


def wait(cond, seconds, what, every=0.002):
    end = time.monotonic() + seconds
    while not cond():
        if time.monotonic() > end:
            sys.exit("bench: %s did not happen within %d s" % (what, seconds))
        time.sleep(every)
    return time.monotonic()


# ---- the gateway and its agent -----------------------------------------------
def start_agent():
    sh("vgw lan up && echo 3 > /tmp/zn_event_agent_lanhost_debug && echo 02:00:00:00:00:01 > /etc/macAddrBase")
    # Entries outlive the run unless a benchmark makes them silent.
    sh("ip link set br0 type bridge ageing_time 360000")
    sh("ip neigh replace 192.168.1.254 lladdr 02:00:00:00:99:99 dev br0 nud stale")
    agent = subprocess.Popen(["zn_event_agent"], stdout=open(AGENT_LOG, "w"), stderr=subprocess.STDOUT)
    # The tracker flushes br0's neighbours last before its loop, and reads
    # the debug level on its first tick.
    wait(lambda: not sh("ip neigh show 192.168.1.254 dev br0").strip()
         and "macAgeingDetect timer call back" in open(AGENT_LOG).read(), 30, "the agent's start", 0.1)
    sh("vgw host add flood eth1 %s && vgw host exec flood sysctl -qw net.ipv6.conf.eth0.disable_ipv6=1" % FLOODER)
    return agent


def burst(n):
    sh("vgw host exec flood python3 %s macs eth0 %d %d" % (SEND, FIRST, n))


def cpu(pid):
    """CPU seconds of the agent: user, system."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return int(fields[11]) / TICK, int(fields[12]) / TICK


def status(pid, key, where="status"):
    with open("/proc/%d/%s" % (pid, where)) as f:
        return next(int(line.split()[1]) for line in f if line.startswith(key + ":"))


def memory(pid):
    """RSS, its share of shared pages (PSS) and anonymous memory, in KiB."""
    return status(pid, "VmRSS"), status(pid, "Pss", "smaps_rollup"), status(pid, "RssAnon")


def switches(pid):
    """Context switches of all the agent's threads: each is a wake-up."""
    total = 0
    for task in os.listdir("/proc/%d/task" % pid):
        with open("/proc/%d/task/%s/status" % (pid, task)) as f:
            total += sum(int(l.split()[1]) for l in f if "ctxt_switches:" in l)
    return total


def children(pid):
    return any(open("/proc/%d/task/%s/children" % (pid, t)).read().strip() for t in os.listdir("/proc/%d/task" % pid))


class Log:
    """The agent's log, read as it grows."""

    def __init__(self):
        self.f, self.text = open(AGENT_LOG), ""

    def read(self):
        self.text += self.f.read()
        return self.text

    def count(self, what):
        return self.read().count(what)


def host_objects():
    """MAC to Active of the store's Host objects."""
    out, hosts, macs = sh("znsUtil -l " + HOSTS), {}, {}
    for line in out.splitlines():
        path, _, value = line.partition("=")
        if ".Host." not in path:
            continue
        obj, _, param = path.rpartition(".")
        if param == "MACAddress":
            macs[obj] = value.lower()
        elif param == "Active":
            hosts[obj] = value
    return {macs[o]: hosts.get(o) for o in macs}


class KernelListener(threading.Thread):
    """A plain netlink listener: arrival times of the bridge's new entries."""

    def __init__(self, wanted):
        super().__init__(daemon=True)
        self.wanted, self.times = wanted, {}
        self.s = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
        self.s.setsockopt(socket.SOL_SOCKET, 33, 16 << 20)  # SO_RCVBUFFORCE: never the reference that overflows
        self.s.bind((0, RTMGRP_NEIGH))
        self.start()

    def run(self):
        while True:
            data, now = self.s.recv(1 << 16), time.monotonic()
            while len(data) >= 16:
                size, kind = struct.unpack_from("=IH", data)
                if kind == RTM_NEWNEIGH and data[16] == AF_BRIDGE:
                    at = 28
                    while at + 4 <= size:
                        alen, atype = struct.unpack_from("=HH", data, at)
                        if alen < 4:
                            break
                        if atype == NDA_LLADDR and alen == 10:
                            m = ":".join("%02x" % b for b in data[at + 4:at + 10])
                            if m in self.wanted:
                                self.times.setdefault(m, now)
                        at += (alen + 3) & ~3
                data = data[(size + 3) & ~3:] if size >= 16 else b""

    def done(self):
        return len(self.times) == len(self.wanted)


def showmacs_runs(n):
    """Seconds for n runs of the tracker's per-MAC command (with a wired filter
    table), through a pipe as it does."""
    start = time.monotonic()
    for _ in range(n):
        with os.popen("brctl showmacs br0 ") as p:
            p.read()
    return time.monotonic() - start


def talk(n):
    """Every host sends a frame each second until hush()."""
    return subprocess.Popen(["bash", "-c", "while :; do vgw host exec flood python3 %s macs eth0 %d %d;"
                             " sleep 1; done" % (SEND, FIRST, n)], start_new_session=True)


def hush(talker):
    os.killpg(talker.pid, 9)  # the loop and a burst it may be sending
    talker.wait()


def records_of_burst(agent, log, n):
    """Sends the burst; returns the kernel's span, the agent's and n command runs, in s."""
    macs = {mac(i) for i in range(n)}
    kernel = KernelListener(macs)
    burst(n)
    wait(kernel.done, 30, "the kernel's notifications")
    first, last = min(kernel.times.values()), max(kernel.times.values())
    # A record is complete when its report was read and the command it ran
    # has ended.
    seen = lambda: log.count("nlmsgType=RTM_NEWNEIGH macAddr:02:00:01") >= n and not children(agent.pid)
    records = wait(seen, 120, "%d host records" % n)
    return last - first, records - first, showmacs_runs(n)


def lease_messages(n, first=0):
    s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)  # blocking: a full queue waits, loses nothing
    for i in range(first, first + n):
        s.sendto(("%s,86400,%s,pc%d" % (mac(i), ip(i), i)).encode(), "/tmp/leasetime_unix")


def neighbour_confirmations(n):
    batch = "".join("neigh replace %s lladdr %s dev br0 nud reachable\n" % (ip(i), mac(i)) for i in range(n))
    subprocess.run(["ip", "-batch", "-"], input=batch, text=True, check=True)


def published(n):
    """A condition: each of the first n MACs has had a Host object with Active 1.
    The first may already be probed and offline before the last is published."""
    seen = set()

    def cond():
        seen.update(m for m, active in host_objects().items() if active == "1")
        return all(mac(i) in seen for i in range(n))
    return cond


def publish(agent, log, n):
    """N hosts with records and leases, each published once."""
    records_of_burst(agent, log, n)
    lease_messages(n)
    wait(published(n), 30, "%d Host objects" % n, 0.01)


# ---- the benchmarks ------------------------------------------------------------
def ingest(n, kind, table):
    agent = start_agent()
    log = Log()
    if table:  # it names no MAC of the burst, so each new MAC is looked up with brctl
        with open(LAN_ETH_TABLE, "w") as f:
            f.write("%s - eth9\n" % FLOODER)
    kernel, records, runs = records_of_burst(agent, log, n)
    objects = float("nan")
    if kind != "none":
        start = time.monotonic()
        (lease_messages if kind == "lease" else neighbour_confirmations)(n)
        objects = wait(published(n), 120, "%d Host objects" % n, 0.01) - start
    lost = log.count("neighbor socket overflow")
    print("n=%d kind=%s table=%d kernel_ms=%.1f records_ms=%.1f showmacs_ms=%.1f objects_ms=%.1f overflows=%d"
          % (n, kind, table, kernel * 1e3, records * 1e3, runs * 1e3, objects * 1e3, lost))


def offline(n):
    agent = start_agent()
    log = Log()
    sh("ip link set br0 type bridge ageing_time 30000")
    records_of_burst(agent, log, n)
    talker = talk(n)  # no host falls silent before all are published
    lease_messages(n)
    wait(published(n), 30, "%d Host objects" % n, 0.01)
    hush(talker)
    burst(n)  # the last frame of each host
    last = time.monotonic()  # the frames leave in the burst's last milliseconds, after its start-up
    down = {}
    end = last + 40
    while len(down) < n and time.monotonic() < end:
        now = time.monotonic()
        for m, active in host_objects().items():
            if active == "0" and m not in down:
                down[m] = now - last
        time.sleep(0.05)
    delays = sorted(down.values())
    inside = sum(9 <= d <= 11 for d in delays)
    pick = lambda q: delays[min(len(delays) - 1, int(q * len(delays)))] if delays else float("nan")
    print("n=%d offline=%d inside=%d min_s=%.1f median_s=%.1f p90_s=%.1f max_s=%.1f probes=%d"
          % (n, len(delays), inside, pick(0), pick(0.5), pick(0.9), pick(1), log.count("send arpping to mac=")))


def answer(iface, n):
    s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0806))
    s.bind((iface, 0))
    while True:
        frame = s.recv(128)
        if len(frame) < 42 or frame[20:22] != b"\0\1":  # an ARP request
            continue
        i = frame[41] - 2
        if frame[38:41] != bytes([192, 168, 1]) or not 0 <= i < n:
            continue
        me = bytes.fromhex(mac(i).replace(":", ""))
        s.send(frame[6:12] + me + b"\x08\x06" + frame[14:20] + b"\0\2" + me + frame[38:42] + frame[22:32])


def steady(n):
    agent = start_agent()
    log = Log()
    time.sleep(5)  # a tick of every timer, so that the empty agent has warmed up
    before = memory(agent.pid)
    subprocess.Popen(["vgw", "host", "exec", "flood", "python3", os.path.abspath(__file__), "answer", "eth0", str(n)])
    publish(agent, log, n)
    # Measured at the log level of a gateway, once every host has been
    # probed at least once.
    with open("/tmp/zn_event_agent_lanhost_debug", "w") as f:
        f.write("0\n")
    time.sleep(15)
    figures = "n=%d rss0=%d pss0=%d anon0=%d rss1=%d pss1=%d anon1=%d" % ((n,) + before + memory(agent.pid))
    for phase in ("quiet", "talking"):
        talker = talk(n) if phase == "talking" else None
        cpu0, sw0, probes0 = cpu(agent.pid), switches(agent.pid), arp_requests()
        time.sleep(60)
        cpu1, sw1, probes1 = cpu(agent.pid), switches(agent.pid), arp_requests()
        if talker:
            hush(talker)
        pct = lambda k: (cpu1[k] - cpu0[k]) / 60 * 100
        figures += " %s_cpu_pct=%.3f %s_user_pct=%.3f %s_wakeups=%.1f %s_probes=%.1f" % (
            phase, pct(0) + pct(1), phase, pct(0), phase, (sw1 - sw0) / 60, phase, (probes1 - probes0) / 60)
    active = sum(host_objects().get(mac(i)) == "1" for i in range(n))
    print(figures + " active=%d" % active)


def arp_requests():
    """Frames the gateway has sent on br0, the agent's probes among them."""
    return int(sh("ip -s link show br0 | awk 'f { print $2; exit } /TX:/ { f = 1 }'"))


def save_watcher(saves):
    """Appends the time of each save: the write time of each new save file,
    which a late poll does not shift."""
    def watch():
        inode = None
        while True:
            try:
                st = os.stat(SAVE_FILE)
                if st.st_ino != inode:
                    inode = st.st_ino
                    saves.append(st.st_mtime_ns / 1e9)
            except FileNotFoundError:
                pass
            time.sleep(0.01)
    threading.Thread(target=watch, daemon=True).start()


def flash(seconds):
    agent = start_agent()
    log = Log()
    n = 40
    publish(agent, log, n)
    saves = []
    save_watcher(saves)
    time.sleep(0.1)
    start, started, step = time.monotonic(), time.time(), 0
    while time.monotonic() - start < seconds:
        # Each second one host leaves (its bridge entry goes) and comes back
        # with a frame and a lease.
        i = step % n
        subprocess.run(["bridge", "fdb", "del", mac(i), "dev", "eth1", "master"], stderr=subprocess.DEVNULL)
        sh("vgw host exec flood python3 %s macs eth0 %d 1" % (SEND, FIRST + i))
        time.sleep(0.2)
        lease_messages(1, i)
        step += 1
        time.sleep(max(0.0, start + step - time.monotonic()))
    saves = [t for t in saves if t > started]  # the first is the file's state when the watch began
    gaps = [b - a for a, b in zip(saves, saves[1:])]
    print("seconds=%d changes=%d saves=%d per_min=%.1f min_gap_s=%.2f"
          % (seconds, step, len(saves), len(saves) / seconds * 60, min(gaps) if gaps else float("nan")))


if __name__ == "__main__":
    if os.environ.get("VGW_INSIDE") != "1":
        sys.exit("bench.py runs inside a virtual gateway: tools/vgw/vgw run -- python3 bench/bench.py ...")
    what, args = sys.argv[1], sys.argv[2:]
    {"ingest": lambda: ingest(int(args[0]), args[1], args[2:] == ["table"]), "offline": lambda: offline(int(args[0])),
     "steady": lambda: steady(int(args[0])), "flash": lambda: flash(int(args[0])),
     "answer": lambda: answer(args[0], int(args[1]))}[what]()
