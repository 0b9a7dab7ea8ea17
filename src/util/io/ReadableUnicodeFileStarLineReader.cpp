#include "util/io/ReadableUnicodeFileStarLineReader.h"

namespace morvax {

ReadableUnicodeFileStarLineReader::ReadableUnicodeFileStarLineReader(FILE* file, bool ownsFile,
                                                                     uint32_t encoding)
    : stream_(file, ownsFile, encoding) {}

ReadableUnicodeFileStarLineReader::~ReadableUnicodeFileStarLineReader() = default;

}  // namespace morvax
