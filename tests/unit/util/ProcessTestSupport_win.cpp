#include <windows.h>

#include <cstdlib>

#include "unit/util/ProcessTestSupport.h"
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

void setEnvironment(const char* name, const char* value) {
    // An empty value removes the variable here; the CRT keeps its narrow and wide copies in step.
    _wputenv_s(wide(name).c_str(), value == nullptr ? L"" : wide(value).c_str());
}

std::optional<std::string> getEnvironment(const char* name) {
    const wchar_t* value = _wgetenv(wide(name).c_str());
    if (value == nullptr) {
        return std::nullopt;
    }
    return Str::fromWide(reinterpret_cast<const char16_t*>(value),
                         std::char_traits<wchar_t>::length(value))
        .toStdString();
}

std::string testProgramPath(const std::string& name) {
    std::string directory;
    if (auto configured = getEnvironment("MORVAX_TEST_PROGRAMS")) {
        directory = *configured;
    } else {
        wchar_t self[MAX_PATH];
        DWORD length = GetModuleFileNameW(nullptr, self, MAX_PATH);
        directory = Str::fromWide(reinterpret_cast<const char16_t*>(self), length).toStdString();
        directory = directory.substr(0, directory.find_last_of("\\/")) + "\\..\\programs";
    }
    return directory + "\\test_" + name + ".exe";
}

int runProgram(const std::string& path, const std::vector<std::string>& arguments,
               const std::string& errorFile) {
    std::wstring application = wide(path);
    std::wstring line;
    appendQuoted(line, application);
    for (const std::string& argument : arguments) {
        line += L' ';
        appendQuoted(line, wide(argument));
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    HANDLE error = INVALID_HANDLE_VALUE;
    if (!errorFile.empty()) {
        SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
        error =
            CreateFileW(wide(errorFile).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                        &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (error == INVALID_HANDLE_VALUE) {
            return -1;
        }
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
        startup.hStdError = error;
    }
    PROCESS_INFORMATION process = {};
    BOOL started =
        CreateProcessW(application.c_str(), line.data(), nullptr, nullptr,
                       error != INVALID_HANDLE_VALUE, 0, nullptr, nullptr, &startup, &process);
    if (error != INVALID_HANDLE_VALUE) {
        CloseHandle(error);
    }
    if (!started) {
        return -1;
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return static_cast<int>(code);
}

}  // namespace morvax::test
