# The gateway's closed libraries as the vendor's SDK ships them, in a prefix
# of CMAKE_PREFIX_PATH or in the sysroot: include/ with znsmsg.h, znsutils.h
# and libzn.h, lib/ with libznsmsg, libznsutils and libzn. Each library
# becomes an imported target of the name the stand-in's has, so that src/
# builds unchanged against either. libmdm and liblog, which the gateway's
# programs link without calling them by name, go into ZN_SDK_OPTIONAL when
# the SDK has them.

# Stops the configure step with one line: what is missing and where it was looked for.
function(zn_sdk_missing file dir)
  set(where "${dir}/ of CMAKE_PREFIX_PATH (${CMAKE_PREFIX_PATH}) and of the system prefixes")
  if(CMAKE_SYSROOT OR CMAKE_FIND_ROOT_PATH)
    string(APPEND where ", within the sysroot (${CMAKE_SYSROOT}${CMAKE_FIND_ROOT_PATH})")
  endif()
  # The leading blank keeps CMake from wrapping the line.
  message(FATAL_ERROR " vendor SDK: ${file} not found in ${where}")
endfunction()

set(zn_sdk_includes "")
foreach(header znsmsg.h znsutils.h libzn.h)
  string(MAKE_C_IDENTIFIER ${header} var)
  find_path(ZN_SDK_${var} ${header})
  if(NOT ZN_SDK_${var})
    zn_sdk_missing(${header} include)
  endif()
  list(APPEND zn_sdk_includes ${ZN_SDK_${var}})
endforeach()
list(REMOVE_DUPLICATES zn_sdk_includes)

foreach(lib znsmsg znsutils zn)
  find_library(ZN_SDK_LIB${lib} ${lib})
  if(NOT ZN_SDK_LIB${lib})
    zn_sdk_missing(lib${lib}.so lib)
  endif()
  add_library(${lib} UNKNOWN IMPORTED)
  set_target_properties(${lib} PROPERTIES IMPORTED_LOCATION ${ZN_SDK_LIB${lib}}
                        INTERFACE_INCLUDE_DIRECTORIES "${zn_sdk_includes}")
endforeach()

set(ZN_SDK_OPTIONAL "")
foreach(lib mdm log)
  find_library(ZN_SDK_LIB${lib} ${lib})
  if(ZN_SDK_LIB${lib})
    list(APPEND ZN_SDK_OPTIONAL ${ZN_SDK_LIB${lib}})
  else()
    message(STATUS "vendor SDK: no lib${lib}; the agent goes without it")
  endif()
endforeach()
