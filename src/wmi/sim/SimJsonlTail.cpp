#include "wmi/sim/SimJsonlTail.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "wmi/sim/SimReport.h"

namespace morvax::wmi {

namespace {

// Enough of the file's start to tell a rewrite from an append in practice.
constexpr size_t kHeadBytes = 4096;
// As much of the end of the last line as is kept to recognise it.
constexpr size_t kLastBytes = 4096;
// What one read takes: a refresh holds this and at most one line, however much was appended.
constexpr size_t kChunkBytes = 1 << 20;

bool isBlank(StrSegment text) {
    for (char c : text.view()) {
        if (c != ' ' && c != '\t' && c != '\r') {
            return false;
        }
    }
    return true;
}

bool same(const Str& bytes, const Str& expected) {
    return bytes.size() == expected.size() &&
           std::memcmp(bytes.data(), expected.data(), bytes.size()) == 0;
}

}  // namespace

SimJsonlTail::SimJsonlTail(std::filesystem::path path) : path_(std::move(path)) {}

uint64_t SimJsonlTail::refresh(Sink& sink) {
    std::error_code ec;
    const uint64_t size = std::filesystem::file_size(path_, ec);
    if (ec) {
        // A missing file is an empty log; one that goes away has been cleared.
        if (taken_.size > 0) {
            restart(sink);
        }
        seen_ = false;
        return generation_;
    }
    const auto lastWrite = std::filesystem::last_write_time(path_, ec);
    if (seen_ && size == lastSize_ && lastWrite == lastWrite_) {
        return generation_;
    }
    std::ifstream in;
    // Unbuffered, so that checking the fingerprint reads just its bytes and not a buffer's worth.
    in.rdbuf()->pubsetbuf(nullptr, 0);
    in.open(path_, std::ios::binary);
    if (!in) {
        return generation_;
    }
    seen_ = true;
    lastSize_ = size;
    lastWrite_ = lastWrite;
    if (!stillPrefix(in, size)) {
        restart(sink);
    }
    takeLines(in, size, sink);
    return generation_;
}

bool SimJsonlTail::readAt(std::ifstream& in, uint64_t offset, size_t count, Str& out) {
    out.resize(count);
    if (count == 0) {
        return true;
    }
    in.clear();
    in.seekg(static_cast<std::streamoff>(offset));
    in.read(out.data(), static_cast<std::streamsize>(count));
    out.resize(static_cast<size_t>(in.gcount()));
    bytesRead_ += out.size();
    return out.size() == count;
}

bool SimJsonlTail::stillPrefix(std::ifstream& in, uint64_t size) {
    if (size < taken_.size) {
        return false;
    }
    Str bytes;
    if (!readAt(in, 0, taken_.head.size(), bytes) || !same(bytes, taken_.head)) {
        return false;
    }
    // While everything taken fits in the head, the head alone says it.
    return taken_.size <= taken_.head.size() ||
           (readAt(in, taken_.size - taken_.last.size(), taken_.last.size(), bytes) &&
            same(bytes, taken_.last));
}

void SimJsonlTail::restart(Sink& sink) {
    ++generation_;
    taken_ = Taken();
    lineNumber_ = 0;
    sink.restart();
}

void SimJsonlTail::takeLines(std::ifstream& in, uint64_t size, Sink& sink) {
    const uint64_t start = taken_.size;
    Str head;  // the bytes from `start` on that the head may still take
    Str chunk;
    Str line;
    bool tooLong = false;
    for (uint64_t offset = start; offset < size; offset += chunk.size()) {
        readAt(in, offset, static_cast<size_t>(std::min<uint64_t>(kChunkBytes, size - offset)),
               chunk);
        if (chunk.empty()) {
            break;
        }
        if (offset == start && taken_.head.size() < kHeadBytes) {
            head = Str(chunk.data(), std::min(chunk.size(), kHeadBytes - taken_.head.size()));
        }
        size_t pos = 0;
        while (pos < chunk.size()) {
            const char* from = chunk.data() + pos;
            const auto* lf = static_cast<const char*>(std::memchr(from, '\n', chunk.size() - pos));
            const size_t end = lf ? static_cast<size_t>(lf - chunk.data()) : chunk.size();
            line.append(from, end - pos);
            if (line.size() > kMaxLineBytes) {
                // Refused: only its end is kept, to recognise it as the last line taken.
                tooLong = true;
                line = Str(line.data() + line.size() - kLastBytes, kLastBytes);
            }
            if (!lf) {
                break;  // not a whole line yet
            }
            takeLine(line.segment(), tooLong, taken_.size == 0, sink);
            const size_t keep = std::min(line.size(), kLastBytes - 1);
            taken_.last = Str(line.data() + line.size() - keep, keep);
            taken_.last.append('\n');
            taken_.size = offset + end + 1;
            line.clear();
            tooLong = false;
            pos = end + 1;
        }
    }
    if (taken_.head.size() < kHeadBytes) {
        // The head covers everything taken so far while it is short, so it grows in place.
        taken_.head.append(
            head.data(), static_cast<size_t>(std::min<uint64_t>(head.size(), taken_.size - start)));
    }
}

void SimJsonlTail::takeLine(StrSegment line, bool tooLong, bool first, Sink& sink) {
    ++lineNumber_;
    if (tooLong) {
        SimReport::atLine(
            path_, lineNumber_,
            Str::printf("longer than %u bytes; line skipped", static_cast<unsigned>(kMaxLineBytes))
                .segment());
        return;
    }
    if (first && line.size() >= 3 && std::memcmp(line.data(), "\xEF\xBB\xBF", 3) == 0) {
        line = StrSegment(line.data() + 3, line.size() - 3);
    }
    if (isBlank(line)) {
        return;
    }
    if (line.data()[line.size() - 1] == '\r') {
        line = StrSegment(line.data(), line.size() - 1);
    }
    sink.line(lineNumber_, line);
}

}  // namespace morvax::wmi
