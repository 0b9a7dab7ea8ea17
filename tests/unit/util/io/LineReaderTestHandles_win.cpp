#include <windows.h>

#include "unit/util/io/LineReaderTestHandles.h"

namespace morvax::test {

TestPipe::TestPipe() {
    HANDLE readEnd;
    HANDLE writeEnd;
    if (CreatePipe(&readEnd, &writeEnd, nullptr, 0)) {
        readEnd_ = reinterpret_cast<intptr_t>(readEnd);
        writeEnd_ = reinterpret_cast<intptr_t>(writeEnd);
    }
}

TestPipe::~TestPipe() {
    closeWriteEnd();
    closeHandle(readEnd_);
}

bool TestPipe::write(std::string_view bytes) {
    DWORD written = 0;
    return WriteFile(reinterpret_cast<HANDLE>(writeEnd_), bytes.data(),
                     static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

void TestPipe::closeWriteEnd() {
    closeHandle(writeEnd_);
    writeEnd_ = -1;
}

intptr_t openHandleForRead(const std::filesystem::path& path) {
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return reinterpret_cast<intptr_t>(h);
}

void closeHandle(intptr_t handle) {
    if (handle != -1) {
        CloseHandle(reinterpret_cast<HANDLE>(handle));
    }
}

}  // namespace morvax::test
