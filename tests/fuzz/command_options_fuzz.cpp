// Fuzz target of the command-line options: the input split on NUL bytes is an argument vector
// (UTF-8, widened), and the same bytes taken in pairs are a Windows command line that the
// splitter turns into one. Either the options come out consistent or the usage is due; the
// parser writes nothing either way; options written back as arguments parse to themselves.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

#include "FuzzScratch.h"
#include "FuzzSupport.h"
#include "input/CommandLineOptions.h"
#include "input/WideCommandLine.h"
#include "util/base/Str.h"

namespace morvax {
namespace {

using fuzz::check;

#if defined(_WIN32)
int duplicate(int fd) {
    return _dup(fd);
}
int duplicateTo(int fd, int target) {
    return _dup2(fd, target);
}
void closeFd(int fd) {
    _close(fd);
}
#else
int duplicate(int fd) {
    return dup(fd);
}
int duplicateTo(int fd, int target) {
    return dup2(fd, target);
}
void closeFd(int fd) {
    close(fd);
}
#endif

// Standard output and error go to a file while the parser runs; what it wrote is returned.
class CapturedOutput {
  public:
    explicit CapturedOutput(const std::filesystem::path& file) : file_(file) {
        std::fflush(stdout);
        std::fflush(stderr);
        capture_ = std::fopen(file.string().c_str(), "wb");
        check(capture_ != nullptr, "the capture file opens");
        savedOut_ = duplicate(1);
        savedErr_ = duplicate(2);
        duplicateTo(fileno(capture_), 1);
        duplicateTo(fileno(capture_), 2);
    }
    ~CapturedOutput() { restore(); }

    std::string restore() {
        if (capture_ == nullptr) {
            return std::string();
        }
        std::fflush(stdout);
        std::fflush(stderr);
        duplicateTo(savedOut_, 1);
        duplicateTo(savedErr_, 2);
        closeFd(savedOut_);
        closeFd(savedErr_);
        std::fclose(capture_);
        capture_ = nullptr;
        return fuzz::ScratchDirectory::read(file_);
    }

