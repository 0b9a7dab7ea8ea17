// The program's entry on Linux: the arguments arrive as UTF-8 and are widened once.
#include <csignal>
#include <vector>

#include "input/WMIMain.h"
#include "util/base/Str.h"

int main(int argc, char** argv) {
    // A reader that goes away makes a failed write, as on Windows, and not the end of the run.
    std::signal(SIGPIPE, SIG_IGN);
    std::vector<morvax::WStr> wide;
    wide.reserve(static_cast<size_t>(argc));
    for (int i = 0; i < argc; ++i) {
        wide.push_back(morvax::Str::toWide(morvax::StrSegment(argv[i])));
    }
    std::vector<const char16_t*> pointers;
    for (const morvax::WStr& arg : wide) {
        pointers.push_back(arg.c_str());
    }
    pointers.push_back(nullptr);
    return morvax::wmiMain(argc, pointers.data());
}
