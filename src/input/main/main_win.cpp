// The program's entry on Windows: the wide command line of the process, and standard output
// and error in binary mode so that an LF stays one byte.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

// After windows.h, which it needs.
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <vector>

#include "input/WMIMain.h"

namespace {
constexpr size_t kStandardOutputBuffer = size_t{1} << 16;
}  // namespace

int main() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    // The runtime leaves a console or NUL unbuffered and then writes such a stream a byte at a
    // time; fully buffered, each flushed event reaches the system as one write.
    std::setvbuf(stdout, nullptr, _IOFBF, kStandardOutputBuffer);
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (argv == nullptr) {
        return -1;
    }
    std::vector<const char16_t*> pointers;
    for (int i = 0; i < argc; ++i) {
        pointers.push_back(reinterpret_cast<const char16_t*>(argv[i]));
    }
    pointers.push_back(nullptr);
    const int status = morvax::wmiMain(argc, pointers.data());
    LocalFree(argv);
    return status;
}
