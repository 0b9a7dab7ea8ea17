# GoogleTest: Debian's package natively, built from /usr/src/googletest for the cross build.
if(CMAKE_CROSSCOMPILING)
    if(NOT TARGET gtest)
        set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
        set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
        add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    endif()
    set(MORVAX_GTEST_LIBS gtest gmock)
    set(MORVAX_GTEST_MAIN gtest_main)
else()
    find_package(GTest REQUIRED)
    set(MORVAX_GTEST_LIBS GTest::gtest GTest::gmock)
    set(MORVAX_GTEST_MAIN GTest::gtest_main)
endif()

# GCC 12 at -O3 warns of overlapping copies inside libstdc++'s own std::string concatenation
# (GCC bug 105329), which test code does everywhere. Only the tests, and only that compiler,
# go without the warning; our libraries keep it.
set(MORVAX_TEST_WARNINGS ${MORVAX_WARNINGS})
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    list(APPEND MORVAX_TEST_WARNINGS -Wno-restrict)
endif()

# Environment of every test: a private Wine prefix for the Windows build, the sanitizers' options
# for a sanitized one.
set(MORVAX_TEST_ENV "${MORVAX_SANITIZER_ENV}")
if(CMAKE_CROSSCOMPILING)
    set(MORVAX_TEST_ENV "WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix;WINEDEBUG=-all")
endif()

# morvax_unit_tests(<name> <dir> <libs...>): one GoogleTest binary for the .cpp files of <dir>.
function(morvax_unit_tests name dir)
    morvax_collect_sources(_srcs ${dir})
    add_executable(${name} ${_srcs})
    target_compile_options(${name} PRIVATE ${MORVAX_TEST_WARNINGS})
    target_link_libraries(${name} PRIVATE ${ARGN} morvax_test_support ${MORVAX_GTEST_LIBS} ${MORVAX_GTEST_MAIN} Threads::Threads)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
    if(MORVAX_TEST_PROGRAM_TARGETS)
        add_dependencies(${name} ${MORVAX_TEST_PROGRAM_TARGETS})
    endif()
    add_test(NAME ${name} COMMAND ${name} --gtest_color=no)
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "${MORVAX_TEST_ENV};MORVAX_TEST_FIXTURES=${PROJECT_SOURCE_DIR}/tests/fixtures;MORVAX_TEST_PROGRAMS=${MORVAX_TEST_PROGRAMS_DIR}"
        TIMEOUT 600)
endfunction()
