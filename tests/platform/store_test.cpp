// The store under load and at its edges, in a private virtual gateway. The
// agent's tests prove what it relies on day to day: the watched counter of
// Hosts, look-ups by name, the later of two entries of a list, deletion of a
// subtree.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "znsutils.h"

namespace {

constexpr uint32_t kHosts = 155, kHost = 156;
constexpr size_t kHostNameOffset = 764, kHostNameWidth = 130;

zns_ia_t host_ia(int i) { return znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 2, "1,%d", i); }
zns_ia_t hosts_ia() { return znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 1, "1"); }

uint16_t hosts_counter(zns_xml_handle_t *h) {
    auto *rec = static_cast<const uint8_t *>(znsXml_GetObjectByOID(h, kHosts, hosts_ia(), 1));
    uint16_t v;
    memcpy(&v, rec + 8, sizeof v);
    return v;
}

std::string host_name(zns_xml_handle_t *h, int i) {
    char out[kHostNameWidth] = "?";
    znsXml_getParameterByOID(h, kHost, host_ia(i), "HostName", out);
    return out;
}

struct List {
    zns_param_list_t *l = newParameterList();
    ~List() { freeParameterList(l); }
};

// Each worker owns 25 Host instances and writes them over and over; the
// store must end with every worker's last write in place.
constexpr int kWorkersPerProcess = 4, kInstancesPerWorker = 25, kRounds = 300;

std::string expected_name(int worker, int round) { return "w" + std::to_string(worker) + "-r" + std::to_string(round); }

void run_worker(int worker) {
    zns_xml_handle_t *h = zns_xmlShmInit();
    for (int r = 0; r < kRounds; r++) {
        int idx = 1 + worker * kInstancesPerWorker + r % kInstancesPerWorker;
        std::string name = expected_name(worker, r);
        uint8_t mac[6] = {0x02, 0, 0, 0, uint8_t(worker), uint8_t(idx)};
        List list;
        setParameterToList(list.l, "HostName", ZNS_TYPE_STRING, name.c_str());
        void *obj = znsXml_GetObjectByOID(h, kHost, host_ia(idx), 1);
        if (!obj) {
            setParameterToList(list.l, "MACAddress", ZNS_TYPE_MAC, mac);
            znsXml_addObjectByOIDIWithParaListIndirect(h, kHost, host_ia(idx), list.l);
        } else if (r % 7 == 0) {
            znsXml_delObjectByOIDIAIndirect(h, kHost, host_ia(idx));
            setParameterToList(list.l, "MACAddress", ZNS_TYPE_MAC, mac);
            znsXml_addObjectByOIDIWithParaListIndirect(h, kHost, host_ia(idx), list.l);
        } else {
            znsXml_setParameterIndirectByParaList(h, znsXmlGetPtrOffset(h, obj), list.l);
        }
    }
    zns_xmlShmDeInit(&h);
}

void run_workers(int first) {
    std::vector<std::thread> threads;
    for (int w = first; w < first + kWorkersPerProcess; w++)
        threads.emplace_back(run_worker, w);
    for (auto &t : threads)
        t.join();
}

} // namespace

