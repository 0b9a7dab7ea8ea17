#include <stdio.h>

#include "util/FileStarLineReader.h"

namespace morvax {

size_t FileStarLineReader::readChunk(FILE* file, char* chunk, size_t capacity, ChunkEnd& how) {
    size_t n = 0;
    how = CHUNK_FULL;
    _lock_file(file);
    while (n < capacity) {
        int c = _getc_nolock(file);
        if (c == EOF) {
            how = CHUNK_INPUT_END;
            break;
        }
        if (c == '\n') {
            how = CHUNK_LINE_END;
            break;
        }
        chunk[n++] = static_cast<char>(c);
    }
    _unlock_file(file);
    return n;
}

}  // namespace morvax
