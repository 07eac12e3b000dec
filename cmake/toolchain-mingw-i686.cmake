# Cross-compiling for Windows with mingw-w64 (i686). The posix thread model is needed for std::thread.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(SR_TRIPLET i686-w64-mingw32)

set(CMAKE_C_COMPILER ${SR_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${SR_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${SR_TRIPLET}-windres)

# Dependencies come from the mingw sysroot (zlib) and the prefix that scripts/build-mingw-deps.sh fills.
# try_compile projects read this file again with an empty cache.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SYSTEM_REPORT_DEPS_PREFIX)
set(CMAKE_FIND_ROOT_PATH /usr/${SR_TRIPLET} ${SYSTEM_REPORT_DEPS_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

