#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace morvax::test {

// An anonymous pipe of the platform whose read end a FileDescriptorLineReader can take.
class TestPipe {
  public:
    TestPipe();
    ~TestPipe();
    TestPipe(const TestPipe&) = delete;
    TestPipe& operator=(const TestPipe&) = delete;

    bool isOpen() const { return readEnd_ != -1 && writeEnd_ != -1; }
    // Ownership stays with the pipe.
    intptr_t readEnd() const { return readEnd_; }
    bool write(std::string_view bytes);
    void closeWriteEnd();

  private:
    intptr_t readEnd_ = -1;
    intptr_t writeEnd_ = -1;
};

// A handle of the platform open for reading, -1 on failure; the caller closes it.
intptr_t openHandleForRead(const std::filesystem::path& path);
void closeHandle(intptr_t handle);

}  // namespace morvax::test
