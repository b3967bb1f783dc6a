# The framework's folders form one-way layers: a folder may include and link
# only its own layer and those below it, and nothing of the framework reaches
# outside framework/ (the plugin, the stand-in host, the simulator, tests).
#   cmake -DROOT=<tree holding framework/> -P IncludeDirection.cmake
# Every violation is listed; the script fails when there is one.

# Bottom to top. A new folder of framework/ must be given its place here.
cmake_minimum_required(VERSION 3.20)

set(layers
  platform      # OS layers
  binding       # the value model, the registry, native conversion
  codec         # JSON, MessagePack, YAML
  log           # the logger and its targets
  host          # the host link: C interface, entries, waits, delayed calls, events
  dispatch      # routes and request dispatch
  rest          # REST calls to other plugins
  resources     # publishing and following resources
  serviceproxy  # the service-proxy client
  module        # AppModule, composing the above; the plugin entry
)
set(outside teambuilder host sim tests bench fuzz)

if(NOT ROOT)
  message(FATAL_ERROR "ROOT: the tree holding framework/")
endif()

set(problems "")

# Notes a problem when `target` stands above the folder being read.
macro(refuse_if_above target what)
  list(FIND layers ${target} other)
  if(other GREATER own)
    list(APPEND problems "${what}: ${folder} is below ${target}")
  endif()
endmacro()

file(GLOB folders LIST_DIRECTORIES true RELATIVE ${ROOT}/framework ${ROOT}/framework/*)
foreach(folder IN LISTS folders)
  if(IS_DIRECTORY ${ROOT}/framework/${folder} AND NOT folder IN_LIST layers)
    list(APPEND problems "framework/${folder} has no place in the layer order")
  endif()
endforeach()

foreach(folder IN LISTS layers)
  list(FIND layers ${folder} own)
  file(GLOB_RECURSE sources RELATIVE ${ROOT}
       ${ROOT}/framework/${folder}/*.h ${ROOT}/framework/${folder}/*.cpp
       ${ROOT}/framework/${folder}/*.inl)
  foreach(source IN LISTS sources)
    file(STRINGS ${ROOT}/${source} lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
    foreach(line IN LISTS lines)
      string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]*)\".*" "\\1" included "${line}")
      if(included MATCHES "^([^/]+)/")
        set(top ${CMAKE_MATCH_1})
        if(top IN_LIST outside)
          list(APPEND problems "${source} includes ${included}: the framework depends on nothing outside framework/")
        elseif(top STREQUAL "framework" AND included MATCHES "^framework/([^/]+)/")
          refuse_if_above(${CMAKE_MATCH_1} "${source} includes ${included}")
        endif()
      endif()
    endforeach()
  endforeach()

  # The libraries follow the same order, so the build has no cycle.
  set(listfile ${ROOT}/framework/${folder}/CMakeLists.txt)
  if(EXISTS ${listfile})
    file(READ ${listfile} text)
    string(REGEX MATCHALL "target_link_libraries\\([^)]*\\)" links "${text}")
    foreach(link IN LISTS links)
      string(REGEX MATCHALL "qel_[a-z]+" names "${link}")
      foreach(name IN LISTS names)
        string(REGEX REPLACE "^qel_" "" target ${name})
        refuse_if_above(${target} "framework/${folder}/CMakeLists.txt links ${name}")
      endforeach()
    endforeach()
  endif()
endforeach()

if(problems)
  list(JOIN problems "\n  " text)
  message(FATAL_ERROR "Includes against the layer order:\n  ${text}")
endif()
