#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "support/ChildProcess.h"
#include "support/WideText.h"

namespace morvax::test {

extern const char kPathSeparator = '\\';
extern const char* const kProgramSuffix = ".exe";

std::string ownDirectory() {
    wchar_t self[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::string path = narrow(self, length);
    return path.substr(0, path.find_last_of("\\/"));
}

namespace {

// Quotes one argument by the rules that the runtime's command-line parser undoes.
void appendQuoted(std::wstring& line, const std::wstring& argument) {
    line += L'"';
    size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        line.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        line += c;
    }
    line.append(backslashes * 2, L'\\');
    line += L'"';
}

// A new file that the child inherits, or this process's own handle for an empty name.
class InheritedFile {
  public:
    InheritedFile(const std::string& file, DWORD standard) {
        if (file.empty()) {
            handle_ = GetStdHandle(standard);
            failed_ = false;
            return;
        }
        SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
        handle_ = CreateFileW(wide(file).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        owned_ = handle_ != INVALID_HANDLE_VALUE;
        failed_ = !owned_;
    }
    ~InheritedFile() {
        if (owned_) {
            CloseHandle(handle_);
        }
    }
    InheritedFile(const InheritedFile&) = delete;
    InheritedFile& operator=(const InheritedFile&) = delete;

    HANDLE handle() const { return handle_; }
    // Only a file of our own can fail: this process's handle is passed on as it is.
    bool failed() const { return failed_; }

  private:
    HANDLE handle_ = INVALID_HANDLE_VALUE;
    bool owned_ = false;
    bool failed_ = true;
};

}  // namespace

ChildProcess::ChildProcess(const std::string& path, const std::vector<std::string>& arguments,
                           const ChildOutput& output) {
    std::wstring application = wide(path);
    std::wstring line;
    appendQuoted(line, application);
    for (const std::string& argument : arguments) {
        line += L' ';
        appendQuoted(line, wide(argument));
    }
    InheritedFile out(output.outputFile, STD_OUTPUT_HANDLE);
    InheritedFile err(output.errorFile, STD_ERROR_HANDLE);
    if (out.failed() || err.failed()) {
        return;
    }
    bool redirected = !output.outputFile.empty() || !output.errorFile.empty();
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    if (redirected) {
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = out.handle();
        startup.hStdError = err.handle();
    }
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(application.c_str(), line.data(), nullptr, nullptr, redirected, 0, nullptr,
                        nullptr, &startup, &process)) {
        return;
    }
    CloseHandle(process.hThread);
    handle_ = process.hProcess;
    pid_ = process.dwProcessId;
}

ChildProcess::~ChildProcess() {
    if (started() && !released_) {
        if (!exited_) {
            terminate();
            WaitForSingleObject(handle_, INFINITE);
        }
        release();
    }
}

bool ChildProcess::waitForExit(uint32_t timeoutMs) {
    if (started() && !exited_ && WaitForSingleObject(handle_, timeoutMs) == WAIT_OBJECT_0) {
        DWORD code = 0;
        GetExitCodeProcess(handle_, &code);
        status_ = static_cast<int>(code);
        exited_ = true;
    }
    return exited_;
}

void ChildProcess::terminate() {
    if (started() && !released_) {
        TerminateProcess(handle_, 1);
    }
}

void ChildProcess::release() {
    if (!started() || released_) {
        return;
    }
    if (!exited_) {
        waitForExit(INFINITE);
    }
    CloseHandle(handle_);
    released_ = true;
}

}  // namespace morvax::test

namespace morvax::test {

uint32_t ChildProcess::currentPid() {
    return static_cast<uint32_t>(::GetCurrentProcessId());
}

}  // namespace morvax::test
