# DHCP lease messages and snooped DHCP requests.
zn_add_gtest(lanhost_dhcp_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/dhcp_test.cpp LIBS zn_lanhost SANDBOX
             UNIT LeaseMessage.SplitsAtRunsOfCommas DhcpOptions.*)
target_include_directories(lanhost_dhcp_test PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)

if(NOT ZN_FUZZ)
  # Peers of the system test: a DHCP client message crafted on the wire, and
  # the sender of lease reports that dnsmasq's lease-change script calls.
  foreach(helper dhcp_send lease_notify)
    add_executable(lanhost_${helper} ${CMAKE_CURRENT_SOURCE_DIR}/${helper}.cpp)
    set_target_properties(lanhost_${helper} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  endforeach()
  zn_add_gtest(lanhost_dhcp_system_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/dhcp_system_test.cpp SANDBOX)
  target_include_directories(lanhost_dhcp_system_test PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)
  add_dependencies(lanhost_dhcp_system_test zn_event_agent znsUtil lanhost_dhcp_send lanhost_lease_notify)
endif()

zn_add_fuzzer(lanhost_lease_message_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/lease_message_fuzz.cpp LIBS zn_lanhost)
zn_add_fuzzer(lanhost_dhcp_snoop_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/dhcp_snoop_fuzz.cpp LIBS zn_lanhost)
