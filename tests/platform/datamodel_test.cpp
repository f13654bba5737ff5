// The data model's layout: the fields the agent reads by position stay
// where it reads them, and no two fields of a record overlap.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "datamodel.h"

using namespace zns;

namespace {

uint32_t offset_of(uint32_t oid, const char *name) {
    const ObjectLayout *o = dm_object(oid);
    const ParamLayout *p = o ? dm_param(o, name) : nullptr;
    return p ? p->offset : UINT32_MAX;
}

} // namespace

TEST(DataModel, FieldsAreDisjointAndInsideTheirRecords) {
    size_t n = 0;
    const ObjectLayout *objs = dm_objects(&n);
    ASSERT_GT(n, 20u);
    for (size_t i = 0; i < n; i++) {
        const ObjectLayout &o = objs[i];
        std::vector<std::pair<uint32_t, uint32_t>> spans;
        if (o.def->counter_offset >= 0)
            spans.push_back({uint32_t(o.def->counter_offset), uint32_t(o.def->counter_offset) + 2});
        for (size_t p = 0; p < o.param_count; p++) {
            EXPECT_LE(o.params[p].offset + o.params[p].size, o.record_size) << o.def->path << " " << o.params[p].name;
            spans.push_back({o.params[p].offset, o.params[p].offset + o.params[p].size});
        }
        std::sort(spans.begin(), spans.end());
        for (size_t s = 1; s < spans.size(); s++)
            EXPECT_LE(spans[s - 1].second, spans[s].first) << o.def->path;
        if (i > 0) {
            EXPECT_NE(o.parent, nullptr) << o.def->path << " has no parent in the model";
        }
    }
}

TEST(DataModel, FieldsReadByPositionAreWhereTheReadersLook) {
    struct Fixed {
        uint32_t oid;
        const char *name;
        uint32_t offset;
    };
    const Fixed fixed[] = {
        {155, "HostNumberOfEntries", 4}, {156, "UTCDowntime", 0},   {156, "DeviceType", 4},
        {156, "MACAddress", 16},         {156, "IPAddress", 28},    {156, "AddressSource", 45},
        {156, "Layer2Interface", 53},    {156, "InterfaceType", 310}, {156, "X_ZN_IPV6Address", 320},
        {156, "X_ZN_IPV6LocalAddress", 365}, {156, "X_ZN_GUAIPAddress", 410}, {156, "X_ZN_DUID", 455},
        {156, "CustomiseName", 584},     {156, "LeaseTimeRemaining", 736}, {156, "Active", 760},
        {156, "ipv6Active", 761},        {156, "HostName", 764},    {156, "Vendor", 894},
        {159, "UTCDowntime", 0},         {159, "MACAddress", 8},    {161, "DeviceType", 0},
        {161, "MACAddress", 4},          {275, "ResetType", 25},    {389, "X_ZN_Enable", 30},
        {424, "Enable", 46},             {23, "ConnectionType", 86}, {23, "X_ZN_LanInterface", 1739},
        {24, "ConnectionType", 83},      {24, "X_ZN_LanInterface", 2047}, {31, "Leds_Turnoff", 0},
        {33, "Enable", 1},
    };
    for (const Fixed &f : fixed)
        EXPECT_EQ(offset_of(f.oid, f.name), f.offset) << f.oid << " " << f.name;
}

TEST(DataModel, PathsAndInstancesRoundTrip) {
    const ObjectLayout *obj = nullptr;
    const ParamLayout *param = nullptr;
    zns_ia_t ia = 0;
    ASSERT_EQ(dm_parse_path("InternetGatewayDevice.LANDevice.1.Hosts.Host.17.HostName", true, &obj, &ia, &param), 0);
    EXPECT_EQ(obj->def->oid, 156u);
    EXPECT_STREQ(param->name, "HostName");
    EXPECT_EQ(ia, znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 2, "1,%d", 17));
    EXPECT_EQ(dm_format_path(obj, ia), "InternetGatewayDevice.LANDevice.1.Hosts.Host.17");
    EXPECT_EQ(dm_object(155)->def->oid, 155u);
    EXPECT_TRUE(dm_in_subtree(dm_object(161), 155));
    EXPECT_FALSE(dm_in_subtree(dm_object(389), 155));

    for (const char *bad : {"InternetGatewayDevice.LANDevice.01.Hosts", "InternetGatewayDevice.LANDevice.0.Hosts",
                            "InternetGatewayDevice.LANDevice.x.Hosts", "InternetGatewayDevice.LANDevice..Hosts",
                            "InternetGatewayDevice.LANDevice.99999.Hosts", "InternetGatewayDevice.Nope", ""})
        EXPECT_NE(dm_parse_path(bad, true, &obj, &ia, &param), 0) << bad;

    // Instance values: depth and numbers, 0 for anything malformed.
    EXPECT_NE(znsXml_ConstructIAValue("f", "g", 1, 1, "%d", 3), 0u);
    EXPECT_NE(znsXml_ConstructIAValue("f", "g", 1, 1, "1"), znsXml_ConstructIAValue("f", "g", 1, 2, "1,%d", 1));
    for (zns_ia_t bad : {znsXml_ConstructIAValue("f", "g", 1, 2, "1"), znsXml_ConstructIAValue("f", "g", 1, 1, "1,2"),
                         znsXml_ConstructIAValue("f", "g", 1, 1, "%d", 0), znsXml_ConstructIAValue("f", "g", 1, 1, "-1"),
                         znsXml_ConstructIAValue("f", "g", 1, 5, "1,1,1,1,1"), znsXml_ConstructIAValue("f", "g", 1, 1, " 1")})
        EXPECT_EQ(bad, 0u);
}
