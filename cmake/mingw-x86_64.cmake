# Cross build for 64-bit Windows: the host interface's 64-bit records on the
# real Win32 platform layer, and the form Wine runs where Wine for 32-bit
# programs cannot be installed.
#   cmake -S . -B build/windows64 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-x86_64.cmake
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(QEL_MINGW_TRIPLET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
