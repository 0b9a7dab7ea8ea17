#include "util/io/WritableUnicodeFileStar.h"

namespace morvax {

WritableUnicodeFileStar::WritableUnicodeFileStar(FILE* file, bool ownsFile, uint32_t encoding)
    : WritableUnicodeStream(encoding), file_(file), ownsFile_(ownsFile), failed_(file == nullptr) {}

WritableUnicodeFileStar::~WritableUnicodeFileStar() {
    close();
}

bool WritableUnicodeFileStar::drain() {
    if (length_ > 0 && !failed_ && file_) {
        failed_ = std::fwrite(buffer_, 1, length_, file_) != length_;
    }
    length_ = 0;
    return !failed_;
}

bool WritableUnicodeFileStar::writeByte(uint8_t byte) {
    if (failed_ || !file_) {
        return false;
    }
    if (length_ == BUFFER_SIZE && !drain()) {
        return false;
    }
    buffer_[length_++] = byte;
    return true;
}

bool WritableUnicodeFileStar::flush() {
    if (!file_) {
        return false;
    }
    if (drain() && std::fflush(file_) != 0) {
        failed_ = true;
    }
    return !failed_;
}

bool WritableUnicodeFileStar::close() {
    if (!file_) {
        return false;
    }
    bool ok = flush();
    if (ownsFile_ && std::fclose(file_) != 0) {
        ok = false;
    }
    file_ = nullptr;
    return ok;
}

}  // namespace morvax
