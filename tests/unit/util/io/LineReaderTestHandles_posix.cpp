#include <fcntl.h>
#include <unistd.h>

#include "unit/util/io/LineReaderTestHandles.h"

namespace morvax::test {

TestPipe::TestPipe() {
    int fds[2];
    if (pipe(fds) == 0) {
        readEnd_ = fds[0];
        writeEnd_ = fds[1];
    }
}

TestPipe::~TestPipe() {
    closeWriteEnd();
    closeHandle(readEnd_);
}

bool TestPipe::write(std::string_view bytes) {
    return ::write(static_cast<int>(writeEnd_), bytes.data(), bytes.size()) ==
           static_cast<ssize_t>(bytes.size());
}

void TestPipe::closeWriteEnd() {
    closeHandle(writeEnd_);
    writeEnd_ = -1;
}

intptr_t openHandleForRead(const std::filesystem::path& path) {
    return open(path.c_str(), O_RDONLY);
}

void closeHandle(intptr_t handle) {
    if (handle != -1) {
        close(static_cast<int>(handle));
    }
}

}  // namespace morvax::test
