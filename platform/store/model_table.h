// The gateway's data model and its factory defaults. Offsets given here are
// fixed because the agent reads those fields straight from the record;
// every other field is placed by the model (offset -1).
#pragma once

#include "datamodel.h"

namespace zns {
namespace { // NOLINT(cert-dcl59-cpp): the tables of datamodel.cpp, its only includer

constexpr uint32_t S = ZNS_TYPE_STRING, U8 = ZNS_TYPE_BYTE, U16 = ZNS_TYPE_UINT16, U32 = ZNS_TYPE_UINT32,
                   I32 = ZNS_TYPE_INT32, MAC = ZNS_TYPE_MAC, BOOL = ZNS_TYPE_BOOL;

constexpr ParamDef kDeviceInfo[] = {
    {"Manufacturer", S, -1, 65},    {"ModelName", S, -1, 65},         {"SerialNumber", S, -1, 65},
    {"SoftwareVersion", S, -1, 65}, {"X_CMCC_UpLinkType", S, -1, 16},
};
constexpr ParamDef kLanDevice[] = {
    {"LANEthernetInterfaceNumberOfEntries", U32, -1, 4},
    {"LANWLANConfigurationNumberOfEntries", U32, -1, 4},
};
constexpr ParamDef kLanHostConfig[] = {
    {"DHCPServerEnable", BOOL, -1, 1}, {"MinAddress", S, -1, 16},     {"MaxAddress", S, -1, 16},
    {"SubnetMask", S, -1, 16},         {"DHCPLeaseTime", I32, -1, 4},
};
constexpr ParamDef kIpInterface[] = {
    {"Enable", BOOL, -1, 1},
    {"IPInterfaceIPAddress", S, -1, 16},
    {"IPInterfaceSubnetMask", S, -1, 16},
    {"X_CT-COM_IPv6Address", S, -1, 64},
};
constexpr ParamDef kLanEthernet[] = {
    {"Enable", BOOL, -1, 1},
    {"Name", S, -1, 16},
    {"Status", S, -1, 16},
    {"MaxBitRate", S, -1, 8},
};
constexpr ParamDef kWlanConfig[] = {
    {"Enable", BOOL, -1, 1},
    {"Name", S, -1, 16},
    {"SSID", S, -1, 33},
    {"Standard", S, -1, 16},
};
constexpr ParamDef kHosts[] = {
    {"HostNumberOfEntries", U16, 4, 2},
};
constexpr ParamDef kHost[] = {
    {"UTCDowntime", U32, 0, 4},
    {"DeviceType", U32, 4, 4},
    {"MACAddress", MAC, 16, 6},
    {"IPAddress", S, 28, 17},
    {"AddressSource", S, 45, 8},
    {"Layer2Interface", S, 53, 257},
    {"InterfaceType", S, 310, 10},
    {"X_ZN_IPV6Address", S, 320, 45},
    {"X_ZN_IPV6LocalAddress", S, 365, 45},
    {"X_ZN_GUAIPAddress", S, 410, 45},
    {"X_ZN_DUID", S, 455, 129},
    {"CustomiseName", S, 584, 152},
    {"LeaseTimeRemaining", I32, 736, 4},
    {"Active", BOOL, 760, 1},
    {"ipv6Active", BOOL, 761, 1},
    {"HostName", S, 764, 130},
    {"Vendor", S, 894, 64},
    {"StartUptime", U32, -1, 4},
    {"X_ZN_V6LeaseTimeRemaining", I32, -1, 4},
};
constexpr ParamDef kOfflineHost[] = {
    {"UTCDowntime", U32, 0, 4},
    {"MACAddress", MAC, 8, 6},
    {"HostName", S, -1, 130},
    {"AddressSource", S, -1, 8},
    {"IPAddress", S, -1, 17},
    {"Layer2Interface", S, -1, 257},
    {"InterfaceType", S, -1, 10},
    {"CustomiseName", S, -1, 152},
    {"DeviceType", U32, -1, 4},
    {"X_ZN_IPV6Address", S, -1, 45},
    {"X_ZN_IPV6LocalAddress", S, -1, 45},
    {"X_ZN_GUAIPAddress", S, -1, 45},
};
constexpr ParamDef kTempMac[] = {
    {"DeviceType", U32, 0, 4},
    {"MACAddress", MAC, 4, 6},
};
constexpr ParamDef kHostCustomise[] = {
    {"MACAddress", MAC, -1, 6},
    {"CustomiseName", S, -1, 152},
};
constexpr ParamDef kWanCommon[] = {
    {"WANAccessType", S, -1, 16},
    {"X_ZN_WANAccessType", S, -1, 16},
    {"PhysicalLinkStatus", S, -1, 16},
};
constexpr ParamDef kWanIpConnection[] = {
    {"ConnectionType", S, 86, 32},    {"X_ZN_LanInterface", S, 1739, 512},
    {"Enable", BOOL, -1, 1},          {"Name", S, -1, 64},
    {"ConnectionStatus", S, -1, 16},  {"AddressingType", S, -1, 16},
    {"ExternalIPAddress", S, -1, 16},
};
constexpr ParamDef kWanPppConnection[] = {
    {"ConnectionType", S, 83, 32}, {"X_ZN_LanInterface", S, 2047, 512}, {"Enable", BOOL, -1, 1},
    {"Name", S, -1, 64},           {"ConnectionStatus", S, -1, 16},     {"Username", S, -1, 65},
};
constexpr ParamDef kSystemConfig[] = {
    {"ResetType", U8, 25, 1},
};
constexpr ParamDef kWifi[] = {
    {"X_ZN_Enable", BOOL, 30, 1},
};
constexpr ParamDef kRadio[] = {
    {"Enable", BOOL, -1, 1},
    {"OperatingFrequencyBand", S, -1, 8},
    {"Channel", U32, -1, 4},
};
constexpr ParamDef kSsid[] = {
    {"Enable", BOOL, -1, 1},
    {"SSIDAdvertisementEnabled", BOOL, -1, 1},
    {"SSID", S, -1, 33},
    {"Name", S, -1, 16},
};
constexpr ParamDef kSsidSecurity[] = {
    {"ModeEnabled", S, -1, 33},
    {"KeyPassphrase", S, -1, 65},
};
constexpr ParamDef kWps[] = {
    {"Enable", BOOL, -1, 1},
    {"X_ZN_Action", U8, -1, 1},
};
constexpr ParamDef kMesh[] = {
    {"Enable", BOOL, 46, 1},
    {"OnboardingTrigger", BOOL, -1, 1},
    {"Role", S, -1, 16},
};
constexpr ParamDef kLed[] = {
    {"Leds_Turnoff", BOOL, 0, 1},
};
constexpr ParamDef kSleepTimer[] = {
    {"Enable", BOOL, 1, 1},
    {"Day", S, -1, 32},
    {"Time", S, -1, 8},
    {"Active", BOOL, -1, 1},
};
constexpr ParamDef kBridgeData[] = {
    {"InterfaceName", S, -1, 64}, {"sessionID", U32, -1, 4}, {"smac", S, -1, 64},
    {"dmac", S, -1, 64},          {"ip", S, -1, 64},         {"dns", S, -1, 64},
};
constexpr ParamDef kTimedTask[] = {
    {"Enable", BOOL, -1, 1},
    {"Time", S, -1, 32},
    {"Action", S, -1, 32},
};
constexpr ParamDef kDeviceLimit[] = {
    {"Enable", BOOL, -1, 1},
    {"MaxDevices", U32, -1, 4},
};
constexpr ParamDef kUpgradeStep[] = {
    {"Enable", BOOL, -1, 1},
    {"Time", S, -1, 32},
    {"URL", S, -1, 256},
};

#define ZNS_OBJ(oid, path, params, counter)                                                                            \
    { oid, path, params, sizeof(params) / sizeof((params)[0]), counter }
#define ZNS_NODE(oid, path)                                                                                            \
    { oid, path, nullptr, 0, -1 }

// Parents stand before their children.
constexpr ObjectDef kModel[] = {
    ZNS_NODE(1, "InternetGatewayDevice"),
    ZNS_OBJ(2, "InternetGatewayDevice.DeviceInfo", kDeviceInfo, -1),
    ZNS_OBJ(3, "InternetGatewayDevice.LANDevice.{i}", kLanDevice, -1),
    ZNS_OBJ(4, "InternetGatewayDevice.LANDevice.{i}.LANHostConfigManagement", kLanHostConfig, -1),
    ZNS_OBJ(5, "InternetGatewayDevice.LANDevice.{i}.LANHostConfigManagement.IPInterface.{i}", kIpInterface, -1),
    ZNS_OBJ(6, "InternetGatewayDevice.LANDevice.{i}.LANEthernetInterfaceConfig.{i}", kLanEthernet, -1),
    ZNS_OBJ(7, "InternetGatewayDevice.LANDevice.{i}.WLANConfiguration.{i}", kWlanConfig, -1),
    // The flash-save timer watches the change counter at byte 8 of Hosts.
    ZNS_OBJ(155, "InternetGatewayDevice.LANDevice.{i}.Hosts", kHosts, 8),
    ZNS_OBJ(156, "InternetGatewayDevice.LANDevice.{i}.Hosts.Host.{i}", kHost, -1),
    ZNS_OBJ(159, "InternetGatewayDevice.LANDevice.{i}.Hosts.OfflineHost.{i}", kOfflineHost, -1),
    ZNS_OBJ(161, "InternetGatewayDevice.LANDevice.{i}.Hosts.X_ZN_TempMacTable.{i}", kTempMac, -1),
    ZNS_OBJ(167, "InternetGatewayDevice.LANDevice.{i}.Hosts.X_ZN_HostCustomise.{i}", kHostCustomise, -1),
    ZNS_NODE(20, "InternetGatewayDevice.WANDevice.{i}"),
    ZNS_OBJ(21, "InternetGatewayDevice.WANDevice.{i}.WANCommonInterfaceConfig", kWanCommon, -1),
    ZNS_NODE(22, "InternetGatewayDevice.WANDevice.{i}.WANConnectionDevice.{i}"),
    ZNS_OBJ(23, "InternetGatewayDevice.WANDevice.{i}.WANConnectionDevice.{i}.WANIPConnection.{i}", kWanIpConnection,
            -1),
    ZNS_OBJ(24, "InternetGatewayDevice.WANDevice.{i}.WANConnectionDevice.{i}.WANPPPConnection.{i}", kWanPppConnection,
            -1),
    ZNS_OBJ(275, "InternetGatewayDevice.X_ZN_SystemConfig", kSystemConfig, -1),
    ZNS_OBJ(389, "InternetGatewayDevice.X_ZN_WiFi", kWifi, -1),
    ZNS_OBJ(390, "InternetGatewayDevice.X_ZN_WiFi.Radio.{i}", kRadio, -1),
    ZNS_OBJ(399, "InternetGatewayDevice.X_ZN_WiFi.SSID.{i}", kSsid, -1),
    ZNS_OBJ(400, "InternetGatewayDevice.X_ZN_WiFi.SSID.{i}.Security", kSsidSecurity, -1),
    ZNS_OBJ(401, "InternetGatewayDevice.X_ZN_WiFi.SSID.{i}.WPS", kWps, -1),
    ZNS_OBJ(424, "InternetGatewayDevice.X_ZN_Mesh", kMesh, -1),
    ZNS_NODE(30, "InternetGatewayDevice.X_ZN_EXT"),
    ZNS_OBJ(31, "InternetGatewayDevice.X_ZN_EXT.X_ZN_LED", kLed, -1),
    ZNS_NODE(32, "InternetGatewayDevice.X_ZN_GatewaySleep"),
    ZNS_OBJ(33, "InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer.{i}", kSleepTimer, -1),
    ZNS_OBJ(272, "InternetGatewayDevice.X_ZN_BridgeData", kBridgeData, -1),
    ZNS_OBJ(34, "InternetGatewayDevice.CMCC_TimedTask.{i}", kTimedTask, -1),
    ZNS_OBJ(35, "InternetGatewayDevice.CMCC_DeviceLimit.{i}", kDeviceLimit, -1),
    ZNS_NODE(36, "InternetGatewayDevice.X_ZN_UpgradeTask"),
    ZNS_OBJ(37, "InternetGatewayDevice.X_ZN_UpgradeTask.Download", kUpgradeStep, -1),
    ZNS_OBJ(38, "InternetGatewayDevice.X_ZN_UpgradeTask.Upgrade", kUpgradeStep, -1),
};

#undef ZNS_OBJ
#undef ZNS_NODE

// Factory state: a gateway with four LAN ports, two radios with two SSIDs,
// one routed WAN connection and an empty host table.
constexpr const char kDefaults[] = R"(InternetGatewayDevice.
InternetGatewayDevice.DeviceInfo.Manufacturer=ZN
InternetGatewayDevice.DeviceInfo.ModelName=ZN-ONT-V1
InternetGatewayDevice.DeviceInfo.SerialNumber=ZN0000000001
InternetGatewayDevice.DeviceInfo.SoftwareVersion=V1.0.0
InternetGatewayDevice.DeviceInfo.X_CMCC_UpLinkType=GPON
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceNumberOfEntries=4
InternetGatewayDevice.LANDevice.1.LANWLANConfigurationNumberOfEntries=2
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.DHCPServerEnable=1
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.MinAddress=192.168.1.2
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.MaxAddress=192.168.1.254
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.SubnetMask=255.255.255.0
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.DHCPLeaseTime=86400
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.Enable=1
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.IPInterfaceIPAddress=192.168.1.1
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.IPInterfaceSubnetMask=255.255.255.0
InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.X_CT-COM_IPv6Address=fe80::1/64
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.1.Enable=1
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.1.Name=eth0
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2.Enable=1
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2.Name=eth1
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.3.Enable=1
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.3.Name=eth2
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.4.Enable=1
InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.4.Name=eth3
InternetGatewayDevice.LANDevice.1.WLANConfiguration.1.Enable=1
InternetGatewayDevice.LANDevice.1.WLANConfiguration.1.Name=rax0
InternetGatewayDevice.LANDevice.1.WLANConfiguration.1.SSID=ZN-5G
InternetGatewayDevice.LANDevice.1.WLANConfiguration.1.Standard=ax
InternetGatewayDevice.LANDevice.1.WLANConfiguration.9.Enable=1
InternetGatewayDevice.LANDevice.1.WLANConfiguration.9.Name=ra0
InternetGatewayDevice.LANDevice.1.WLANConfiguration.9.SSID=ZN-2.4G
InternetGatewayDevice.LANDevice.1.WLANConfiguration.9.Standard=n
InternetGatewayDevice.LANDevice.1.Hosts.HostNumberOfEntries=0
InternetGatewayDevice.WANDevice.1.
InternetGatewayDevice.WANDevice.1.WANCommonInterfaceConfig.WANAccessType=GPON
InternetGatewayDevice.WANDevice.1.WANCommonInterfaceConfig.X_ZN_WANAccessType=GPON
InternetGatewayDevice.WANDevice.1.WANCommonInterfaceConfig.PhysicalLinkStatus=Up
InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.
InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.Enable=1
InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.Name=1_INTERNET_R_VID_41
InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.ConnectionType=IP_Routed
InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.AddressingType=DHCP
InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.ConnectionStatus=Connected
InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.X_ZN_LanInterface=InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.1,InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2,InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.3
InternetGatewayDevice.X_ZN_SystemConfig.ResetType=0
InternetGatewayDevice.X_ZN_WiFi.X_ZN_Enable=1
InternetGatewayDevice.X_ZN_WiFi.Radio.1.Enable=1
InternetGatewayDevice.X_ZN_WiFi.Radio.1.OperatingFrequencyBand=2.4GHz
InternetGatewayDevice.X_ZN_WiFi.Radio.1.Channel=6
InternetGatewayDevice.X_ZN_WiFi.Radio.2.Enable=1
InternetGatewayDevice.X_ZN_WiFi.Radio.2.OperatingFrequencyBand=5GHz
InternetGatewayDevice.X_ZN_WiFi.Radio.2.Channel=36
InternetGatewayDevice.X_ZN_WiFi.SSID.1.Enable=1
InternetGatewayDevice.X_ZN_WiFi.SSID.1.SSIDAdvertisementEnabled=1
InternetGatewayDevice.X_ZN_WiFi.SSID.1.SSID=ZN-2.4G
InternetGatewayDevice.X_ZN_WiFi.SSID.1.Name=ra0
InternetGatewayDevice.X_ZN_WiFi.SSID.1.Security.ModeEnabled=WPA2-PSK
InternetGatewayDevice.X_ZN_WiFi.SSID.1.Security.KeyPassphrase=zn-default-key
InternetGatewayDevice.X_ZN_WiFi.SSID.1.WPS.Enable=1
InternetGatewayDevice.X_ZN_WiFi.SSID.1.WPS.X_ZN_Action=0
InternetGatewayDevice.X_ZN_WiFi.SSID.5.Enable=1
InternetGatewayDevice.X_ZN_WiFi.SSID.5.SSIDAdvertisementEnabled=1
InternetGatewayDevice.X_ZN_WiFi.SSID.5.SSID=ZN-5G
InternetGatewayDevice.X_ZN_WiFi.SSID.5.Name=rax0
InternetGatewayDevice.X_ZN_WiFi.SSID.5.Security.ModeEnabled=WPA2-PSK
InternetGatewayDevice.X_ZN_WiFi.SSID.5.Security.KeyPassphrase=zn-default-key
InternetGatewayDevice.X_ZN_WiFi.SSID.5.WPS.Enable=1
InternetGatewayDevice.X_ZN_WiFi.SSID.5.WPS.X_ZN_Action=0
InternetGatewayDevice.X_ZN_Mesh.Enable=0
InternetGatewayDevice.X_ZN_Mesh.OnboardingTrigger=0
InternetGatewayDevice.X_ZN_Mesh.Role=controller
InternetGatewayDevice.X_ZN_EXT.
InternetGatewayDevice.X_ZN_EXT.X_ZN_LED.Leds_Turnoff=0
InternetGatewayDevice.X_ZN_GatewaySleep.
InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer.1.Enable=0
InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer.1.Day=1,2,3,4,5,6,7
InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer.1.Time=23:00
InternetGatewayDevice.X_ZN_BridgeData.sessionID=0
InternetGatewayDevice.X_ZN_UpgradeTask.
InternetGatewayDevice.X_ZN_UpgradeTask.Download.Enable=0
InternetGatewayDevice.X_ZN_UpgradeTask.Upgrade.Enable=0
)";

} // namespace
} // namespace zns
