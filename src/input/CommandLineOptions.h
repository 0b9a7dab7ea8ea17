#pragma once

#include <cstdint>
#include <optional>

#include "util/base/Str.h"

namespace morvax {

// What the command line asked for. One record serves the process (process()); it is written
// by parseCommandLine before any thread starts and only read afterwards, without a lock.
struct CommandLineOptions {
    bool runUntilPidDies = false;
    bool dieWhenPidDies = false;
    bool watch = false;  // every query is a notification query
    bool test = false;
    uint32_t pid = 0;  // shared by both pid options
    std::optional<WStr> wql;
    std::optional<WStr> namespace_;
    std::optional<WStr> servers;
    // Borrowed from the argument vector, which lives as long as the process.
    const char16_t* loglist = nullptr;
    const char16_t* index = nullptr;

    static CommandLineOptions& process();
};

// Walks the arguments after argv[0] into `out`. False when the usage text is due; `out` may
// then be partly filled. The walk ends at argc or at the first null entry.
bool parseCommandLineArguments(int argc, const char16_t* const* argv, CommandLineOptions& out);

// Fills CommandLineOptions::process(), or prints the usage text and exits.
void parseCommandLine(int argc, const char16_t* const* argv);

// Writes the usage text to standard error and exits with status 1.
[[noreturn]] void printUsage(const char16_t* programName);

// Reads an unsigned decimal as "%u" of the scanf family does: leading white space is skipped,
// a sign is allowed ('-' negates modulo 2^32), at least one digit is needed and the first
// non-digit ends the number. 1 when a number was read, 0 when none, -1 when the text holds
// nothing but white space.
int scanUnsigned(const char16_t* text, uint32_t& value);

}  // namespace morvax
