# morvax_area_library(<name> <dir>): one static library per area of src/.
# Sources are the directory's .cpp files; *_win.cpp and *_posix.cpp go only to their own OS.
function(morvax_collect_sources out dir)
    file(GLOB _all CONFIGURE_DEPENDS ${dir}/*.cpp)
    set(_keep)
    foreach(f IN LISTS _all)
        if(NOT f MATCHES "_${MORVAX_OTHER_OS_SUFFIX}\\.cpp$")
            list(APPEND _keep ${f})
        endif()
    endforeach()
    set(${out} ${_keep} PARENT_SCOPE)
endfunction()

function(morvax_area_library name dir)
    morvax_collect_sources(_srcs ${dir})
    add_library(${name} STATIC ${_srcs})
    target_compile_options(${name} PRIVATE ${MORVAX_WARNINGS})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
endfunction()

# Splits the debug information of a program into <program>.debug beside it, linked back by its
# name and checksum, and installs both. Every start of a program maps its whole file, and under
# Wine (and Windows) tens of megabytes of DWARF cost milliseconds and memory on each run.
function(morvax_split_debug target)
    install(TARGETS ${target} RUNTIME DESTINATION bin)
    if(NOT CMAKE_OBJCOPY)
        return()
    endif()
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE_NAME:${target}>
                $<TARGET_FILE_NAME:${target}>.debug
        COMMAND ${CMAKE_OBJCOPY} --strip-debug
                --add-gnu-debuglink=$<TARGET_FILE_NAME:${target}>.debug
                $<TARGET_FILE_NAME:${target}>
        WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
        VERBATIM)
    install(FILES $<TARGET_FILE:${target}>.debug DESTINATION bin)
endfunction()
