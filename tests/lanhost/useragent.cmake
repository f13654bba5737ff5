zn_add_gtest(lanhost_useragent_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/useragent_test.cpp LIBS zn_lanhost SANDBOX
             UNIT DhcpOptionReport.FieldsByPositionValuesBehindTheFirstEquals)
zn_add_gtest(lanhost_useragent_system_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/useragent_system_test.cpp SANDBOX)
add_dependencies(lanhost_useragent_system_test zn_event_agent znsUtil znsMonitor)
zn_add_fuzzer(lanhost_ua_walk_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ua_walk_fuzz.cpp LIBS zn_lanhost)
zn_add_fuzzer(lanhost_dhcp_option_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/dhcp_option_fuzz.cpp LIBS zn_lanhost)
