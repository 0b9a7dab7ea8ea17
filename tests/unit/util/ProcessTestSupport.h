#pragma once

#include <optional>
#include <string>
#include <vector>

namespace morvax::test {

// Sets an environment variable of this process; nullptr removes it.
void setEnvironment(const char* name, const char* value);
std::optional<std::string> getEnvironment(const char* name);

// Sets a variable for the life of the object and restores the old state afterwards.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const char* name, const char* value)
        : name_(name), old_(getEnvironment(name)) {
        setEnvironment(name, value);
    }
    ~ScopedEnvironment() { setEnvironment(name_.c_str(), old_ ? old_->c_str() : nullptr); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    std::string name_;
    std::optional<std::string> old_;
};

// The path of the test program `name` (tests/programs/<name>.cpp): in the directory that
// MORVAX_TEST_PROGRAMS names, else in the programs directory beside this test binary.
std::string testProgramPath(const std::string& name);

// Runs a program with the arguments (UTF-8) and waits for it. The exit status, or 128 plus the
// signal number for a program that a signal killed; -1 when it could not be started. With
// `errorFile`, the program's standard error goes to that new file.
int runProgram(const std::string& path, const std::vector<std::string>& arguments,
               const std::string& errorFile = std::string());

}  // namespace morvax::test
