#include "wmi/sim/SimJsonlFile.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "util/thread/ScopedLock.h"
#include "wmi/sim/SimReport.h"

namespace morvax::wmi {

namespace {

// Enough of the file's start to tell a rewrite from an append in practice.
constexpr size_t kHeadBytes = 4096;

bool isBlank(StrSegment text) {
    for (char c : text.view()) {
        if (c != ' ' && c != '\t' && c != '\r') {
            return false;
        }
    }
    return true;
}

}  // namespace

SimJsonlFile::SimJsonlFile(std::filesystem::path path) : path_(std::move(path)) {}

bool SimJsonlFile::readFrom(uint64_t offset, Str& out) const {
    std::ifstream in(path_, std::ios::binary);
    if (!in) {
        return false;
    }
    in.seekg(0, std::ios::end);
    const std::streamoff end = in.tellg();
    if (end < 0 || static_cast<uint64_t>(end) < offset) {
        out.clear();
        return true;
    }
    out.resize(static_cast<size_t>(static_cast<uint64_t>(end) - offset));
    in.seekg(static_cast<std::streamoff>(offset));
    in.read(out.data(), static_cast<std::streamsize>(out.size()));
    out.resize(static_cast<size_t>(in.gcount()));
    return true;
}

uint64_t SimJsonlFile::refresh() {
    ScopedLock lock(mutex_);
    std::error_code ec;
    const uint64_t size = std::filesystem::file_size(path_, ec);
    if (ec) {
        // A missing file is an empty log; one that goes away has been cleared.
        if (taken_.size > 0 || !lines_.empty()) {
            ++generation_;
            lines_.clear();
            taken_ = Taken();
            lineNumber_ = 0;
        }
        seen_ = false;
        return generation_;
    }
    const auto lastWrite = std::filesystem::last_write_time(path_, ec);
    if (seen_ && size == lastSize_ && lastWrite == lastWrite_) {
        return generation_;
    }
    Str content;
    if (!readFrom(0, content)) {
        return generation_;
    }
    seen_ = true;
    lastSize_ = content.size();
    lastWrite_ = lastWrite;
    if (!stillPrefix(content)) {
        ++generation_;
        lines_.clear();
        taken_ = Taken();
        lineNumber_ = 0;
    }
    const uint64_t from = taken_.size;
    takeLines(Str(content.data() + from, content.size() - from), from);
    return generation_;
}

bool SimJsonlFile::stillPrefix(const Str& content) const {
    if (content.size() < taken_.size) {
        return false;
    }
    if (std::memcmp(content.data(), taken_.head.data(), taken_.head.size()) != 0) {
        return false;
    }
    const size_t lastStart = taken_.size - taken_.lastLine.size();
    return std::memcmp(content.data() + lastStart, taken_.lastLine.data(),
                       taken_.lastLine.size()) == 0;
}

void SimJsonlFile::takeLines(const Str& bytes, uint64_t offset) {
    const size_t lastLf = bytes.rfind('\n');
    if (lastLf == Str::npos) {
        return;  // not even one whole line yet
    }
    size_t start = 0;
    if (offset == 0 && bytes.size() >= 3 && std::memcmp(bytes.data(), "\xEF\xBB\xBF", 3) == 0) {
        start = 3;
    }
    size_t lastLineStart = 0;
    while (start <= lastLf) {
        const size_t lf = bytes.find('\n', start);
        StrSegment line(bytes.data() + start, lf - start);
        lastLineStart = start;
        start = lf + 1;
        ++lineNumber_;
        if (isBlank(line)) {
            continue;
        }
        if (line.size() > 0 && line.data()[line.size() - 1] == '\r') {
            line = StrSegment(line.data(), line.size() - 1);
        }
        nlohmann::ordered_json parsed;
        try {
            parsed = nlohmann::ordered_json::parse(line.data(), line.data() + line.size());
        } catch (const nlohmann::ordered_json::exception& e) {
            SimReport::atLine(path_, lineNumber_,
                              Str::printf("%s; line skipped", e.what()).segment());
            continue;
        }
        if (!parsed.is_object()) {
            SimReport::atLine(path_, lineNumber_, "not a JSON object; line skipped");
            continue;
        }
        lines_.push_back(Line{lineNumber_, Str(line)});
    }
    const uint64_t newSize = offset + lastLf + 1;
    if (taken_.head.size() < kHeadBytes) {
        // The head covers everything taken so far while it is short, so it can grow in place.
        const size_t more = std::min<size_t>(kHeadBytes - taken_.head.size(), lastLf + 1);
        taken_.head.append(bytes.data(), more);
    }
    taken_.lastLine = Str(bytes.data() + lastLineStart, lastLf + 1 - lastLineStart);
    taken_.size = newSize;
}

bool SimJsonlFile::linesFrom(uint64_t generation, size_t from, std::vector<Line>& out) const {
    ScopedLock lock(mutex_);
    if (generation != generation_) {
        return false;
    }
    for (size_t i = from; i < lines_.size(); ++i) {
        out.push_back(lines_[i]);
    }
    return true;
}

void SimJsonlFile::position(uint64_t& generation, size_t& count) const {
    ScopedLock lock(mutex_);
    generation = generation_;
    count = lines_.size();
}

}  // namespace morvax::wmi
