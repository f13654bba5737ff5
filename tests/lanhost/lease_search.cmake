zn_add_fuzzer(lanhost_lease_search_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/lease_search_fuzz.cpp LIBS zn_lanhost)
