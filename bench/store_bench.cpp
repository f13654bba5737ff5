// Cost of the store operations on the host tracker's hot paths, with a full
// Host table. Run inside the sandbox: tests/sandbox/vgw run -- build/bench/store_bench
#include <benchmark/benchmark.h>

#include <cstring>

#include "znsutils.h"

namespace {

constexpr uint32_t kHost = 156;
constexpr int kHosts = 255;

zns_ia_t host_ia(int i) { return znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 2, "1,%d", i); }

zns_xml_handle_t *full_store() {
    static zns_xml_handle_t *h = [] {
        zns_xml_handle_t *s = zns_xmlShmInit();
        for (int i = 1; i <= kHosts; i++) {
            uint8_t mac[6] = {2, 0, 0, 0, 0, uint8_t(i)};
            zns_param_list_t *l = newParameterList();
            setParameterToList(l, "MACAddress", ZNS_TYPE_MAC, mac);
            znsXml_addObjectByOIDIWithParaListIndirect(s, kHost, host_ia(i), l);
            freeParameterList(l);
        }
        return s;
    }();
    return h;
}

// What a look-up of a host by MAC costs: a scan of every index.
void BM_HostScanByMac(benchmark::State &state) {
    zns_xml_handle_t *h = full_store();
    const uint8_t last[6] = {2, 0, 0, 0, 0, kHosts};
    for (auto _ : state) {
        void *found = nullptr;
        for (int i = 1; i <= kHosts && !found; i++) {
            auto *obj = static_cast<uint8_t *>(znsXml_GetObjectByOID(h, kHost, host_ia(i), 1));
            if (obj && memcmp(obj + 16, last, 6) == 0)
                found = obj;
        }
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(BM_HostScanByMac);

void BM_GetObjectByName(benchmark::State &state) {
    zns_xml_handle_t *h = full_store();
    for (auto _ : state)
        benchmark::DoNotOptimize(znsXml_GetObjectByName(h, "InternetGatewayDevice.LANDevice.1.Hosts", 1));
}
BENCHMARK(BM_GetObjectByName);

// A write that changes one field of a host, under the writers' lock.
void BM_SetParameter(benchmark::State &state) {
    zns_xml_handle_t *h = full_store();
    uint32_t uptime = 0;
    for (auto _ : state) {
        uptime++;
        znsXml_setOneParameterByOIDIndirect(h, kHost, host_ia(128), "StartUptime", ZNS_TYPE_UINT32, &uptime);
    }
}
BENCHMARK(BM_SetParameter);

} // namespace

BENCHMARK_MAIN();
