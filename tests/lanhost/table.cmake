zn_add_gtest(lanhost_table_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/table_test.cpp LIBS zn_lanhost SANDBOX UNIT HostTable.*)
