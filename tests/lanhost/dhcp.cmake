# DHCP lease messages and snooped DHCP requests.
zn_add_gtest(lanhost_dhcp_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/dhcp_test.cpp LIBS zn_lanhost SANDBOX
             UNIT LeaseMessage.SplitsAtRunsOfCommas DhcpOptions.*)
# Its peers: dnsmasq with dnsmasq_lease.sh, udhcpc, and send.py.
zn_add_gtest(lanhost_dhcp_system_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/dhcp_system_test.cpp SANDBOX)
add_dependencies(lanhost_dhcp_system_test zn_event_agent znsUtil)

zn_add_fuzzer(lanhost_lease_message_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/lease_message_fuzz.cpp LIBS zn_lanhost)
zn_add_fuzzer(lanhost_dhcp_snoop_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/dhcp_snoop_fuzz.cpp LIBS zn_lanhost)
