zn_add_gtest(lanhost_neighbor_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/neighbor_test.cpp LIBS zn_lanhost SANDBOX UNIT NeighborNames.*)
target_include_directories(lanhost_neighbor_test PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)
# Seeds: tests/lanhost/make_liveness_corpus.py
zn_add_fuzzer(lanhost_neighbor_walk_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/neighbor_walk_fuzz.cpp LIBS zn_lanhost)
zn_add_gtest(lanhost_liveness_system_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/liveness_system_test.cpp LIBS zn SANDBOX)
target_include_directories(lanhost_liveness_system_test PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)
