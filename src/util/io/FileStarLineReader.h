#pragma once

#include <cstddef>
#include <cstdio>

#include "util/io/LineReader.h"

namespace morvax {

// Lines of a stdio file taken byte for byte, with no decoding: only the LF and a CR before it
// are cut. The file is locked once per chunk and read with the unlocked getc in between.
class FileStarLineReader : public LineReader {
  public:
    static constexpr size_t CHUNK_SIZE = 256;

    // With `ownsFile` the file is closed with the reader. A null file is an empty input.
    explicit FileStarLineReader(FILE* file, bool ownsFile = false);
    ~FileStarLineReader() override;

    FileStarLineReader(const FileStarLineReader&) = delete;
    FileStarLineReader& operator=(const FileStarLineReader&) = delete;

    // A read error counts as the end of the input.
    bool readLine(Str& target) override;
    bool isEof() const override { return ended_; }

    FILE* file() const { return file_; }

  private:
    enum ChunkEnd { CHUNK_FULL, CHUNK_LINE_END, CHUNK_INPUT_END };
    // Reads into `chunk` until `capacity` bytes, an LF (consumed, not stored) or the end of the
    // input, and returns the count; the file stays locked for the whole chunk.
    static size_t readChunk(FILE* file, char* chunk, size_t capacity, ChunkEnd& how);
    // Platform: the stdio lock and the unlocked getc.
    static void lockFile(FILE* file);
    static void unlockFile(FILE* file);
    static int getcUnlocked(FILE* file);

    FILE* file_;
    bool ownsFile_;
    bool ended_ = false;
};

}  // namespace morvax
