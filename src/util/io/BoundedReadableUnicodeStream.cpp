#include "util/io/BoundedReadableUnicodeStream.h"

namespace morvax {

BoundedReadableUnicodeStream::BoundedReadableUnicodeStream(ReadableUnicodeStream& source,
                                                           uint64_t limit, uint32_t encoding)
    : ReadableUnicodeStream(encoding), source_(source), limit_(limit) {}

BoundedReadableUnicodeStream::~BoundedReadableUnicodeStream() = default;

int BoundedReadableUnicodeStream::readByte() {
    if (count_ < limit_) {
        ++count_;
        return source_.readByte();
    }
    // One byte more tells an input of exactly the limit from a longer one. The decoder asks
    // no more once it has had -1.
    exceeded_ = source_.readByte() >= 0;
    return -1;
}

}  // namespace morvax
