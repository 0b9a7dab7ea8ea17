#include "support/ChildProcess.h"

#include "support/Environment.h"

namespace morvax::test {

// Platform parts: the directory of this program, the separator and the program suffix.
std::string ownDirectory();
extern const char kPathSeparator;
extern const char* const kProgramSuffix;

std::string testProgramPath(const std::string& name) {
    std::string directory =
        getEnvironment("MORVAX_TEST_PROGRAMS")
            .value_or(ownDirectory() + kPathSeparator + ".." + kPathSeparator + "programs");
    return directory + kPathSeparator + "test_" + name + kProgramSuffix;
}

int runProgram(const std::string& path, const std::vector<std::string>& arguments,
               const ChildOutput& output) {
    // Wine now and then fails to create a process under load; a second try is no retry of the
    // program, which never ran.
    for (int attempt = 0; attempt < 3; ++attempt) {
        ChildProcess child(path, arguments, output);
        if (!child.started()) {
            continue;
        }
        if (!child.waitForExit(ChildProcess::kForever)) {
            return -1;
        }
        child.release();
        return child.exitStatus();
    }
    return -1;
}

}  // namespace morvax::test
