# The rule of the agent's ground plan, checked by every build that changes a
# source (cmake -DSRC=dir -DPLATFORM_INCLUDE=dir -P include_rule.cmake):
# a subsystem, one folder of src/, includes its own headers, the shared ground
# (src/zn_event_agent/common) and platform/include, never another
# subsystem's header; a thread entry, declared "void *NAME(void *arg);" in its
# subsystem's header, is named nowhere else but in agent_threads.cpp, which
# starts the workers. Buttons, link and PON events share src/zn_event_agent
# with the start-up. Fails with one line for each breach.
set(common ${SRC}/zn_event_agent/common)
set(starter ${SRC}/zn_event_agent/agent_threads.cpp)
file(GLOB_RECURSE files ${SRC}/*.h ${SRC}/*.cpp)

set(entries "")
file(GLOB_RECURSE headers ${SRC}/*.h)
foreach(f IN LISTS headers)
  get_filename_component(dir ${f} DIRECTORY)
  file(STRINGS ${f} decls REGEX "^void \\*[A-Za-z0-9_]+\\(void \\*arg\\);")
  foreach(d IN LISTS decls)
    string(REGEX REPLACE "^void \\*([A-Za-z0-9_]+).*" "\\1" name "${d}")
    list(APPEND entries ${name})
    set(home_${name} ${dir})
  endforeach()
endforeach()

set(breaches "")
foreach(f IN LISTS files)
  if(f STREQUAL starter)
    continue()
  endif()
  get_filename_component(dir ${f} DIRECTORY)
  file(RELATIVE_PATH rel ${SRC} ${f})
  file(STRINGS ${f} includes REGEX "^#include \"")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" h "${line}")
    if(NOT EXISTS ${dir}/${h} AND NOT EXISTS ${common}/${h} AND NOT EXISTS ${PLATFORM_INCLUDE}/${h})
      list(APPEND breaches "src/${rel}: includes \"${h}\", which is neither its subsystem's, the shared ground's nor platform/include's")
    endif()
  endforeach()
  file(READ ${f} text)
  foreach(name IN LISTS entries)
    if(NOT dir STREQUAL home_${name} AND text MATCHES "[^A-Za-z0-9_]${name}[^A-Za-z0-9_]")
      list(APPEND breaches "src/${rel}: names ${name}, the thread entry of another subsystem")
    endif()
  endforeach()
endforeach()

if(breaches)
  list(JOIN breaches "\n" lines)
  message(FATAL_ERROR "the agent's include rule is broken:\n${lines}")
endif()
