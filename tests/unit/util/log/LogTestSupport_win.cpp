#include <windows.h>

#include <cstdio>

#include "unit/util/log/LogTestSupport.h"

namespace morvax::test {

void StandardErrorCapture::redirect() {
    std::fflush(stderr);
    saved_ = reinterpret_cast<FileHandle::Native>(GetStdHandle(STD_ERROR_HANDLE));
    std::wstring name;
    WStr wide = Str(path_.c_str()).toWide();
    name.assign(reinterpret_cast<const wchar_t*>(wide.c_str()), wide.size());
    HANDLE file = CreateFileW(name.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    SetStdHandle(STD_ERROR_HANDLE, file);
}

void StandardErrorCapture::restore() {
    HANDLE file = GetStdHandle(STD_ERROR_HANDLE);
    SetStdHandle(STD_ERROR_HANDLE, reinterpret_cast<HANDLE>(saved_));
    CloseHandle(file);
    saved_ = FileHandle::INVALID;
}

}  // namespace morvax::test
