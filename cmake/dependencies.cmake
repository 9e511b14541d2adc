# The libraries that the project uses. For Linux they are Debian's packages. For Windows the header-only ones are the
# same packages, seen through a folder of links, since all of Debian's include folder would hide mingw's headers. SQLite
# is compiled from a pinned source, for both. That and the charts of zorvctl's page are what ./dev puts into ZORV_DEPS.

find_package(Threads REQUIRED)

set(ZORV_HEADERS ${PROJECT_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${ZORV_HEADERS})
set(names nlohmann asio)
if(ZORV_SERVICE)
    list(APPEND names CLI)
endif()
foreach(name ${names})
    if(NOT EXISTS /usr/include/${name})
        message(FATAL_ERROR "/usr/include/${name} is missing: run ./dev setup")
    endif()
    file(CREATE_LINK /usr/include/${name} ${ZORV_HEADERS}/${name} SYMBOLIC)
endforeach()
add_library(zorv_headers INTERFACE)
target_include_directories(zorv_headers SYSTEM INTERFACE ${ZORV_HEADERS})
if(NOT ZORV_SERVICE)
    return()
endif()

set(ZORV_DEPS ${PROJECT_SOURCE_DIR}/build/deps CACHE PATH "Where ./dev keeps sources that no package installs")
set(ZORV_UPLOT ${ZORV_DEPS}/uplot)
if(NOT EXISTS ${ZORV_UPLOT}/dist/uPlot.iife.min.js)
    message(FATAL_ERROR "${ZORV_UPLOT}/dist/uPlot.iife.min.js is missing: run ./dev setup")
endif()

set(sqlite_source ${ZORV_DEPS}/sqlite3)
if(NOT EXISTS ${sqlite_source}/sqlite3.c)
    message(FATAL_ERROR "${sqlite_source}/sqlite3.c is missing: run ./dev setup")
endif()
add_library(zorv_sqlite STATIC ${sqlite_source}/sqlite3.c)
target_compile_options(zorv_sqlite PRIVATE -w -O2)
if(ZORV_SANITIZER)
    target_compile_options(zorv_sqlite PRIVATE -fno-sanitize=all)  # they look for faults of ours
endif()
# Any thread may use it, a database file brings no code, and its schema calls no function that could do harm. The
# mathematical functions are for who asks zorvctl. The cache takes its pages one by one, since a connection of the service
# needs few of them. It keeps no count of its memory: nobody asks for it, and each allocation would have to be counted.
target_compile_definitions(zorv_sqlite PRIVATE
    SQLITE_THREADSAFE=1 SQLITE_OMIT_LOAD_EXTENSION SQLITE_TRUSTED_SCHEMA=0 SQLITE_ENABLE_MATH_FUNCTIONS
    SQLITE_DEFAULT_PCACHE_INITSZ=0 SQLITE_DEFAULT_MEMSTATUS=0 SQLITE_OMIT_DEPRECATED SQLITE_OMIT_SHARED_CACHE)
target_include_directories(zorv_sqlite SYSTEM INTERFACE ${sqlite_source})
target_link_libraries(zorv_sqlite INTERFACE Threads::Threads m)

if(ZORV_TESTS)
    if(WIN32)
        set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
        set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
        set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
        add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
        add_library(zorv_gtest ALIAS gtest)
    else()
        find_package(GTest REQUIRED)
        add_library(zorv_gtest ALIAS GTest::gtest)
    endif()
endif()
