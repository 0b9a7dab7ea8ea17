# cmake -DDIR=<dir> -P CheckSanitizerReports.cmake: prints and removes the sanitizer reports in
# <dir>, and fails if there were any.
file(GLOB _reports "${DIR}/report.*")
if(NOT _reports)
    return()
endif()
list(LENGTH _reports _count)
foreach(_report IN LISTS _reports)
    file(READ ${_report} _text)
    message("==== ${_report}\n${_text}")
    file(REMOVE ${_report})
endforeach()
message(FATAL_ERROR "${_count} sanitizer report(s)")
