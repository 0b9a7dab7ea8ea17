#pragma once

#include <cstddef>
#include <string>

#include "util/base/LogFormatter.h"

namespace morvax::test {

// Keeps what a formatter writes, as text to compare.
class TextSink : public FormatSink {
  public:
    void write(const char* bytes, size_t length) override { text.append(bytes, length); }
    std::string text;
};

}  // namespace morvax::test
