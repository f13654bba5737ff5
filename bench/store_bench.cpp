// Where the time of one host synchronisation goes, with a full Host table:
// the tracker's own synchronisation, the store calls behind it, and the
// lease-file search, in the process and, as it was, through the shell.
// Writes the gateway's store
// and /etc/dnsmasq.leases: run inside the sandbox only,
//   tools/vgw/vgw run -- build/bench/store_bench
#include <benchmark/benchmark.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lanhost.h"
#include "lanhost_lease_search.h"
#include "lanhost_store.h"
#include "lanhost_table.h"

namespace {

constexpr int kHosts = 250;
constexpr const char kLeaseFile[] = "/etc/dnsmasq.leases";

void host_mac(int i, uint8_t (&mac)[6]) {
    const uint8_t m[6] = {2, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)};
    memcpy(mac, m, sizeof mac);
}

std::string host_ip(int i) { return "192.168.1." + std::to_string(i); }

// The record of the last host of the full table.
lhost *lastHost;

// A record per host as the bridge and its lease made it, each published by
// the tracker's own synchronisation, and a lease file with a line for each.
void fill_table() {
    storeHandle = zns_xmlShmInit();
    FILE *leases = fopen(kLeaseFile, "we");
    for (int i = 1; i <= kHosts; i++) {
        lhost *h = list_init_add_lhost();
        host_mac(i, h->mac);
        lanhost_mac_text(h->mac, true, h->macAddr);
        lanhost_copy_text(h->brPortName, "eth1");
        lanhost_copy_text(h->ipAddr, host_ip(i).c_str());
        lanhost_copy_text(h->ipAddrSource, "DHCP");
        lanhost_copy_text(h->HostName, "host");
        h->active = 1;
        wrapperZns_lanhost_update(h->mac, h->ipAddr, AF_INET, 0);
        char mac[kMacTextSize];
        lanhost_mac_text(h->mac, false, mac);
        if (leases)
            fprintf(leases, "%d %s %s host-%d * 86400\n", 1000 + i, mac, h->ipAddr, i);
        lastHost = h;
    }
    if (leases)
        fclose(leases);
}

// One synchronisation of the last host that changes its name: look-ups over
// every table it touches and one write. With a static address the tracker
// also searches the lease file for it.
void BM_HostSync(benchmark::State &state) {
    lhost *h = lastHost;
    const bool leaseSearch = state.range(0) != 0;
    int round = 0;
    for (auto _ : state) {
        lanhost_copy_text(h->ipAddrSource, leaseSearch ? "Static" : "DHCP");
        lanhost_copy_text(h->HostName, ++round % 2 ? "odd" : "even");
        wrapperZns_lanhost_update(h->mac, h->ipAddr, AF_INET, 0);
    }
}
BENCHMARK(BM_HostSync)->ArgName("lease_search")->Arg(0)->Arg(1);

// The tracker's search of the lease file for the last host, alone.
void BM_LeaseFileSearch(benchmark::State &state) {
    const std::string address = host_ip(kHosts);
    for (auto _ : state) {
        char line[128];
        if (!lanhost_lease_first_line(address.c_str(), kLeaseFile, line, sizeof line))
            state.SkipWithError("no lease line");
    }
}
BENCHMARK(BM_LeaseFileSearch);

// The same search as the tracker ran it before: "grep ADDRESS FILE" through a pipe.
void BM_LeaseFileGrep(benchmark::State &state) {
    const std::string cmd = "grep " + host_ip(kHosts) + " " + kLeaseFile;
    for (auto _ : state) {
        char line[128] = "";
        FILE *out = popen(cmd.c_str(), "r");
        if (!out || !fgets(line, sizeof line, out))
            state.SkipWithError("no lease line");
        if (out)
            pclose(out);
    }
}
BENCHMARK(BM_LeaseFileGrep);

// The store calls one synchronisation is made of.
void BM_HostFindByMac(benchmark::State &state) {
    lhost *h = lastHost;
    for (auto _ : state)
        benchmark::DoNotOptimize(lanhost_host_find(h->mac));
}
BENCHMARK(BM_HostFindByMac);

void BM_GetParameter(benchmark::State &state) {
    char name[130];
    for (auto _ : state)
        benchmark::DoNotOptimize(
            znsXml_getParameterByOID(storeHandle, kOidHost, lanhost_instance(kHosts), "HostName", name));
}
BENCHMARK(BM_GetParameter);

void BM_GetObjectByName(benchmark::State &state) {
    const std::string path = "InternetGatewayDevice.LANDevice.1.Hosts.Host." + std::to_string(kHosts) + ".HostName";
    for (auto _ : state)
        benchmark::DoNotOptimize(znsXml_GetObjectByName(storeHandle, path.c_str(), 1));
}
BENCHMARK(BM_GetObjectByName);

// A write that changes one field of a host, under the writers' lock.
void BM_SetParameter(benchmark::State &state) {
    uint32_t uptime = 0;
    for (auto _ : state) {
        uptime++;
        znsXml_setOneParameterByOIDIndirect(storeHandle, kOidHost, lanhost_instance(kHosts / 2), "StartUptime",
                                            ZNS_TYPE_UINT32, &uptime);
    }
}
BENCHMARK(BM_SetParameter);

// A host leaving the table and coming back at the same index.
void BM_DeleteAndAddHost(benchmark::State &state) {
    lhost *h = lastHost;
    zns_param_list_t *list = newParameterList();
    setParameterToList(list, "MACAddress", ZNS_TYPE_MAC, h->mac);
    for (auto _ : state) {
        znsXml_delObjectByOIDIAIndirect(storeHandle, kOidHost, lanhost_instance(kHosts));
        znsXml_addObjectByOIDIWithParaListIndirect(storeHandle, kOidHost, lanhost_instance(kHosts), list);
    }
    freeParameterList(list);
}
BENCHMARK(BM_DeleteAndAddHost);

} // namespace

int main(int argc, char **argv) {
    const char *inside = getenv("VGW_INSIDE");
    if (!inside || strcmp(inside, "1") != 0) {
        fprintf(stderr, "store_bench writes the gateway's store and %s: run it in tools/vgw/vgw run\n", kLeaseFile);
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    fill_table();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
