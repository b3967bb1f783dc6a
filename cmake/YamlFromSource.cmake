# libyaml compiled from Debian's source package, for targets Debian builds no
# libyaml for (mingw-w64, i386 next to an amd64 system). The caller unpacks
# the package (apt-get source libyaml) and names the folder in
# QEL_YAML_SOURCE_DIR; the result stands in for the pkg-config target.
file(STRINGS ${QEL_YAML_SOURCE_DIR}/CMakeLists.txt qel_yaml_version_lines
     REGEX "^set \\(YAML_VERSION_(MAJOR|MINOR|PATCH) [0-9]+\\)")
foreach(line IN LISTS qel_yaml_version_lines)
  string(REGEX REPLACE "^set \\((YAML_VERSION_[A-Z]+) ([0-9]+)\\)$" "\\1;\\2" pair "${line}")
  list(GET pair 0 key)
  list(GET pair 1 value)
  set(${key} ${value})
endforeach()
if(NOT DEFINED YAML_VERSION_MAJOR OR NOT DEFINED YAML_VERSION_PATCH)
  message(FATAL_ERROR "QEL_YAML_SOURCE_DIR=${QEL_YAML_SOURCE_DIR} is not libyaml's source")
endif()

file(GLOB qel_yaml_sources ${QEL_YAML_SOURCE_DIR}/src/*.c)
add_library(qel_yaml STATIC ${qel_yaml_sources})
target_include_directories(qel_yaml PUBLIC ${QEL_YAML_SOURCE_DIR}/include)
target_compile_definitions(qel_yaml
  PUBLIC YAML_DECLARE_STATIC
  PRIVATE YAML_VERSION_MAJOR=${YAML_VERSION_MAJOR} YAML_VERSION_MINOR=${YAML_VERSION_MINOR}
          YAML_VERSION_PATCH=${YAML_VERSION_PATCH}
          YAML_VERSION_STRING="${YAML_VERSION_MAJOR}.${YAML_VERSION_MINOR}.${YAML_VERSION_PATCH}")
# Its sources share private names, so they are never merged into one unit.
set_target_properties(qel_yaml PROPERTIES POSITION_INDEPENDENT_CODE ON C_VISIBILITY_PRESET hidden
                      UNITY_BUILD OFF)
add_library(PkgConfig::YAML ALIAS qel_yaml)
