#include "util/base/Str.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "util/base/LogFormatter.h"
#include "util/base/UnicodeCase.h"
#include "util/base/Utf8.h"

namespace morvax {

namespace {

constexpr size_t kMaxSize = (static_cast<size_t>(-1) >> 1) - 1;

}  // namespace

Str::Str(const char* cstring) : Str(cstring, cstring ? std::strlen(cstring) : 0) {}

Str::Str(const char* bytes, size_t length) {
    inline_[0] = '\0';
    append(bytes, length);
}

Str::Str(Str&& other) noexcept {
    inline_[0] = '\0';
    swap(other);
}

Str::~Str() {
    if (!isInline()) {
        std::free(data_);
    }
}

Str& Str::operator=(const Str& other) {
    if (this != &other) {
        assign(other.data_, other.length_);
    }
    return *this;
}

Str& Str::operator=(Str&& other) noexcept {
    if (this != &other) {
        Str empty;
        swap(empty);
        swap(other);
    }
    return *this;
}

Str& Str::assign(const char* bytes, size_t length) {
    if (bytes >= data_ && bytes < data_ + length_) {
        Str copy(bytes, length);  // source aliases our own buffer
        swap(copy);
        return *this;
    }
    // clear() and not a bare length of 0: an empty text must still end in a NUL.
    clear();
    return append(bytes, length);
}

void Str::grow(size_t needed) {
    if (needed <= capacity_) {
        return;
    }
    if (needed > kMaxSize) {
        throw std::length_error("Str too long");
    }
    size_t rounded = needed | 15;
    size_t oneAndHalf = capacity_ + capacity_ / 2;
    size_t newCapacity = std::max(rounded, oneAndHalf);
    if (newCapacity > kMaxSize) {
        newCapacity = kMaxSize;
    }
    char* fresh;
    if (isInline()) {
        fresh = static_cast<char*>(std::malloc(newCapacity + 1));
        if (!fresh) {
            throw std::bad_alloc();
        }
        std::memcpy(fresh, inline_, length_ + 1);
    } else {
        fresh = static_cast<char*>(std::realloc(data_, newCapacity + 1));
        if (!fresh) {
            throw std::bad_alloc();
        }
    }
    data_ = fresh;
    capacity_ = newCapacity;
}

void Str::reserve(size_t capacity) {
    grow(capacity);
}

void Str::resize(size_t length) {
    if (length > length_) {
        grow(length);
        std::memset(data_ + length_, 0, length - length_);
    }
    length_ = length;
    data_[length_] = '\0';
}

void Str::clear() {
    length_ = 0;
    data_[0] = '\0';
}

void Str::swap(Str& other) noexcept {
    if (this == &other) {
        return;
    }
    // Inline buffers move by value; heap buffers by pointer.
    Str* a = this;
    Str* b = &other;
    char tmpInline[kInlineCapacity + 1];
    bool aInline = a->isInline();
    bool bInline = b->isInline();
    char* aData = a->data_;
    char* bData = b->data_;
    std::memcpy(tmpInline, a->inline_, sizeof tmpInline);
    std::memcpy(a->inline_, b->inline_, sizeof tmpInline);
    std::memcpy(b->inline_, tmpInline, sizeof tmpInline);
    a->data_ = bInline ? a->inline_ : bData;
    b->data_ = aInline ? b->inline_ : aData;
    std::swap(a->length_, b->length_);
    std::swap(a->capacity_, b->capacity_);
}

Str& Str::append(const char* bytes, size_t length) {
    if (length == 0) {
        return *this;
    }
    if (length > kMaxSize - length_) {
        throw std::length_error("Str too long");
    }
    if (bytes >= data_ && bytes < data_ + capacity_ + 1 && length_ + length > capacity_) {
        Str copy(bytes, length);  // appending part of ourselves while reallocating
        return append(copy.data(), copy.size());
    }
    grow(length_ + length);
    std::memmove(data_ + length_, bytes, length);
    length_ += length;
    data_[length_] = '\0';
    return *this;
}

Str& Str::append(const char* cstring) {
    return cstring ? append(cstring, std::strlen(cstring)) : *this;
}

Str& Str::append(char c) {
    grow(length_ + 1);
    data_[length_++] = c;
    data_[length_] = '\0';
    return *this;
}

Str& Str::append(size_t count, char c) {
    if (count == 0) {
        return *this;
    }
    if (count > kMaxSize - length_) {
        throw std::length_error("Str too long");
    }
    grow(length_ + count);
    std::memset(data_ + length_, c, count);
    length_ += count;
    data_[length_] = '\0';
    return *this;
}

Str& Str::appendWide(const char16_t* wide) {
    if (!wide) {
        return *this;
    }
    return appendWide(wide, std::char_traits<char16_t>::length(wide));
}

Str Str::fromWide(const char16_t* wide, size_t length) {
    Str out;
    out.appendWide(wide, length);
    return out;
}

WStr Str::toWide(StrSegment text) {
    WStr out;
    appendToWide(out, text.data(), text.size());
    return out;
}

Str& Str::format(const char* fmt, ...) {
    clear();
    va_list args;
    va_start(args, fmt);
    LogFormatter::appendV(*this, fmt, args, false, 0);
    va_end(args);
    return *this;
}

Str& Str::appendFormat(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    LogFormatter::appendV(*this, fmt, args, false, 0);
    va_end(args);
    return *this;
}

Str& Str::appendFormatV(const char* fmt, va_list args) {
    LogFormatter::appendV(*this, fmt, args, false, 0);
    return *this;
}

Str& Str::appendFormatError(uint32_t savedError, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    LogFormatter::appendV(*this, fmt, args, true, savedError);
    va_end(args);
    return *this;
}

Str& Str::appendFormatErrorV(uint32_t savedError, const char* fmt, va_list args) {
    LogFormatter::appendV(*this, fmt, args, true, savedError);
    return *this;
}

Str Str::printf(const char* fmt, ...) {
    Str out;
    va_list args;
    va_start(args, fmt);
    LogFormatter::appendV(out, fmt, args, false, 0);
    va_end(args);
    return out;
}

Str Str::concat(const char* a, size_t aLength, const char* b, size_t bLength) {
    Str out;
    out.reserve(aLength + bLength);
    out.append(a, aLength);
    out.append(b, bLength);
    return out;
}

Str Str::concat(const char* cstring, const char* b, size_t bLength) {
    return concat(cstring, std::strlen(cstring), b, bLength);
}

size_t Str::find(const char* text, size_t textLength, const char* needle, size_t from,
                 size_t needleLength) {
    if (needleLength == 0) {
        return from < textLength ? from : npos;
    }
    if (from >= textLength || needleLength > textLength - from) {
        return npos;
    }
    const char* p = text + from;
    const char* last = text + textLength - needleLength;
    while (p <= last) {
        const void* hit = std::memchr(p, needle[0], static_cast<size_t>(last - p) + 1);
        if (!hit) {
            return npos;
        }
        p = static_cast<const char*>(hit);
        if (std::memcmp(p + 1, needle + 1, needleLength - 1) == 0) {
            return static_cast<size_t>(p - text);
        }
        ++p;
    }
    return npos;
}

size_t Str::find(char c, size_t from) const {
    if (from >= length_) {
        return npos;
    }
    const void* hit = std::memchr(data_ + from, c, length_ - from);
    return hit ? static_cast<size_t>(static_cast<const char*>(hit) - data_) : npos;
}

size_t Str::rfind(char c) const {
    for (size_t i = length_; i > 0; --i) {
        if (data_[i - 1] == c) {
            return i - 1;
        }
    }
    return npos;
}

size_t Str::replaceAll(const char* needle, size_t needleLength, const char* replacement,
                       size_t replacementLength) {
    if (needleLength == 0) {
        return 0;
    }
    std::vector<size_t> places;
    for (size_t at = find(data_, length_, needle, 0, needleLength); at != npos;
         at = find(data_, length_, needle, at + needleLength, needleLength)) {
        places.push_back(at);
    }
    if (places.empty()) {
        return 0;
    }
    Str out;
    out.reserve(length_ - places.size() * needleLength + places.size() * replacementLength);
    size_t from = 0;
    for (size_t at : places) {
        out.append(data_ + from, at - from);
        out.append(replacement, replacementLength);
        from = at + needleLength;
    }
    out.append(data_ + from, length_ - from);
    swap(out);
    return places.size();
}

void Str::toLower() {
    size_t i = 0;
    // ASCII path, 16 bytes a step while every byte is below 128.
    while (i + 16 <= length_) {
        uint64_t w[2];
        std::memcpy(w, data_ + i, 16);
        if ((w[0] | w[1]) & 0x8080808080808080ull) {
            break;
        }
        for (size_t k = 0; k < 16; ++k) {
            char& c = data_[i + k];
            if (c >= 'A' && c <= 'Z') {
                c = static_cast<char>(c + 32);
            }
        }
        i += 16;
    }
    for (; i < length_; ++i) {
        unsigned char c = static_cast<unsigned char>(data_[i]);
        if (c >= 0x80) {
            break;
        }
        if (c >= 'A' && c <= 'Z') {
            data_[i] = static_cast<char>(c + 32);
        }
    }
    if (i == length_) {
        return;
    }
    // Non-ASCII text is rebuilt code point by code point; invalid bytes are kept as they are.
    Str out;
    out.reserve(length_);
    out.append(data_, i);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(data_ + i);
    const unsigned char* end = reinterpret_cast<const unsigned char*>(data_ + length_);
    while (p < end) {
        const unsigned char* start = p;
        char32_t cp = Utf8::decode(p, end);
        if (cp == Utf8::REPLACEMENT && !Utf8::isGenuineReplacement(start, p)) {
            out.append(reinterpret_cast<const char*>(start), static_cast<size_t>(p - start));
        } else {
            Utf8::encode(out, UnicodeCase::toLower(cp));
        }
    }
    swap(out);
}

Str Str::toLowerCopy() const {
    Str copy(*this);
    copy.toLower();
    return copy;
}

void Str::trim(const CharSet& set, bool left, bool right) {
    size_t begin = 0;
    size_t end = length_;
    if (left) {
        while (begin < end && set.contains(data_[begin])) {
            ++begin;
        }
    }
    if (right) {
        while (end > begin && set.contains(data_[end - 1])) {
            --end;
        }
    }
    if (begin > 0) {
        std::memmove(data_, data_ + begin, end - begin);
    }
    length_ = end - begin;
    data_[length_] = '\0';
}

Str Str::trimCopy(StrSegment text, const CharSet& set, bool left, bool right) {
    size_t begin = 0;
    size_t end = text.size();
    if (left) {
        while (begin < end && set.contains(text[begin])) {
            ++begin;
        }
    }
    if (right) {
        while (end > begin && set.contains(text[end - 1])) {
            --end;
        }
    }
    return Str(text.data() + begin, end - begin);
}

void Str::removeMatchingQuotes(char quoteChar) {
    if (length_ >= 2 && data_[0] == quoteChar && data_[length_ - 1] == quoteChar) {
        std::memmove(data_, data_ + 1, length_ - 2);
        length_ -= 2;
        data_[length_] = '\0';
    }
}

Str operator+(const Str& a, StrSegment b) {
    return Str::concat(a.data(), a.size(), b.data(), b.size());
}

namespace {

class SegmentVectorAcceptor : public StrSegmentTokenAcceptor {
  public:
    explicit SegmentVectorAcceptor(std::vector<StrSegment>& out) : out_(out) {}
    void accept(StrSegment segment) override { out_.push_back(segment); }

