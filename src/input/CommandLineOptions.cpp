#include "input/CommandLineOptions.h"

#include <cstdio>
#include <cstdlib>

#include "util/log/LogPlatform.h"

namespace morvax {

namespace {

bool sameText(const char16_t* a, const char16_t* b) {
    while (*a != 0 && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

bool isWideSpace(char16_t c) {
    return c == u' ' || (c >= u'\t' && c <= u'\r');
}

// The walk over the arguments; every rule that takes a value reads it through value().
class ArgumentWalk {
  public:
    ArgumentWalk(int argc, const char16_t* const* argv) : argc_(argc), argv_(argv) {}

    bool atEnd() const { return cursor_ >= argc_ || argv_[cursor_] == nullptr; }
    const char16_t* current() const { return argv_[cursor_]; }
    void skip() { ++cursor_; }

    // The argument after the current one, consuming both; null when it is missing.
    const char16_t* value() {
        if (cursor_ + 1 >= argc_ || argv_[cursor_ + 1] == nullptr) {
            return nullptr;
        }
        const char16_t* text = argv_[cursor_ + 1];
        cursor_ += 2;
        return text;
    }

  private:
    int argc_;
    const char16_t* const* argv_;
    int cursor_ = 1;
};

bool takePid(ArgumentWalk& walk, uint32_t& pid) {
    const char16_t* text = walk.value();
    return text != nullptr && scanUnsigned(text, pid) == 1;
}

bool takeString(ArgumentWalk& walk, std::optional<WStr>& field) {
    const char16_t* text = walk.value();
    if (text == nullptr) {
        return false;
    }
    field = WStr(text);
    return true;
}

bool takePointer(ArgumentWalk& walk, const char16_t*& field) {
    const char16_t* text = walk.value();
    if (text == nullptr) {
        return false;
    }
    field = text;
    return true;
}

}  // namespace

CommandLineOptions& CommandLineOptions::process() {
    static CommandLineOptions options;
    return options;
}

int scanUnsigned(const char16_t* text, uint32_t& value) {
    const char16_t* p = text;
    while (isWideSpace(*p)) {
        ++p;
    }
    if (*p == 0) {
        return -1;
    }
    bool negative = false;
    if (*p == u'+' || *p == u'-') {
        negative = *p == u'-';
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

bool parseCommandLineArguments(int argc, const char16_t* const* argv, CommandLineOptions& out) {
    // The order of the rules decides which options are known where; it is kept as it stands.
    ArgumentWalk walk(argc, argv);
    while (!walk.atEnd()) {
        const char16_t* arg = walk.current();
        if (!out.dieWhenPidDies && sameText(arg, u"-run-until-pid-dies")) {
            if (!takePid(walk, out.pid)) {
                return false;
            }
            out.runUntilPidDies = true;
        } else if (!out.runUntilPidDies && sameText(arg, u"-die-when-pid-dies")) {
            if (!takePid(walk, out.pid)) {
                return false;
            }
            out.dieWhenPidDies = true;
        } else if (out.wql && sameText(arg, u"-namespace")) {
            if (!takeString(walk, out.namespace_)) {
                return false;
            }
        } else if (out.wql && sameText(arg, u"-watch")) {
            out.watch = true;
            walk.skip();
        } else if (!out.wql && sameText(arg, u"-wql")) {
            if (!takeString(walk, out.wql)) {
                return false;
            }
        } else if (out.loglist != nullptr && sameText(arg, u"-watch")) {
            out.watch = true;
            walk.skip();
        } else if (sameText(arg, u"-test")) {
            out.test = true;
            walk.skip();
        } else if (sameText(arg, u"-loglist")) {
            if (!takePointer(walk, out.loglist)) {
                return false;
            }
        } else if (out.loglist != nullptr && sameText(arg, u"-servers")) {
            if (!takeString(walk, out.servers)) {
                return false;
            }
        } else if (sameText(arg, u"-index")) {
            if (!takePointer(walk, out.index)) {
                return false;
            }
        } else {
            return false;
        }
    }
    if (out.wql && out.dieWhenPidDies) {
        return false;
    }
    if (!out.wql && out.loglist != nullptr && out.dieWhenPidDies) {
        return false;
    }
    return true;
}

void parseCommandLine(int argc, const char16_t* const* argv) {
    const char16_t* programName = (argc > 0 && argv != nullptr) ? argv[0] : nullptr;
    if (!parseCommandLineArguments(argc, argv, CommandLineOptions::process())) {
        printUsage(programName);
    }
}

void printUsage(const char16_t* programName) {
    // Straight to the standard-error handle: the user must see it where no logging runs, and
    // the lines end in LF whatever the mode of the C stream.
    Str name;
    if (programName != nullptr) {
        name.appendWide(programName);
    }
    Str text("usage:\n");
    text.append(" ").append(name).append(" [-run-until-pid-dies PID]|[-die-when-pid-dies PID]\n");
    text.append(" ").append(name).append("  -wql WQL [-namespace namespc] [-watch]\n");
    text.append(" ").append(name).append(
        "  -loglist logchan1[,logchan2...] [-server srv1[,srv2...]] [-watch]\n");
    std::fflush(stderr);
    LogPlatform::writeStandardError(text.data(), text.size());
    std::exit(1);
}

}  // namespace morvax
