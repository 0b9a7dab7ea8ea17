#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

// How one load of a log configuration is to be done.
struct LogConfOptions {
    // Bits of allowedKeys, one per appender key.
    enum KeyBit : uint32_t {
        KEY_MAX_FILE_SIZE = 1,
        KEY_MAX_BACKUP_INDEX = 2,
        KEY_LAYOUT = 4,
        KEY_CONVERSION_PATTERN = 8,
        KEY_FILE_NAME = 16,
        KEY_SERIALIZATION = 32,
        KEY_MAX_MESSAGE_SIZE = 64,
        KEY_BUFFER_SIZE = 128,
        KEY_ESCAPE = 256,
        ALL_KEYS = 511,
    };

    // The file to read.
    Pathname fileName;
    // When set, only the lines inside the section of this name count.
    const char* section = nullptr;
    // Each key is replaced by its value in every appender value.
    std::map<Str, WStr> substitutions;
    // An appender whose fileName value contains one of these is switched off.
    std::set<Str> filterWords;
    // 0 makes the load silent: no direct writes to standard error, no appender without a file.
    uint8_t report = 1;
    // Which appender keys this load may change. Below ALL_KEYS the size limits may only grow.
    uint32_t allowedKeys = ALL_KEYS;
};

}  // namespace morvax
