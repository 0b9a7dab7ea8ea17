#pragma once

#include <optional>
#include <string>

namespace morvax::test {

// Sets an environment variable of this process, which children inherit; nullptr removes it.
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

}  // namespace morvax::test
