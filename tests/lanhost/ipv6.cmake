zn_add_gtest(lanhost_ipv6_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ipv6_test.cpp LIBS zn_lanhost)

zn_add_fuzzer(lanhost_na_reader_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/na_reader_fuzz.cpp LIBS zn_lanhost)
zn_add_fuzzer(lanhost_ipv6_text_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ipv6_text_fuzz.cpp LIBS zn_lanhost)

zn_add_gtest(lanhost_ipv6_system_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ipv6_system_test.cpp SANDBOX)
add_dependencies(lanhost_ipv6_system_test zn_event_agent znsUtil)
