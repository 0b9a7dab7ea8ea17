// Fuzz target of the Windows command-line splitter: any UTF-16 text (the bytes taken in pairs)
// is split or refused for its length, and what comes out is never longer than what went in.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "FuzzSupport.h"
#include "input/WideCommandLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    WStr line(size / 2, u'\0');
    if (!line.empty()) {
        std::memcpy(line.data(), data, line.size() * sizeof(char16_t));
    }
    WideCommandLine commandLine;
    if (!commandLine.split(line)) {
        fuzz::check(line.size() > WideCommandLine::kMaxLength, "only a long line is refused");
        return 0;
    }
    size_t total = 0;
    for (const WStr& argument : commandLine.arguments()) {
        total += argument.size();
    }
    fuzz::check(!commandLine.arguments().empty(), "there is always a program name");
    fuzz::check(total <= line.size(), "arguments hold no more than the line");
    const char16_t* const* argv = commandLine.argv();
    fuzz::check(argv[commandLine.arguments().size()] == nullptr, "argv ends with a null");
    return 0;
}
