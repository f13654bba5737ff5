zn_add_gtest(lanhost_store_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/store_test.cpp LIBS zn_lanhost SANDBOX UNIT StoreLayout.*)
target_include_directories(lanhost_store_test PRIVATE ${CMAKE_SOURCE_DIR}/platform/store)
zn_add_fuzzer(lanhost_lease_line_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/lease_line_fuzz.cpp LIBS zn_lanhost)