  private:
    std::vector<StrSegment>& out_;
};

class StrVectorAcceptor : public StrSegmentTokenAcceptor {
  public:
    explicit StrVectorAcceptor(std::vector<Str>& out) : out_(out) {}
    void accept(StrSegment segment) override { out_.emplace_back(segment); }

  private:
    std::vector<Str>& out_;
};

}  // namespace

void splitOnChar(StrSegment text, char separator, int32_t maxSplits,
                 StrSegmentTokenAcceptor& acceptor) {
    if (text.empty()) {
        return;
    }
    const char* start = text.begin();
    const char* end = text.end();
    int32_t splits = 0;
    if (maxSplits != 0) {
        for (const char* p = start; p < end; ++p) {
            if (*p == separator) {
                acceptor.accept(StrSegment(start, static_cast<size_t>(p - start)));
                start = p + 1;
                if (maxSplits > 0 && ++splits == maxSplits) {
                    break;
                }
            }
        }
    }
    acceptor.accept(StrSegment(start, static_cast<size_t>(end - start)));
}

void splitOnChar(StrSegment text, char separator, int32_t maxSplits, std::vector<StrSegment>& out) {
    SegmentVectorAcceptor acceptor(out);
    splitOnChar(text, separator, maxSplits, acceptor);
}

void splitOnChar(StrSegment text, char separator, int32_t maxSplits, std::vector<Str>& out) {
    StrVectorAcceptor acceptor(out);
    splitOnChar(text, separator, maxSplits, acceptor);
}

}  // namespace morvax
