zn_add_gtest(lanhost_ageing_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ageing_test.cpp LIBS zn_lanhost SANDBOX UNIT MacText.*)
target_include_directories(lanhost_ageing_test PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)
