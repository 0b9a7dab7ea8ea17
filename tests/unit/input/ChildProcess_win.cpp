#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstdlib>

#include "unit/input/ChildProcess.h"
#include "util/Str.h"

namespace morvax::test {

namespace {

std::wstring wide(const std::string& text) {
    WStr converted = Str::toWide(StrSegment(text.data(), text.size()));
    return std::wstring(reinterpret_cast<const wchar_t*>(converted.data()), converted.size());
}

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

}  // namespace

ChildProcess::ChildProcess(const std::string& name, const std::vector<std::string>& arguments,
                           const std::string& outputFile) {
    std::wstring application = wide(testProgramPath(name));
    std::wstring line;
    appendQuoted(line, application);
    for (const std::string& argument : arguments) {
        line += L' ';
        appendQuoted(line, wide(argument));
    }
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE output =
        CreateFileW(wide(outputFile).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (output == INVALID_HANDLE_VALUE) {
        return;
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = output;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process = {};
    BOOL created = CreateProcessW(application.c_str(), line.data(), nullptr, nullptr, TRUE, 0,
                                  nullptr, nullptr, &startup, &process);
    CloseHandle(output);
    if (!created) {
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

std::string testProgramPath(const std::string& name) {
    std::string directory;
    if (const wchar_t* configured = _wgetenv(L"MORVAX_TEST_PROGRAMS")) {
        directory = Str::fromWide(reinterpret_cast<const char16_t*>(configured),
                                  std::char_traits<wchar_t>::length(configured))
                        .toStdString();
    } else {
        wchar_t self[MAX_PATH];
        DWORD length = GetModuleFileNameW(nullptr, self, MAX_PATH);
        directory = Str::fromWide(reinterpret_cast<const char16_t*>(self), length).toStdString();
        directory = directory.substr(0, directory.find_last_of("\\/")) + "\\..\\programs";
    }
    return directory + "\\test_" + name + ".exe";
}

void setEnvironment(const char* name, const char* value) {
    // An empty value removes the variable; the runtime updates its copies and the process's.
    _wputenv_s(wide(name).c_str(), value == nullptr ? L"" : wide(value).c_str());
}

}  // namespace morvax::test
