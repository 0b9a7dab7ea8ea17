#include <windows.h>

#include <vector>

#include "net/HostNames.h"

namespace morvax {

namespace {

class WindowsComputerNameSource : public ComputerNameSource {
  public:
    bool name(ComputerNameKind kind, Str& out) override {
        const COMPUTER_NAME_FORMAT format = static_cast<COMPUTER_NAME_FORMAT>(kind);
        DWORD size = 0;
        // The first call learns the size; anything but "more data" means there is no such name.
        if (GetComputerNameExW(format, nullptr, &size) || GetLastError() != ERROR_MORE_DATA) {
            return false;
        }
        std::vector<wchar_t> buffer(size + 1);
        if (!GetComputerNameExW(format, buffer.data(), &size)) {
            return false;
        }
        out.clear();
        out.appendWide(reinterpret_cast<const char16_t*>(buffer.data()), size);
        return true;
    }
};

}  // namespace

ComputerNameSource& ComputerNameSource::platform() {
    static WindowsComputerNameSource source;
    return source;
}

}  // namespace morvax
