#include "conf/SharedStr.h"

#include <cstring>
#include <new>
#include <utility>

namespace morvax {

namespace {

// Copies `length` bytes to `target` with every CR LF and lone CR written as LF; returns the
// length written.
size_t copyWithLineFeeds(const char* bytes, size_t length, char* target) {
    char* out = target;
    for (size_t i = 0; i < length; ++i) {
        if (bytes[i] != '\r') {
            *out++ = bytes[i];
            continue;
        }
        *out++ = '\n';
        if (i + 1 < length && bytes[i + 1] == '\n') {
            ++i;
        }
    }
    return static_cast<size_t>(out - target);
}

}  // namespace

SharedStr::SharedStr(StrSegment bytes) {
    if (bytes.empty()) {
        return;
    }
    // Normalising only shortens the text, so the input's length is room enough.
    void* memory = ::operator new(sizeof(Block) + bytes.size() + 1);
    block_ = new (memory) Block{{1}, bytes.size()};
    char* text = block_->text();
    if (std::memchr(bytes.data(), '\r', bytes.size()) == nullptr) {
        std::memcpy(text, bytes.data(), bytes.size());
    } else {
        block_->length = copyWithLineFeeds(bytes.data(), bytes.size(), text);
    }
    text[block_->length] = '\0';
}

SharedStr& SharedStr::operator=(const SharedStr& other) noexcept {
    // Taken first, so that assigning a handle to itself keeps its text.
    Block* incoming = other.block_;
    other.retain();
    release();
    block_ = incoming;
    return *this;
}

SharedStr& SharedStr::operator=(SharedStr&& other) noexcept {
    if (this != &other) {
        release();
        block_ = std::exchange(other.block_, nullptr);
    }
    return *this;
}

void SharedStr::swap(SharedStr& other) noexcept {
    std::swap(block_, other.block_);
}

void SharedStr::release() noexcept {
    if (block_ && block_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        block_->~Block();
        ::operator delete(block_);
    }
    block_ = nullptr;
}

}  // namespace morvax
