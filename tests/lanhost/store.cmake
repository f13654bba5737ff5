zn_add_fuzzer(lanhost_lease_line_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/lease_line_fuzz.cpp LIBS zn_lanhost)
