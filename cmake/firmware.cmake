# A firmware build (-DZN_PLATFORM=firmware): the agent and its host table
# viewer against the vendor SDK's closed libraries, and the install rules of
# a root file system. Nothing of platform/ is compiled, and no test, fuzzer
# or benchmark is built.
include(${CMAKE_CURRENT_LIST_DIR}/vendor_sdk.cmake)
add_subdirectory(src)
# Needed, as the gateway's programs need them, though nothing calls them.
target_link_libraries(zn_event_agent PRIVATE -Wl,--push-state,--no-as-needed ${ZN_SDK_OPTIONAL} -Wl,--pop-state)
# iconv: the C library's, or GNU libiconv where the sysroot has it apart.
find_package(Iconv REQUIRED)
target_link_libraries(zn_lanhost PUBLIC Iconv::Iconv)
# A gateway's flash seldom carries the C++ runtime; the viewer brings its own.
target_link_options(znhosts PRIVATE -static-libstdc++ -static-libgcc)

include(GNUInstallDirs)
# A system service, started by init (packaging/), never by a user.
install(TARGETS zn_event_agent RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS znhosts RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# rcS finds its scripts in /etc/init.d of the root, whatever the prefix.
install(PROGRAMS packaging/zn_event_agent.init DESTINATION /etc/init.d RENAME zn_event_agent)
