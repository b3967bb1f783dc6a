# The part of the mingw-w64 cross builds that does not depend on the
# processor; cmake/mingw-i686.cmake and cmake/mingw-x86_64.cmake set
# CMAKE_SYSTEM_PROCESSOR and QEL_MINGW_TRIPLET, then include this.
set(CMAKE_SYSTEM_NAME Windows)

# The posix thread model: std::mutex and std::shared_mutex need it.
set(CMAKE_C_COMPILER ${QEL_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QEL_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${QEL_MINGW_TRIPLET}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${QEL_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The C and C++ runtimes and winpthread go into every binary, so the DLL and
# the programs need nothing beyond KERNEL32.dll and msvcrt.dll (and what they
# load themselves) on the machine that runs them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
