# Third-party libraries. Linux: Debian's packages. Windows: PCRE2 is built with the cross
# compiler from Debian's source package (scripts/fetch-sources.sh puts it in build/third_party).
set(MORVAX_THIRD_PARTY_DIR "${PROJECT_SOURCE_DIR}/build/third_party" CACHE PATH
    "Where scripts/fetch-sources.sh unpacks the sources of the cross-built dependencies")

if(CMAKE_CROSSCOMPILING)
    set(_pcre2_src "${MORVAX_THIRD_PARTY_DIR}/pcre2")
    if(NOT EXISTS "${_pcre2_src}/CMakeLists.txt")
        message(FATAL_ERROR "PCRE2 sources missing in ${_pcre2_src}: run scripts/fetch-sources.sh")
    endif()
    set(PCRE2_BUILD_PCRE2_8 ON CACHE BOOL "" FORCE)
    set(PCRE2_BUILD_PCRE2_16 OFF CACHE BOOL "" FORCE)
    set(PCRE2_BUILD_PCRE2_32 OFF CACHE BOOL "" FORCE)
    set(PCRE2_SUPPORT_JIT ON CACHE BOOL "" FORCE)
    set(PCRE2_SUPPORT_UNICODE ON CACHE BOOL "" FORCE)
    set(PCRE2_BUILD_PCRE2GREP OFF CACHE BOOL "" FORCE)
    set(PCRE2_BUILD_TESTS OFF CACHE BOOL "" FORCE)
    set(PCRE2_STATIC_PIC OFF CACHE BOOL "" FORCE)
    set(BUILD_SHARED_LIBS OFF CACHE BOOL "" FORCE)
    set(BUILD_STATIC_LIBS ON CACHE BOOL "" FORCE)
    add_subdirectory("${_pcre2_src}" "${CMAKE_BINARY_DIR}/third_party/pcre2" EXCLUDE_FROM_ALL)
    add_library(morvax_pcre2 INTERFACE)
    target_link_libraries(morvax_pcre2 INTERFACE pcre2-8-static)
    target_compile_definitions(morvax_pcre2 INTERFACE PCRE2_STATIC PCRE2_CODE_UNIT_WIDTH=8)
    target_include_directories(morvax_pcre2 INTERFACE "${CMAKE_BINARY_DIR}/third_party/pcre2")
else()
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
    add_library(morvax_pcre2 INTERFACE)
    target_link_libraries(morvax_pcre2 INTERFACE PkgConfig::PCRE2)
    target_compile_definitions(morvax_pcre2 INTERFACE PCRE2_CODE_UNIT_WIDTH=8)
endif()

# SQLite: Debian's package natively; for the cross build the amalgamation that
# scripts/fetch-sources.sh makes from Debian's source package, compiled here.
if(CMAKE_CROSSCOMPILING)
    set(_sqlite_dir "${MORVAX_THIRD_PARTY_DIR}/sqlite3/amalgamation")
    if(NOT EXISTS "${_sqlite_dir}/sqlite3.c")
        message(FATAL_ERROR "SQLite amalgamation missing in ${_sqlite_dir}: run scripts/fetch-sources.sh")
    endif()
    add_library(morvax_sqlite STATIC "${_sqlite_dir}/sqlite3.c")
    target_include_directories(morvax_sqlite SYSTEM PUBLIC "${_sqlite_dir}")
    target_compile_definitions(morvax_sqlite PRIVATE SQLITE_THREADSAFE=1 SQLITE_OMIT_LOAD_EXTENSION)
else()
    find_package(SQLite3 REQUIRED)
    add_library(morvax_sqlite INTERFACE)
    target_link_libraries(morvax_sqlite INTERFACE SQLite::SQLite3)
endif()

# zlib (for its CRC-32): Debian's package on both builds; libz-mingw-w64-dev for the cross build.
if(CMAKE_CROSSCOMPILING)
    # The import library would tie the program to a zlib DLL that Windows does not have.
    set(ZLIB_USE_STATIC_LIBS ON)
endif()
find_package(ZLIB REQUIRED)
add_library(morvax_zlib INTERFACE)
target_link_libraries(morvax_zlib INTERFACE ZLIB::ZLIB)

# nlohmann-json (header only) for the world files of the simulated provider: Debian's package on
# both builds, its include directory named explicitly for the cross build.
find_path(MORVAX_JSON_INCLUDE_DIR nlohmann/json.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)
if(NOT MORVAX_JSON_INCLUDE_DIR)
    message(FATAL_ERROR "nlohmann/json.hpp not found: install nlohmann-json3-dev")
endif()
add_library(morvax_json INTERFACE)
if(CMAKE_CROSSCOMPILING)
    # Only this one directory of the host's headers: nothing else of /usr/include may leak in.
    set(_json_only ${CMAKE_BINARY_DIR}/third_party/json-include)
    file(MAKE_DIRECTORY ${_json_only})
    file(CREATE_LINK ${MORVAX_JSON_INCLUDE_DIR}/nlohmann ${_json_only}/nlohmann SYMBOLIC)
    target_include_directories(morvax_json SYSTEM INTERFACE ${_json_only})
else()
    target_include_directories(morvax_json SYSTEM INTERFACE ${MORVAX_JSON_INCLUDE_DIR})
endif()
