zn_add_gtest(lanhost_store_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/store_test.cpp LIBS zn_lanhost SANDBOX)
zn_add_fuzzer(lanhost_lease_line_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/lease_line_fuzz.cpp LIBS zn_lanhost)
