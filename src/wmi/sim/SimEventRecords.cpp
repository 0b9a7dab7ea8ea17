#include "wmi/sim/SimEventRecords.h"

#include <algorithm>
#include <cstring>

#include "util/thread/ScopedLock.h"

namespace morvax::wmi {

namespace {

// The encoding: each value is its vt (a varint) and then, by vt, nothing (null), a zigzag varint
// (signed), a varint (unsigned), 8 bytes (real), 1 byte (boolean), or for text a varint of
// length * 2 + wide followed by one byte per unit when every unit fits in a byte (most event
// text) and two otherwise. An array is its count and its elements without their vt.

void putVarint(std::vector<char>& out, uint64_t v) {
    while (v >= 0x80) {
        out.push_back(static_cast<char>((v & 0x7F) | 0x80));
        v >>= 7;
    }
    out.push_back(static_cast<char>(v));
}

uint64_t getVarint(const char*& p) {
    uint64_t v = 0;
    for (int shift = 0;; shift += 7) {
        const auto byte = static_cast<unsigned char>(*p++);
        v |= static_cast<uint64_t>(byte & 0x7F) << shift;
        if (byte < 0x80) {
            return v;
        }
    }
}

enum class Kind { NONE, SIGNED, UNSIGNED, REAL, BOOLEAN, TEXT, OTHER };

Kind kindOf(uint16_t vt) {
    switch (vt & VT_TYPEMASK) {
        case VT_EMPTY:
        case VT_NULL:
            return Kind::NONE;
        case VT_I1:
        case VT_I2:
        case VT_I4:
        case VT_I8:
        case VT_INT:
            return Kind::SIGNED;
        case VT_UI1:
        case VT_UI2:
        case VT_UI4:
        case VT_UI8:
        case VT_UINT:
            return Kind::UNSIGNED;
        case VT_R4:
        case VT_R8:
            return Kind::REAL;
        case VT_BOOL:
            return Kind::BOOLEAN;
        case VT_BSTR:
        case VT_LPWSTR:
            return Kind::TEXT;
        default:
            return Kind::OTHER;
    }
}

bool packable(const Variant& v) {
    if (kindOf(v.vt) == Kind::OTHER) {
        return false;
    }
    if (!v.isArray()) {
        return true;
    }
    return std::all_of(v.array.begin(), v.array.end(),
                       [&](const Variant& element) { return element.vt == (v.vt & VT_TYPEMASK); });
}

// Everything but the vt.
void packBody(std::vector<char>& out, const Variant& v, uint16_t vt) {
    switch (kindOf(vt)) {
        case Kind::SIGNED:
            putVarint(out, (static_cast<uint64_t>(v.i) << 1) ^ static_cast<uint64_t>(v.i >> 63));
            break;
        case Kind::UNSIGNED:
            putVarint(out, v.u);
            break;
        case Kind::REAL: {
            char bytes[sizeof v.d];
            std::memcpy(bytes, &v.d, sizeof v.d);
            out.insert(out.end(), bytes, bytes + sizeof bytes);
            break;
        }
        case Kind::BOOLEAN:
            out.push_back(v.b ? 1 : 0);
            break;
        case Kind::TEXT: {
            const bool wide =
                std::any_of(v.str.begin(), v.str.end(), [](char16_t c) { return c > 0xFF; });
            putVarint(out, v.str.size() * 2 + (wide ? 1 : 0));
            if (wide) {
                const auto* bytes = reinterpret_cast<const char*>(v.str.data());
                out.insert(out.end(), bytes, bytes + v.str.size() * sizeof(char16_t));
            } else {
                for (char16_t c : v.str) {
                    out.push_back(static_cast<char>(c));
                }
            }
            break;
        }
        case Kind::NONE:
        case Kind::OTHER:
            break;
    }
}

void pack(std::vector<char>& out, const Variant& v) {
    if (!packable(v)) {
        putVarint(out, VT_NULL);
        return;
    }
    putVarint(out, v.vt);
    if (!v.isArray()) {
        packBody(out, v, v.vt);
        return;
    }
    putVarint(out, v.array.size());
    for (const Variant& element : v.array) {
        packBody(out, element, element.vt);
    }
}

Variant unpackBody(const char*& p, uint16_t vt) {
    Variant v;
    v.vt = vt;
    switch (kindOf(vt)) {
        case Kind::SIGNED: {
            const uint64_t zigzag = getVarint(p);
            v.i = static_cast<int64_t>(zigzag >> 1) ^ -static_cast<int64_t>(zigzag & 1);
            break;
        }
        case Kind::UNSIGNED:
            v.u = getVarint(p);
            break;
        case Kind::REAL:
            std::memcpy(&v.d, p, sizeof v.d);
            p += sizeof v.d;
            break;
        case Kind::BOOLEAN:
            v.b = *p++ != 0;
            break;
        case Kind::TEXT: {
            const uint64_t header = getVarint(p);
            const size_t length = static_cast<size_t>(header >> 1);
            if (header & 1) {
                v.str.resize(length);
                std::memcpy(v.str.data(), p, length * sizeof(char16_t));
                p += length * sizeof(char16_t);
            } else {
                v.str.assign(reinterpret_cast<const unsigned char*>(p),
                             reinterpret_cast<const unsigned char*>(p) + length);
                p += length;
            }
            break;
        }
        case Kind::NONE:
        case Kind::OTHER:
            break;
    }
    return v;
}

Variant unpack(const char*& p) {
    const auto vt = static_cast<uint16_t>(getVarint(p));
    if (!(vt & VT_ARRAY)) {
        return unpackBody(p, vt);
    }
    Variant v;
    v.vt = vt;
    v.array.resize(static_cast<size_t>(getVarint(p)));
    for (Variant& element : v.array) {
        element = unpackBody(p, vt & VT_TYPEMASK);
    }
    return v;
}

}  // namespace

SimEventRecords::SimEventRecords(std::shared_ptr<const SimClass> cls)
    : class_(std::move(cls)), recordNumber_(class_->find(u"RecordNumber")) {}

bool SimEventRecords::add(const std::vector<Variant>& values) {
    ScopedLock lock(mutex_);
    const size_t start = bytes_.size();
    for (const Variant& v : values) {
        pack(bytes_, v);
    }
    if (bytes_.size() > kMaxBytes) {
        bytes_.resize(start);
        return false;
    }
    const Variant& number = values[recordNumber_];
    const int32_t key = number.vt == VT_I4 ? static_cast<int32_t>(number.i) : 0;
    // Anything but numbers in ascending order is searched whole.
    if (number.vt != VT_I4 || (!numbers_.empty() && key < numbers_.back())) {
        ascending_ = false;
    }
    offsets_.push_back(static_cast<uint32_t>(start));
    numbers_.push_back(key);
    return true;
}

size_t SimEventRecords::size() const {
    ScopedLock lock(mutex_);
    return offsets_.size();
}

std::shared_ptr<const SimInstance> SimEventRecords::instance(size_t index) const {
    std::vector<Variant> values(class_->properties().size());
    {
        ScopedLock lock(mutex_);
        const char* p = bytes_.data() + offsets_[index];
        for (Variant& v : values) {
            v = unpack(p);
        }
    }
    return std::make_shared<const SimInstance>(class_, std::move(values));
}

void SimEventRecords::narrow(size_t count, int64_t low, int64_t high, size_t& begin,
                             size_t& end) const {
    ScopedLock lock(mutex_);
    count = std::min(count, numbers_.size());
    begin = 0;
    end = count;
    if (!ascending_) {
        return;
    }
    const auto first = numbers_.begin();
    const auto last = first + static_cast<ptrdiff_t>(count);
    begin = static_cast<size_t>(
        std::lower_bound(first, last, low, [](int32_t n, int64_t v) { return n < v; }) - first);
    end = static_cast<size_t>(
        std::upper_bound(first, last, high, [](int64_t v, int32_t n) { return v < n; }) - first);
    end = std::max(begin, end);
}

}  // namespace morvax::wmi
