#include "util/io/ReadableUnicodeFileStar.h"

namespace morvax {

ReadableUnicodeFileStar::ReadableUnicodeFileStar(FILE* file, bool ownsFile, uint32_t encoding)
    : ReadableUnicodeStream(encoding), file_(file), ownsFile_(ownsFile) {}

ReadableUnicodeFileStar::~ReadableUnicodeFileStar() {
    if (ownsFile_ && file_) {
        std::fclose(file_);
    }
}

int ReadableUnicodeFileStar::readByte() {
    if (pos_ == length_) {
        if (ended_ || !file_) {
            return -1;
        }
        pos_ = 0;
        length_ = std::fread(buffer_, 1, BUFFER_SIZE, file_);
        if (length_ == 0) {
            ended_ = true;
            return -1;
        }
    }
    return buffer_[pos_++];
}

}  // namespace morvax
