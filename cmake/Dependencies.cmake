# The third-party libraries, each as one imported target named sr::<name>.
# Linux takes Debian's -dev packages; the mingw builds take zlib from the mingw sysroot and the rest from
# the prefix that scripts/build-mingw-deps.sh fills (SYSTEM_REPORT_DEPS_PREFIX).

set(SYSTEM_REPORT_DEPS_PREFIX "" CACHE PATH "Prefix holding the mingw builds of OpenSSL, PCRE2 and libdeflate")
if(WIN32 AND NOT SYSTEM_REPORT_DEPS_PREFIX)
  message(FATAL_ERROR "Set SYSTEM_REPORT_DEPS_PREFIX (scripts/build-mingw-deps.sh prints it) for Windows builds")
endif()
if(SYSTEM_REPORT_DEPS_PREFIX)
  list(PREPEND CMAKE_PREFIX_PATH ${SYSTEM_REPORT_DEPS_PREFIX})
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

find_package(ZLIB REQUIRED)
add_library(sr::zlib ALIAS ZLIB::ZLIB)

if(WIN32)
  set(OPENSSL_USE_STATIC_LIBS TRUE)
  set(OPENSSL_ROOT_DIR ${SYSTEM_REPORT_DEPS_PREFIX})
endif()
find_package(OpenSSL 3 REQUIRED)
add_library(sr_openssl INTERFACE)
target_link_libraries(sr_openssl INTERFACE OpenSSL::SSL OpenSSL::Crypto)
if(WIN32)
  target_link_libraries(sr_openssl INTERFACE ws2_32 gdi32 crypt32 advapi32 user32)
endif()
add_library(sr::openssl ALIAS sr_openssl)

find_path(SR_PCRE2_INCLUDE_DIR pcre2.h REQUIRED)
find_library(SR_PCRE2_8_LIBRARY NAMES pcre2-8 REQUIRED)
find_library(SR_PCRE2_16_LIBRARY NAMES pcre2-16 REQUIRED)
foreach(width 8 16)
  add_library(sr_pcre2_${width} INTERFACE)
  target_include_directories(sr_pcre2_${width} SYSTEM INTERFACE ${SR_PCRE2_INCLUDE_DIR})
  target_link_libraries(sr_pcre2_${width} INTERFACE ${SR_PCRE2_${width}_LIBRARY})
  target_compile_definitions(sr_pcre2_${width} INTERFACE PCRE2_CODE_UNIT_WIDTH=0)
  if(WIN32)
    target_compile_definitions(sr_pcre2_${width} INTERFACE PCRE2_STATIC)
  endif()
  add_library(sr::pcre2_${width} ALIAS sr_pcre2_${width})
endforeach()

# The deflate engine of the zip writer (zlib stays for CRC combining and for reading compressed data).
find_path(SR_LIBDEFLATE_INCLUDE_DIR libdeflate.h REQUIRED)
find_library(SR_LIBDEFLATE_LIBRARY NAMES deflate REQUIRED)
add_library(sr_libdeflate INTERFACE)
target_include_directories(sr_libdeflate SYSTEM INTERFACE ${SR_LIBDEFLATE_INCLUDE_DIR})
target_link_libraries(sr_libdeflate INTERFACE ${SR_LIBDEFLATE_LIBRARY})
add_library(sr::libdeflate ALIAS sr_libdeflate)

if(NOT WIN32)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SR_HIVEX REQUIRED IMPORTED_TARGET hivex)
  add_library(sr::hivex ALIAS PkgConfig::SR_HIVEX)
  # The Sleuth Kit's library reads NTFS and exFAT volumes that nothing mounts (rescue media, images).
  pkg_check_modules(SR_TSK REQUIRED IMPORTED_TARGET tsk)
  add_library(sr::tsk ALIAS PkgConfig::SR_TSK)
endif()
