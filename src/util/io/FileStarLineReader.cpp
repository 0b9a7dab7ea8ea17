#include "util/io/FileStarLineReader.h"

namespace morvax {

FileStarLineReader::FileStarLineReader(FILE* file, bool ownsFile)
    : file_(file), ownsFile_(ownsFile), ended_(file == nullptr) {}

FileStarLineReader::~FileStarLineReader() {
    if (ownsFile_ && file_) {
        std::fclose(file_);
    }
}

size_t FileStarLineReader::readChunk(FILE* file, char* chunk, size_t capacity, ChunkEnd& how) {
    size_t n = 0;
    how = CHUNK_FULL;
    lockFile(file);
    while (n < capacity) {
        int c = getcUnlocked(file);
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
    unlockFile(file);
    return n;
}

bool FileStarLineReader::readLine(Str& target) {
    target.clear();
    if (ended_) {
        return false;
    }
    bool sawLf = false;
    char chunk[CHUNK_SIZE];
    for (;;) {
        ChunkEnd how;
        size_t n = readChunk(file_, chunk, CHUNK_SIZE, how);
        target.append(chunk, n);
        if (how == CHUNK_LINE_END) {
            sawLf = true;
            break;
        }
        if (how == CHUNK_INPUT_END) {
            ended_ = true;
            break;
        }
    }
    if (!sawLf && target.empty()) {
        return false;
    }
    if (!target.empty() && target.back() == '\r') {
        target.resize(target.size() - 1);
    }
    return true;
}

}  // namespace morvax
