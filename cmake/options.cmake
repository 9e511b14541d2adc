# The options of a build, and zorv_options: the warnings, paths and link options that each of our targets uses.

option(ZORV_SERVICE "Build the service, its tools and tests, not the client library alone" ${PROJECT_IS_TOP_LEVEL})
option(ZORV_TESTS "Build the test programs" ${ZORV_SERVICE})
option(ZORV_BENCH "Build the benchmarks" OFF)
option(ZORV_FUZZ "Build the fuzzers, which takes clang" OFF)
option(ZORV_NDR64 "Offer NDR64 beside NDR 2.0 at the local endpoint of Windows" ON)
set(ZORV_SANITIZER "" CACHE STRING "Sanitizers for the Linux side: empty, 'address,undefined' or 'thread'")

# Values of a deployment; src/common/deployment.h.in hands them to the code.
set(ZORV_DB_KEY 0x5A CACHE STRING "DbKey: the byte that database files at rest are transformed with")
set(ZORV_DEFAULT_SERVER fs.zorvcore.example CACHE STRING "Host that files go to and settings come from")
set(ZORV_TEST_SERVER test.zorvcore.example CACHE STRING "Host that is spoken to in plain HTTP")

find_program(ZORV_CCACHE ccache)
if(ZORV_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # It makes paths relative to this folder, so the same ones get into debug information in each checkout.
    set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} ${ZORV_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_C_COMPILER_LAUNCHER})
endif()

# With -O3 a release is a quarter larger, and a pass no faster.
foreach(language C CXX)
    string(REPLACE -O3 -O2 CMAKE_${language}_FLAGS_RELEASE "${CMAKE_${language}_FLAGS_RELEASE}")
endforeach()

# Overruns of buffers on the stack end the process. _FORTIFY_SOURCE is for Windows only: on Linux it would take the
# place of the sanitizers' own checks, which find more.
add_compile_options(-fstack-protector-strong)
if(WIN32)
    add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
    # Functions and lines, which cmake/windows_binary.cmake moves into a file of their own; the same in each checkout.
    add_compile_options(-g1 -fdebug-prefix-map=${PROJECT_SOURCE_DIR}=.)
    # The first links libssp; without a time the same sources make the same bytes.
    add_link_options(-fstack-protector-strong -Wl,--dynamicbase,--high-entropy-va,--nxcompat,--no-insert-timestamp)
else()
    add_link_options(-Wl,-z,now)
    # What nothing calls is left out. On Windows that leaves out next to nothing: the tables for exceptions name all of it.
    add_compile_options($<$<CONFIG:Release>:-ffunction-sections> $<$<CONFIG:Release>:-fdata-sections>)
    add_link_options($<$<CONFIG:Release>:-Wl,--gc-sections>)
endif()
# For bench/programs.py, which tells of what a program is made.
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/maps)

add_library(zorv_options INTERFACE)
# This g++ gives false alarms of -Wrestrict on joined strings when it optimises.
target_compile_options(zorv_options INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion -Wno-restrict)
if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(zorv_options INTERFACE -Werror)
endif()
target_include_directories(zorv_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
if(WIN32)
    target_compile_definitions(zorv_options INTERFACE UNICODE _UNICODE _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
    # -municode makes wmain the entry. A target with the property ZORV_PLAIN_MAIN has a plain main.
    target_link_options(zorv_options INTERFACE
        -static $<$<NOT:$<BOOL:$<TARGET_PROPERTY:ZORV_PLAIN_MAIN>>>:-municode>)
else()
    target_link_options(zorv_options INTERFACE -static-libstdc++ -static-libgcc)
endif()
target_link_options(zorv_options INTERFACE
    $<$<CONFIG:Release>:-Wl,-Map=${PROJECT_BINARY_DIR}/maps/$<TARGET_PROPERTY:NAME>.map>)
if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    target_compile_options(zorv_options INTERFACE -Wno-unknown-warning-option)
endif()
if(ZORV_SANITIZER)
    add_compile_options(-fsanitize=${ZORV_SANITIZER} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${ZORV_SANITIZER})
    if(ZORV_SANITIZER STREQUAL "thread")
        # gcc's thread sanitizer knows no fences, which asio needs only where no lock hands a handler over.
        add_compile_definitions(ASIO_DISABLE_FENCED_BLOCK)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
        # Without this check: a library that is loaded by name may declare a buffer as void* where we call it with
        # char*.
        add_compile_options(-fno-sanitize=function)
    endif()
endif()
