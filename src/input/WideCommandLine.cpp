#include "input/WideCommandLine.h"

namespace morvax {

namespace {

bool isBlank(char16_t c) {
    return c == u' ' || c == u'\t';
}

}  // namespace

bool WideCommandLine::split(const WStr& line) {
    arguments_.clear();
    pointers_.clear();
    if (line.size() > kMaxLength) {
        return false;
    }
    size_t at = 0;
    const size_t end = line.size();

    // The program name knows no escapes: a path cannot hold a quote.
    WStr program;
    if (at < end && line[at] == u'"') {
        ++at;
        while (at < end && line[at] != u'"') {
            program.push_back(line[at++]);
        }
        if (at < end) {
            ++at;
        }
    } else {
        while (at < end && !isBlank(line[at])) {
            program.push_back(line[at++]);
        }
    }
    arguments_.push_back(std::move(program));

    for (;;) {
        while (at < end && isBlank(line[at])) {
            ++at;
        }
        if (at >= end) {
            break;
        }
        WStr argument;
        bool quoted = false;
        while (at < end && (quoted || !isBlank(line[at]))) {
            if (line[at] == u'\\') {
                size_t backslashes = 0;
                while (at < end && line[at] == u'\\') {
                    ++backslashes;
                    ++at;
                }
                if (at < end && line[at] == u'"') {
                    argument.append(backslashes / 2, u'\\');
                    if (backslashes % 2 == 1) {
                        argument.push_back(u'"');
                        ++at;
                    }
                } else {
                    argument.append(backslashes, u'\\');
                }
                continue;
            }
            if (line[at] == u'"') {
                ++at;
                if (quoted && at < end && line[at] == u'"') {
                    // A doubled quote inside quotes is a literal one, and the quotes end there.
                    argument.push_back(u'"');
                    ++at;
                    quoted = false;
                } else {
                    quoted = !quoted;
                }
                continue;
            }
            argument.push_back(line[at++]);
        }
        arguments_.push_back(std::move(argument));
    }
    return true;
}

const char16_t* const* WideCommandLine::argv() {
    pointers_.clear();
    for (const WStr& argument : arguments_) {
        pointers_.push_back(argument.c_str());
    }
    pointers_.push_back(nullptr);
    return pointers_.data();
}

}  // namespace morvax
