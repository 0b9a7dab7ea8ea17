#pragma once

#include <cstdint>
#include <filesystem>

#include "util/base/Str.h"

namespace morvax::wmi {

// Complaints about world and record files. They go to the log channel "WMISim" at ERROR, which
// reaches standard error in every configuration the programs start with, and never stop the
// provider: the bad part is left out and the rest goes on.
class SimReport {
  public:
    // "<file>:<line>: <what>"
    static void atLine(const std::filesystem::path& file, uint32_t line, StrSegment what);
    // "<file>: <what>"
    static void inFile(const std::filesystem::path& file, StrSegment what);

    static Str displayName(const std::filesystem::path& file);
};

}  // namespace morvax::wmi