  private:
    std::filesystem::path file_;
    FILE* capture_ = nullptr;
    int savedOut_ = -1;
    int savedErr_ = -1;
};

// The reading scanUnsigned promises: "%u" of the scanf family, modulo 2^32.
int expectedScan(const char16_t* text, uint32_t& value) {
    const char16_t* p = text;
    while (*p == u' ' || (*p >= u'\t' && *p <= u'\r')) {
        ++p;
    }
    if (*p == 0) {
        return -1;
    }
    const bool negative = *p == u'-';
    if (*p == u'+' || *p == u'-') {
        ++p;
    }
    if (*p < u'0' || *p > u'9') {
        return 0;
    }
    uint32_t number = 0;
    for (; *p >= u'0' && *p <= u'9'; ++p) {
        number = number * 10u + static_cast<uint32_t>(*p - u'0');
    }
    value = negative ? 0u - number : number;
    return 1;
}

bool isArgument(const char16_t* pointer, const std::vector<const char16_t*>& argv) {
    for (const char16_t* argument : argv) {
        if (argument == pointer) {
            return true;
        }
    }
    return false;
}

WStr textOf(const char16_t* pointer) {
    return pointer != nullptr ? WStr(pointer) : WStr();
}

bool sameOptions(const CommandLineOptions& a, const CommandLineOptions& b) {
    return a.runUntilPidDies == b.runUntilPidDies && a.dieWhenPidDies == b.dieWhenPidDies &&
           a.watch == b.watch && a.test == b.test &&
           (a.pid == b.pid || !(a.runUntilPidDies || a.dieWhenPidDies)) && a.wql == b.wql &&
           a.namespace_ == b.namespace_ && a.servers == b.servers &&
           (a.loglist != nullptr) == (b.loglist != nullptr) &&
           textOf(a.loglist) == textOf(b.loglist) && (a.index != nullptr) == (b.index != nullptr) &&
           textOf(a.index) == textOf(b.index);
}

// The options as the arguments that ask for them, in an order every rule accepts.
std::vector<WStr> argumentsOf(const CommandLineOptions& options) {
    std::vector<WStr> out{u"morvax-wmi"};
    const WStr pid = Str(std::to_string(options.pid)).toWide();
    if (options.runUntilPidDies) {
        out.insert(out.end(), {u"-run-until-pid-dies", pid});
    }
    if (options.dieWhenPidDies) {
        out.insert(out.end(), {u"-die-when-pid-dies", pid});
    }
    if (options.wql) {
        out.insert(out.end(), {u"-wql", *options.wql});
    }
    if (options.namespace_) {
        out.insert(out.end(), {u"-namespace", *options.namespace_});
    }
    if (options.loglist != nullptr) {
        out.insert(out.end(), {u"-loglist", options.loglist});
    }
    if (options.servers) {
        out.insert(out.end(), {u"-servers", *options.servers});
    }
    if (options.watch) {
        out.push_back(u"-watch");
    }
    if (options.test) {
        out.push_back(u"-test");
    }
    if (options.index != nullptr) {
        out.insert(out.end(), {u"-index", options.index});
    }
    return out;
}

std::vector<const char16_t*> pointersOf(const std::vector<WStr>& arguments) {
    std::vector<const char16_t*> argv;
    for (const WStr& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    return argv;
}

void checkArguments(const std::vector<const char16_t*>& argv, const std::filesystem::path& file) {
    const int argc = static_cast<int>(argv.size()) - 1;
    CommandLineOptions options;
    CapturedOutput capture(file);
    const bool accepted = parseCommandLineArguments(argc, argv.data(), options);
    check(capture.restore().empty(), "the parser writes nothing");

    for (int i = 1; i < argc; ++i) {
        uint32_t value = 0;
        uint32_t expected = 0;
        const int result = scanUnsigned(argv[i], value);
        check(result == expectedScan(argv[i], expected) && (result != 1 || value == expected),
              "a number reads as %u reads it");
    }
    if (!accepted) {
        return;
    }
    check(!(options.runUntilPidDies && options.dieWhenPidDies), "one pid option at most");
    check(!options.dieWhenPidDies || (!options.wql && options.loglist == nullptr),
          "dying with the pid only without a query");
    check(!options.watch || options.wql || options.loglist != nullptr,
          "watching needs something to watch");
    check(!options.namespace_ || options.wql, "a namespace only for a query");
    check(!options.servers || options.loglist != nullptr, "servers only for event logs");
    check(options.loglist == nullptr || isArgument(options.loglist, argv),
          "the log list is one of the arguments");
    check(options.index == nullptr || isArgument(options.index, argv),
          "the index is one of the arguments");

    const std::vector<WStr> rewritten = argumentsOf(options);
    const std::vector<const char16_t*> again = pointersOf(rewritten);
    CommandLineOptions reparsed;
    check(parseCommandLineArguments(static_cast<int>(again.size()) - 1, again.data(), reparsed),
          "options written as arguments are accepted");
    check(sameOptions(reparsed, options), "options written as arguments parse to themselves");
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    static const fuzz::ScratchDirectory scratch("options");
    const std::filesystem::path capture = scratch.path() / "output";

    // NUL-separated arguments after a program name.
    std::vector<WStr> arguments{u"morvax-wmi"};
    const char* bytes = reinterpret_cast<const char*>(data);
    size_t start = 0;
    for (size_t i = 0; i <= size; ++i) {
        if (i == size || bytes[i] == '\0') {
            if (i > start || i < size) {
                arguments.push_back(Str::toWide(StrSegment(bytes + start, i - start)));
            }
            start = i + 1;
        }
    }
    checkArguments(pointersOf(arguments), capture);

    // The bytes in pairs as a command line, split as the platform splits one.
    WStr line(size / 2, u'\0');
    if (!line.empty()) {
        std::memcpy(line.data(), data, line.size() * sizeof(char16_t));
    }
    // The line ends at its first NUL, as a command line does.
    line.resize(std::char_traits<char16_t>::length(line.c_str()));
    WideCommandLine commandLine;
    if (commandLine.split(line)) {
        std::vector<const char16_t*> argv;
        for (const char16_t* const* p = commandLine.argv(); *p != nullptr; ++p) {
            argv.push_back(*p);
        }
        argv.push_back(nullptr);
        checkArguments(argv, capture);
    }
    return 0;
}
