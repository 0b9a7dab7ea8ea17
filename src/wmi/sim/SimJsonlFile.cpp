#include "wmi/sim/SimJsonlFile.h"

#include <nlohmann/json.hpp>

#include "util/thread/ScopedLock.h"
#include "wmi/sim/SimJsonReader.h"

namespace morvax::wmi {

SimJsonlFile::SimJsonlFile(std::filesystem::path path) : tail_(std::move(path)) {}

uint64_t SimJsonlFile::refresh() {
    ScopedLock lock(mutex_);
    generation_ = tail_.refresh(*this);
    return generation_;
}

void SimJsonlFile::restart() {
    lines_.clear();
}

void SimJsonlFile::line(uint32_t number, StrSegment text) {
    SimJsonReader::Json object;
    if (SimJsonReader::objectOfLine(tail_.path(), number, text, object)) {
        lines_.push_back(Line{number, Str(text)});
    }
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
