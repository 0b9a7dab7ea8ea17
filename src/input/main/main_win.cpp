// The program's entry on Windows: the wide command line of the process, and standard output
// and error in binary mode so that an LF stays one byte.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

// After windows.h, which it needs.
#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "input/WMIMain.h"
#include "input/WideCommandLine.h"

namespace {
constexpr size_t kStandardOutputBuffer = size_t{1} << 16;
}  // namespace

int main() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    // The runtime leaves a console or NUL unbuffered and then writes such a stream a byte at a
    // time; fully buffered, each flushed event reaches the system as one write.
    std::setvbuf(stdout, nullptr, _IOFBF, kStandardOutputBuffer);
    // Split here rather than by the shell library, which would be loaded for this alone.
    morvax::WideCommandLine commandLine;
    if (!commandLine.split(reinterpret_cast<const char16_t*>(GetCommandLineW()))) {
        return -1;
    }
    return morvax::wmiMain(static_cast<int>(commandLine.arguments().size()), commandLine.argv());
}
