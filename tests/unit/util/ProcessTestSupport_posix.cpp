#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "unit/util/ProcessTestSupport.h"

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

std::string testProgramPath(const std::string& name) {
    std::string directory;
    if (auto configured = getEnvironment("MORVAX_TEST_PROGRAMS")) {
        directory = *configured;
    } else {
        char self[PATH_MAX];
        ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
        directory = std::string(self, length > 0 ? static_cast<size_t>(length) : 0);
        directory = directory.substr(0, directory.rfind('/')) + "/../programs";
    }
    return directory + "/test_" + name;
}

int runProgram(const std::string& path, const std::vector<std::string>& arguments,
               const std::string& errorFile) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(path.c_str()));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = ::fork();
    if (child < 0) {
        return -1;
    }
    if (child == 0) {
        if (!errorFile.empty()) {
            int fd = ::open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (fd < 0 || ::dup2(fd, STDERR_FILENO) < 0) {
                ::_exit(127);
            }
            ::close(fd);
        }
        ::execv(path.c_str(), argv.data());
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    return WEXITSTATUS(status);
}

}  // namespace morvax::test