TEST(Store, TwoProcessesAndManyThreadsLoseAndTearNothing) {
    zns_xml_handle_t *h = zns_xmlShmInit();
    ASSERT_NE(h, nullptr);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        run_workers(kWorkersPerProcess);
        _exit(0);
    }

    // A text flipping between a full and a short value under lock-free
    // readers, while instances new to the store come and go until their
    // look-up structures are rebuilt: the reader must never miss the object.
    std::atomic<bool> stop{false};
    std::atomic<long> overruns{0}, misses{0};
    ASSERT_EQ(znsXml_addObjectByOIDIAIndirect(h, kHost, host_ia(250), 0, 0), 0);
    std::thread flipper([&] {
        zns_xml_handle_t *fh = zns_xmlShmInit();
        const std::string longest(kHostNameWidth - 1, 'A');
        for (int i = 0; !stop; i++)
            znsXml_setOneParameterByOIDIndirect(fh, kHost, host_ia(250), "HostName", ZNS_TYPE_STRING,
                                                i % 2 ? longest.c_str() : "BB");
        zns_xmlShmDeInit(&fh);
    });
    std::thread churner([] {
        zns_xml_handle_t *ch = zns_xmlShmInit();
        for (int i = 256; i <= 32767; i++) {
            znsXml_addObjectByOIDIAIndirect(ch, kHost, host_ia(i), 0, 0);
            znsXml_delObjectByOIDIAIndirect(ch, kHost, host_ia(i));
        }
        zns_xmlShmDeInit(&ch);
    });
    std::thread reader([&] {
        auto *rec = static_cast<const char *>(znsXml_GetObjectByOID(h, kHost, host_ia(250), 1));
        while (!stop) {
            char copy[kHostNameWidth + 16];
            memset(copy, 'x', sizeof copy);
            misses += znsXml_getParameterByOID(h, kHost, host_ia(250), "HostName", copy) != 0;
            if (strnlen(rec + kHostNameOffset, kHostNameWidth) == kHostNameWidth ||
                strnlen(copy, sizeof copy) >= kHostNameWidth)
                overruns++;
        }
    });
    run_workers(0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    churner.join();
    stop = true;
    flipper.join();
    reader.join();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(overruns, 0);
    EXPECT_EQ(misses, 0);

    for (int w = 0; w < 2 * kWorkersPerProcess; w++) {
        for (int k = 0; k < kInstancesPerWorker; k++) {
            int idx = 1 + w * kInstancesPerWorker + k;
            int last = kRounds - 1 - ((kRounds - 1 - k) % kInstancesPerWorker);
            auto *rec = static_cast<const uint8_t *>(znsXml_GetObjectByOID(h, kHost, host_ia(idx), 1));
            ASSERT_NE(rec, nullptr) << "worker " << w << " instance " << idx;
            EXPECT_EQ(rec[16 + 4], w);
            EXPECT_EQ(rec[16 + 5], idx);
            EXPECT_EQ(host_name(h, idx), expected_name(w, last));
        }
    }
    zns_xmlShmDeInit(&h);
    EXPECT_EQ(h, nullptr);
}

TEST(Store, WritesAreAllOrNothingAndObjectsKeepTheirShape) {
    zns_xml_handle_t *h = zns_xmlShmInit();
    ASSERT_EQ(znsXml_addObjectByOIDIAIndirect(h, kHost, host_ia(230), 0, 0), 0);
    EXPECT_EQ(znsXml_addObjectByOIDIAIndirect(h, kHost, host_ia(230), 0, 0), -1) << "exists already";
    EXPECT_EQ(znsXml_addObjectByOIDIAIndirect(h, kHost, znsXml_ConstructIAValue("f", "g", 1, 2, "2,1"), 0, 0), -1)
        << "no LANDevice.2";
    EXPECT_EQ(znsXml_addObjectByOIDIAIndirect(h, kHost, 0, 0, 0), -1);
    uint32_t off = znsXmlGetPtrOffset(h, znsXml_GetObjectByOID(h, kHost, host_ia(230), 1));
    ASSERT_NE(off, 0u);

    uint16_t c = hosts_counter(h);
    const std::string too_long(kHostNameWidth, 'x');
    uint32_t u = 7;
    struct Bad {
        const char *name;
        uint32_t type;
        const void *value;
    } bads[] = {{"HostName", ZNS_TYPE_STRING, too_long.c_str()},
                {"HostName", ZNS_TYPE_UINT32, &u},
                {"NoSuchParameter", ZNS_TYPE_UINT32, &u},
                {"Active", ZNS_TYPE_BOOL, &u}}; // 7 is no boolean
    for (const Bad &b : bads) {
        List list;
        setParameterToList(list.l, "Vendor", ZNS_TYPE_STRING, "should not land");
        setParameterToList(list.l, b.name, b.type, b.value);
        EXPECT_EQ(znsXml_setParameterIndirectByParaList(h, off, list.l), -1) << b.name;
    }
    char vendor[64] = "?";
    znsXml_getParameterByOID(h, kHost, host_ia(230), "Vendor", vendor);
    EXPECT_STREQ(vendor, "");
    EXPECT_EQ(hosts_counter(h), c);

    zns_xmlShmDeInit(&h);
}
