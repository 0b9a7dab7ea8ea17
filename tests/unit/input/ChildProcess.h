#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace morvax::test {

// A test program (tests/programs/<name>.cpp) running as a child process, with its standard
// output in a file. An ended child stays known to the system (a zombie, an open handle) until
// release(), so that its pid names an ended process rather than none. The destructor kills and
// releases a child that is still there.
class ChildProcess {
  public:
    ChildProcess(const std::string& name, const std::vector<std::string>& arguments,
                 const std::string& outputFile);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

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
    void* handle_ = nullptr;  // the process handle on Windows
    bool exited_ = false;
    bool released_ = false;
    int status_ = -1;
};

// The path of the test program `name`, in the directory that MORVAX_TEST_PROGRAMS names, else
// in the programs directory beside this test binary.
std::string testProgramPath(const std::string& name);

// Sets an environment variable of this process, which children inherit; nullptr removes it.
void setEnvironment(const char* name, const char* value);

}  // namespace morvax::test
