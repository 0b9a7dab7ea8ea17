# Sanitized builds: MORVAX_SANITIZE names the sanitizers that every target of the build (libraries,
# programs, test programs, test binaries) is compiled and linked with, e.g.
#   cmake -S . -B build/asan -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
#         -DMORVAX_SANITIZE="address;undefined" -DMORVAX_FUZZ=ON
#   cmake -S . -B build/tsan -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
#         -DMORVAX_SANITIZE=thread
# The first report ends the process, and the tests of such a build fail on it (see
# MORVAX_SANITIZER_ENV). GCC 12's -Wmaybe-uninitialized misfires inside std::regex under ASan, so
# these builds are made with clang.
option(MORVAX_FUZZ "Build libFuzzer binaries of the fuzz targets (clang only)" OFF)

# A fuzzer without sanitizers finds only crashes: MORVAX_FUZZ brings ASan and UBSan unless told
# otherwise.
set(_default_sanitize "")
if(MORVAX_FUZZ AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    set(_default_sanitize "address;undefined")
endif()
set(MORVAX_SANITIZE "${_default_sanitize}" CACHE STRING
    "Sanitizers for every target, a list: address;undefined, or thread")

set(MORVAX_SANITIZER_ENV "")
if(MORVAX_SANITIZE)
    if(CMAKE_CROSSCOMPILING)
        message(FATAL_ERROR "MORVAX_SANITIZE is for native builds only")
    endif()
    if("thread" IN_LIST MORVAX_SANITIZE AND "address" IN_LIST MORVAX_SANITIZE)
        message(FATAL_ERROR "MORVAX_SANITIZE: thread and address cannot be combined")
    endif()
    list(JOIN MORVAX_SANITIZE "," _sanitizers)
    # No recovery: an undefined behaviour is a failure, not a line in a log nobody reads.
    add_compile_options(-fsanitize=${_sanitizers} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${_sanitizers} -fno-sanitize-recover=all)
    if("address" IN_LIST MORVAX_SANITIZE)
        # libstdc++'s own bounds checks: an index past the size but within the capacity is no
        # error to ASan.
        add_compile_definitions(_GLIBCXX_ASSERTIONS)
    endif()

    # Every report, also one from a child process whose status a test does not look at, goes to a
    # file in MORVAX_SANITIZER_LOG_DIR; the test sanitizer_reports, run after all others, prints
    # and removes them and fails if there were any.
    set(MORVAX_SANITIZER_LOG_DIR ${CMAKE_BINARY_DIR}/sanitizer-reports)
    file(MAKE_DIRECTORY ${MORVAX_SANITIZER_LOG_DIR})
    set(_common "log_path=${MORVAX_SANITIZER_LOG_DIR}/report:print_stacktrace=1")
    set(_common "${_common}:halt_on_error=1:abort_on_error=1")
    if("address" IN_LIST MORVAX_SANITIZE)
        set(_asan "${_common}:detect_leaks=1:detect_stack_use_after_return=1")
        set(_asan "${_asan}:check_initialization_order=1:strict_string_checks=1")
        list(APPEND MORVAX_SANITIZER_ENV "ASAN_OPTIONS=${_asan}")
    endif()
    if("undefined" IN_LIST MORVAX_SANITIZE)
        list(APPEND MORVAX_SANITIZER_ENV "UBSAN_OPTIONS=${_common}")
    endif()
    if("thread" IN_LIST MORVAX_SANITIZE)
        list(APPEND MORVAX_SANITIZER_ENV "TSAN_OPTIONS=${_common}:second_deadlock_stack=1")
    endif()
endif()

# morvax_sanitizer_reports_test(): the test sanitizer_reports, after every test defined so far.
function(morvax_sanitizer_reports_test)
    if(NOT MORVAX_SANITIZE OR NOT MORVAX_BUILD_TESTS)
        return()
    endif()
    set(_tests)
    set(_dirs ${CMAKE_CURRENT_SOURCE_DIR})
    while(_dirs)
        list(POP_FRONT _dirs _dir)
        get_property(_here DIRECTORY ${_dir} PROPERTY TESTS)
        get_property(_below DIRECTORY ${_dir} PROPERTY SUBDIRECTORIES)
        list(APPEND _tests ${_here})
        list(APPEND _dirs ${_below})
    endwhile()
    add_test(NAME sanitizer_reports
             COMMAND ${CMAKE_COMMAND} -DDIR=${MORVAX_SANITIZER_LOG_DIR}
                     -P ${PROJECT_SOURCE_DIR}/cmake/CheckSanitizerReports.cmake)
    set_tests_properties(sanitizer_reports PROPERTIES DEPENDS "${_tests}")
endfunction()
