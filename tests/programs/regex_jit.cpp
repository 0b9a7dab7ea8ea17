// Compiles one pattern and tells by its exit status what the process decided about regex JIT:
// the state times 10, plus 2 if the self-test ran, plus 1 if the pattern got JIT code.
#include "util/regex/Regex.h"
#include "util/regex/RegexSettings.h"

using namespace morvax;

int main() {
    Regex regex("a(b)c");
    const RegexSettings& settings = RegexSettings::process();
    return settings.jitState() * 10 + (settings.selfTestRan() ? 2 : 0) +
           (regex.record().searchJit() ? 1 : 0);
}
