zn_add_gtest(lanhost_ipv6_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ipv6_test.cpp LIBS zn_lanhost SANDBOX)
target_include_directories(lanhost_ipv6_test PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)

zn_add_fuzzer(lanhost_na_reader_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/na_reader_fuzz.cpp LIBS zn_lanhost)
zn_add_fuzzer(lanhost_ipv6_text_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ipv6_text_fuzz.cpp LIBS zn_lanhost)

zn_add_gtest(lanhost_ipv6_system_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ipv6_system_test.cpp SANDBOX)
target_include_directories(lanhost_ipv6_system_test PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)
add_dependencies(lanhost_ipv6_system_test zn_event_agent)
