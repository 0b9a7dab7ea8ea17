#include "util/thread/ScopedPerThreadCrashLogConstantStringNotation.h"

#include <cstring>

namespace morvax {

ScopedPerThreadCrashLogConstantStringNotation::ScopedPerThreadCrashLogConstantStringNotation(
    const char* text)
    : text_(text ? text : "") {
    link();
}

ScopedPerThreadCrashLogConstantStringNotation::~ScopedPerThreadCrashLogConstantStringNotation() {
    unlink();
}

void ScopedPerThreadCrashLogConstantStringNotation::write(FormatSink& sink) const {
    sink.write(text_, std::strlen(text_));
    sink.write("\r\n", 2);
}

}  // namespace morvax
