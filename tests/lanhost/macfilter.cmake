zn_add_gtest(lanhost_macfilter_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/macfilter_test.cpp LIBS zn_lanhost SANDBOX)
