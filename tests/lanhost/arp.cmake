zn_add_gtest(lanhost_arp_test SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/arp_test.cpp LIBS zn_lanhost SANDBOX UNIT ArpFrames.*)
zn_add_fuzzer(lanhost_arp_reply_fuzz SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/arp_reply_fuzz.cpp LIBS zn_lanhost)
