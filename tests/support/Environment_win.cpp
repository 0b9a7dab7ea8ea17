#include <cstdlib>

#include "support/Environment.h"
#include "support/WideText.h"

namespace morvax::test {

void setEnvironment(const char* name, const char* value) {
    // An empty value removes the variable here; the CRT keeps its narrow and wide copies in step.
    _wputenv_s(wide(name).c_str(), value == nullptr ? L"" : wide(value).c_str());
}

std::optional<std::string> getEnvironment(const char* name) {
    const wchar_t* value = _wgetenv(wide(name).c_str());
    if (value == nullptr) {
        return std::nullopt;
    }
    return narrow(value);
}

}  // namespace morvax::test
