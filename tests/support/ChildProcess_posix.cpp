#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <thread>

#include "support/ChildProcess.h"

namespace morvax::test {

extern const char kPathSeparator = '/';
extern const char* const kProgramSuffix = "";

std::string ownDirectory() {
    char self[PATH_MAX];
    ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    std::string path(self, length > 0 ? static_cast<size_t>(length) : 0);
    return path.substr(0, path.rfind('/'));
}

namespace {

// In the child: only async-signal-safe calls, since this process has other threads.
bool redirect(const std::string& file, int target) {
    if (file.empty()) {
        return true;
    }
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::dup2(fd, target) < 0) {
        return false;
    }
    ::close(fd);
    return true;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& path, const std::vector<std::string>& arguments,
                           const ChildOutput& output) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(path.c_str()));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = ::fork();
    if (child < 0) {
        return;
    }
    if (child == 0) {
        if (!redirect(output.outputFile, STDOUT_FILENO) ||
            !redirect(output.errorFile, STDERR_FILENO)) {
            ::_exit(127);
        }
        ::execv(path.c_str(), argv.data());
        ::_exit(127);
    }
    pid_ = static_cast<uint32_t>(child);
}

ChildProcess::~ChildProcess() {
    if (started() && !released_) {
        if (!exited_) {
            terminate();
        }
        release();
    }
}

bool ChildProcess::waitForExit(uint32_t timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (started() && !exited_) {
        siginfo_t info = {};
        // WNOWAIT leaves the child a zombie: its pid stays taken until release().
        if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == static_cast<pid_t>(pid_)) {
            status_ = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
            exited_ = true;
            break;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return exited_;
}

void ChildProcess::terminate() {
    if (started() && !released_) {
        ::kill(static_cast<pid_t>(pid_), SIGKILL);
    }
}

void ChildProcess::release() {
    if (!started() || released_) {
        return;
    }
    int status = 0;
    while (::waitpid(static_cast<pid_t>(pid_), &status, 0) < 0 && errno == EINTR) {
    }
    if (!exited_) {
        status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        exited_ = true;
    }
    released_ = true;
}

}  // namespace morvax::test

namespace morvax::test {

uint32_t ChildProcess::currentPid() {
    return static_cast<uint32_t>(::getpid());
}

}  // namespace morvax::test
