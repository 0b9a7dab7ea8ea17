#pragma once

#include <cstddef>
#include <cstdint>

#include "util/io/FileHandle.h"

namespace morvax {

// The few operating-system calls of the log system that the portable file classes lack.
class LogPlatform {
  public:
    // Writes all of the bytes to the process's standard-error handle as it is at the moment of
    // the call, looping on short writes. False when the handle is missing or a write fails.
    static bool writeStandardError(const char* bytes, size_t length);
    // The size of an open file.
    static bool fileSize(const FileHandle& file, int64_t& size);
    // Whether a last-error value means that the file or a directory of its path does not exist.
    static bool isNotFoundError(uint32_t error);
};

}  // namespace morvax
