#include "util/regex/CrashlogAnnotateRegexCompile.h"

#include <cstring>

namespace morvax {

CrashlogAnnotateRegexCompile::CrashlogAnnotateRegexCompile(StrSegment pattern)
    : pattern_(pattern.data()), patternLength_(pattern.size()) {
    link();
}

CrashlogAnnotateRegexCompile::~CrashlogAnnotateRegexCompile() {
    unlink();
}

void CrashlogAnnotateRegexCompile::write(FormatSink& sink) const {
    static const char head[] = "WHILE COMPILING REGEX: /";
    sink.write(head, sizeof(head) - 1);
    if (patternLength_ != 0) {
        sink.write(pattern_, patternLength_);
    }
    sink.write("/", 1);
    if (const char* phase = phase_.load(std::memory_order_acquire)) {
        sink.write(" (", 2);
        sink.write(phase, std::strlen(phase));
        sink.write(")", 1);
    }
    sink.write("\r\n", 2);
}

}  // namespace morvax
