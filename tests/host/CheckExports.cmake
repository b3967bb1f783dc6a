# Fails unless the shared object LIBRARY defines exactly one dynamic symbol,
# the plugin's entry ENTRY.
#   cmake -DLIBRARY=<path> -DENTRY=<symbol> -P CheckExports.cmake
execute_process(COMMAND nm -D --defined-only ${LIBRARY}
                OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(names)
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^.* " "" name "${line}")
  list(APPEND names ${name})
endforeach()
if(NOT names STREQUAL ENTRY)
  message(FATAL_ERROR "${LIBRARY} exports [${names}], expected only ${ENTRY}")
endif()
