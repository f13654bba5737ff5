// Host names and addresses at the edges of the DHCP paths: a lease message
// with an odd address field, a snooped request with an empty name, and a
// name report when the gb2312 converter is missing. Read back from the store.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "lanhost.h"
#include "lanhost_charset.h"
#include "lanhost_dhcp.h"
#include "lanhost_store.h"
#include "lanhost_useragent.h"
#include "shell.h"

using zntest::sh;

namespace {

constexpr const char *kMac = "02:00:00:00:60:01";

class DhcpEdges : public testing::Test {
protected:
    static void SetUpTestSuite() { storeHandle = zns_xmlShmInit(); }
    void SetUp() override {
        ASSERT_NE(storeHandle, nullptr);
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, pair_), 0);
        host_ = list_init_add_lhost();
        lanhost_copy_text(host_->macAddr, kMac);
        macStr_to_bytes(host_->mac, kMac);
        lanhost_copy_text(host_->brPortName, "eth1");
    }
    void TearDown() override {
        for (uint32_t oid : {kOidHost, kOidHostCustomise, kOidTempMacTable})
            znsXml_delObjectByOIDIAIndirect(storeHandle, oid, lanhost_instance(1));
        list_del_lhost(host_);
        close(pair_[0]);
        close(pair_[1]);
    }
    void send(const void *data, size_t len) { ::send(pair_[1], data, len, 0); }
    std::string stored(const char *param) {
        int index;
        char out[256] = "<no Host object>";
        if (lanhost_host_find(host_->mac, &index))
            znsXml_getParameterByOID(storeHandle, kOidHost, lanhost_instance(index), param, out);
        return out;
    }
    int pair_[2];
    lhost *host_;
};

} // namespace

// Runs first: the converter's modules must be gone before anything opens one.
TEST_F(DhcpEdges, WithoutTheConverterANameReportLeavesNoName) {
    ASSERT_EQ(sh("rm -rf /usr/lib/*/gconv /usr/lib/gconv").status, 0);
    char probe[8];
    ASSERT_EQ(hostNameToUtf8("PC", 2, probe, sizeof probe), -1) << "the converter still opens";
    dhcpRequestEntry entry{nullptr, "02:00:00:00:60:01", "", "old", ""};
    const std::string report = "bridge_dhcp_option,ip=192.168.1.60,name=laptop";
    lanhost_dhcp_option_update(&entry, report.data(), report.size());
    EXPECT_STREQ(entry.hostName, "");
    EXPECT_STREQ(entry.requestedIp, "192.168.1.60");
}

TEST_F(DhcpEdges, ALeaseRefusesOnlyAnAddressBeginningWithAStar) {
    const struct {
        const char *message;
        const char *address; // nullptr: refused
    } rows[] = {
        {"02:00:00:00:60:01,3600,192.168.1.60,laptop", "192.168.1.60"},
        {"02:00:00:00:60:01,3600,,laptop", "laptop"},
        {"02:00:00:00:60:01,3600,*,laptop", nullptr},
        {"02:00:00:00:60:01,3600,$(touch /tmp/x),pc", "$(touch /tmp/x)"},
    };
    for (const auto &r : rows) {
        send(r.message, strlen(r.message));
        zn_event_lanhost_dhcpSockRead_cb(pair_[0], EV_READ, nullptr);
        EXPECT_EQ(stored("IPAddress"), r.address ? r.address : "<no Host object>") << r.message;
        EXPECT_STREQ(host_->ipAddr, r.address ? r.address : "") << r.message;
        EXPECT_NE(access("/tmp/x", F_OK), 0) << r.message;
        TearDown();
        SetUp();
    }
}

TEST_F(DhcpEdges, AnEmptyNameOptionGivesTheDefaultName) {
    const std::string wan = "znsUtil -s InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1 ";
    ASSERT_EQ(sh(wan + "ConnectionType string IP_Bridged && " + wan +
                 "X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2")
                  .status,
              0);
    using Bytes = std::vector<uint8_t>;
    const struct {
        Bytes name; // option 12 whole, or nothing
        uint32_t devtype;
        const char *stored;
    } rows[] = {
        {{12, 3, 'n', 'e', 'w'}, 0, "new"},
        {{}, 0, "laptop"},
        {{12, 0}, 0, "PC"},
        {{12, 0}, 1, "Phone"},
    };
    for (const auto &r : rows) {
        if (r.devtype) {
            zns_param_list_t *list = newParameterList();
            setParameterToList(list, "MACAddress", ZNS_TYPE_MAC, host_->mac);
            setParameterToList(list, "DeviceType", ZNS_TYPE_UINT32, &r.devtype);
            znsXml_addObjectByOIDIWithParaListIndirect(storeHandle, kOidTempMacTable, lanhost_instance(1), list);
            freeParameterList(list);
        }
        lanhost_copy_text(host_->HostName, "laptop");
        Bytes request(kDhcpOptionsAt, 0);
        const Bytes options = {53, 1, 3, 61, 7, 1, 2, 0, 0, 0, 0x60, 1, 50, 4, 192, 168, 1, 60};
        request.insert(request.end(), options.begin(), options.end());
        request.insert(request.end(), r.name.begin(), r.name.end());
        request.push_back(255);
        send(request.data(), request.size());
        zn_event_lanhost_bridge_dhcpSockRead_cb(pair_[0], EV_READ, nullptr);
        EXPECT_EQ(stored("HostName"), r.stored) << r.name.size();
        TearDown();
        SetUp();
    }
}
