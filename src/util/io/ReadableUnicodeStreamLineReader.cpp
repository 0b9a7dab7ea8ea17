#include "util/io/ReadableUnicodeStreamLineReader.h"

namespace morvax {

ReadableUnicodeStreamLineReader::~ReadableUnicodeStreamLineReader() = default;

}  // namespace morvax
