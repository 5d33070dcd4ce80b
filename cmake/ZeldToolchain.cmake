# Android libraries from Debian: headers under /usr/include/android, shared
# objects under /usr/lib/<multiarch>/android (linked with an rpath).
find_path(ZELD_ANDROID_INCLUDE_DIR utils/RefBase.h PATHS /usr/include/android REQUIRED)
find_library(ZELD_LIBUTILS utils PATHS /usr/lib/x86_64-linux-gnu/android /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android REQUIRED NO_DEFAULT_PATH)
find_library(ZELD_LIBBASE base PATHS /usr/lib/x86_64-linux-gnu/android /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android REQUIRED NO_DEFAULT_PATH)
# liblog itself: the host log stand-in defines __android_log_buf_print, but the
# libutils headers' asserts (ALOG_ASSERT outside NDEBUG builds) call
# __android_log_assert, which only liblog has.
find_library(ZELD_LIBLOG log PATHS /usr/lib/x86_64-linux-gnu/android /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android REQUIRED NO_DEFAULT_PATH)
get_filename_component(ZELD_ANDROID_LIB_DIR ${ZELD_LIBUTILS} DIRECTORY)
find_program(ZELD_AIDL aidl REQUIRED)

find_package(Threads REQUIRED)
if(ZELD_TESTS OR ZELD_FUZZ)
  find_package(GTest REQUIRED)
endif()
find_package(RapidJSON QUIET)
find_path(ZELD_RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)
if(ZELD_BENCH)
  find_package(benchmark REQUIRED)
endif()

# android-utils: Debian's libutils (RefBase, sp, String16, Errors.h) as one target.
add_library(zeld_android_utils INTERFACE)
target_include_directories(zeld_android_utils SYSTEM INTERFACE ${ZELD_ANDROID_INCLUDE_DIR})
target_link_libraries(zeld_android_utils INTERFACE ${ZELD_LIBUTILS} ${ZELD_LIBBASE} ${ZELD_LIBLOG})
target_link_options(zeld_android_utils INTERFACE "LINKER:-rpath,${ZELD_ANDROID_LIB_DIR}")

add_library(zeld_rapidjson INTERFACE)
target_include_directories(zeld_rapidjson SYSTEM INTERFACE ${ZELD_RAPIDJSON_INCLUDE_DIR})

# Sanitizers apply to everything we build, so instrumented and plain code never mix.
if(ZELD_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(ZELD_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT ZELD_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ZELD_SANITIZE must be '', 'address' or 'thread'")
endif()

if(ZELD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "ZELD_FUZZ needs clang (CXX=clang++)")
  endif()
  # Coverage instrumentation for every library the fuzzers reach.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()
