#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace morvax::test {

// Where a child's standard output and error go: a new file each, or (empty) this process's own.
struct ChildOutput {
    std::string outputFile;
    std::string errorFile;
};

// A program running as a child process. An ended child stays known to the system (a zombie, an
// open handle) until release(), so that its pid names an ended process rather than none. The
// destructor kills and releases a child that is still there.
class ChildProcess {
  public:
    static constexpr uint32_t kForever = UINT32_MAX;

    // `path` is the program; the arguments are UTF-8.
    ChildProcess(const std::string& path, const std::vector<std::string>& arguments,
                 const ChildOutput& output = ChildOutput());
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The id of the calling process, as the system names it to other processes.
    static uint32_t currentPid();

    bool started() const { return pid_ != 0; }
    uint32_t pid() const { return pid_; }
    // Waits at most `timeoutMs` for the end; true once it has ended.
    bool waitForExit(uint32_t timeoutMs);
    // After waitForExit: the exit status, or 128 plus the signal number for a killed process.
    int exitStatus() const { return status_; }
    // Kills the child; it ends with status 1 on Windows, 128 + SIGKILL elsewhere.
    void terminate();
    // Lets the system forget the child, which must have ended or been terminated: its pid then
    // names no process.
    void release();

  private:
    uint32_t pid_ = 0;
    [[maybe_unused]] void* handle_ = nullptr;  // the process handle on Windows
    bool exited_ = false;
    bool released_ = false;
    int status_ = -1;
};

// The path of the test program `name` (tests/programs/<name>.cpp): in the directory that
// MORVAX_TEST_PROGRAMS names, else in the programs directory beside this test binary.
std::string testProgramPath(const std::string& name);

// Runs a program to its end: its exit status (as ChildProcess::exitStatus), or -1 when it could
// not be started.
int runProgram(const std::string& path, const std::vector<std::string>& arguments,
               const ChildOutput& output = ChildOutput());

}  // namespace morvax::test
