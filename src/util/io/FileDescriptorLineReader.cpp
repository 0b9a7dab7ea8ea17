#include "util/io/FileDescriptorLineReader.h"

#include <cstring>

#include "util/base/LastError.h"

namespace morvax {

FileDescriptorLineReader::FileDescriptorLineReader(Handle handle, bool ownsHandle)
    : handle_(handle),
      ownsHandle_(ownsHandle),
      pipe_(handle != INVALID_HANDLE && isPipe(handle)),
      ended_(handle == INVALID_HANDLE) {}

FileDescriptorLineReader::~FileDescriptorLineReader() {
    if (ownsHandle_ && handle_ != INVALID_HANDLE) {
        closeHandle(handle_);
    }
}

bool FileDescriptorLineReader::deliver(Str& target, size_t end, size_t next) {
    size_t length = end - start_;
    if (length > 0 && buffer_[end - 1] == '\r') {
        --length;
    }
    target.assign(buffer_.data() + start_, length);
    start_ = next;
    scanned_ = next;
    return true;
}

bool FileDescriptorLineReader::readLine(Str& target) {
    target.clear();
    wouldBlock_ = false;
    lastError_ = readError_;
    for (;;) {
        const char* base = buffer_.data();
        const void* lf = std::memchr(base + scanned_, '\n', buffer_.size() - scanned_);
        if (lf) {
            size_t at = static_cast<const char*>(lf) - base;
            return deliver(target, at, at + 1);
        }
        scanned_ = buffer_.size();
        if (ended_) {
            if (start_ < buffer_.size()) {
                return deliver(target, buffer_.size(), buffer_.size());
            }
            if (readError_ != 0) {
                LastError::set(readError_);
            }
            return false;
        }
        // Drop what was handed out before reading more, so the buffer holds one line at most
        // plus one read.
        if (start_ > 0) {
            size_t rest = buffer_.size() - start_;
            std::memmove(buffer_.data(), buffer_.data() + start_, rest);
            buffer_.resize(rest);
            scanned_ -= start_;
            start_ = 0;
        }
        size_t old = buffer_.size();
        buffer_.resize(old + READ_SIZE);
        size_t got = 0;
        uint32_t error = 0;
        ReadStatus status = readSome(handle_, pipe_, buffer_.data() + old, READ_SIZE, got, error);
        buffer_.resize(old + (status == READ_DATA ? got : 0));
        switch (status) {
            case READ_DATA:
                break;
            case READ_WOULD_BLOCK:
                wouldBlock_ = true;
                lastError_ = error;
                LastError::set(error);
                return false;
            case READ_ERROR:
                readError_ = lastError_ = error;
                ended_ = true;
                break;
            case READ_END:
                ended_ = true;
                break;
        }
    }
}

}  // namespace morvax
