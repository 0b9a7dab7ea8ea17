#include <cstdlib>

#include "support/Environment.h"

namespace morvax::test {

void setEnvironment(const char* name, const char* value) {
    if (value == nullptr) {
        ::unsetenv(name);
    } else {
        ::setenv(name, value, 1);
    }
}

std::optional<std::string> getEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        return std::nullopt;
    }
    return std::string(value);
}

}  // namespace morvax::test
