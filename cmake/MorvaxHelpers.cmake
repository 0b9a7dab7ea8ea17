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
