#include <windows.h>

#include <cstddef>
#include <cstring>
#include <memory>

#include "util/base/Diagnostics.h"
#include "util/base/LastError.h"
#include "util/io/Pathname.h"

namespace morvax {

const char16_t Pathname::SEPARATOR = u'\\';
const char16_t Pathname::ALT_SEPARATOR = u'/';
const bool Pathname::HAS_DRIVES = true;

namespace {

const wchar_t* apiName(const Pathname& path) {
    return reinterpret_cast<const wchar_t*>(path.c_str());
}

// The rename-information block of both information classes, declared here so that the build
// does not depend on the headers' Windows version.
struct RenameInformation {
    union {
        BOOLEAN ReplaceIfExists;
        DWORD Flags;
    };
    HANDLE RootDirectory;
    DWORD FileNameLength;
    WCHAR FileName[1];
};

constexpr DWORD kDeleteAccess = 0x10000;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// FILE_FLAG_BACKUP_SEMANTICS, so that directories open too.
constexpr DWORD kOpenDirectories = 0x2000000;
constexpr int kFileRenameInfo = 3;
constexpr int kFileRenameInfoEx = 22;
constexpr DWORD kReplaceIfExists = 1;
constexpr DWORD kPosixSemantics = 2;
constexpr DWORD kReparsePoint = 0x400;
// GetFinalPathNameByHandleW's buffer, in units; the result begins with "\\?\".
constexpr DWORD kFinalPathUnits = 265;
constexpr DWORD kFinalPathPrefix = 4;

DWORD shareFlags(uint32_t share) {
    return share == 0 ? (FILE_SHARE_READ | FILE_SHARE_DELETE) : static_cast<DWORD>(share);
}

FileHandle openFile(const Pathname& path, DWORD access, uint32_t share, DWORD disposition) {
    HANDLE h = CreateFileW(apiName(path), access, shareFlags(share), nullptr, disposition,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    return FileHandle(reinterpret_cast<FileHandle::Native>(h));
}

}  // namespace

void Pathname::appendCallSites(Str& target) {
    void* frames[16];
    // The first two frames are this function and the report that asked for it.
    USHORT count = CaptureStackBackTrace(2, 16, frames, nullptr);
    target.append(" call_sites=[");
    for (USHORT i = 0; i < count; ++i) {
        if (i > 0) {
            target.append(',');
        }
        target.appendFormat("%p", frames[i]);
    }
    target.append(']');
}

// The platform's own rules also cover drive-relative forms such as "C:x" and "\\x".
void Pathname::makeAbsoluteText(WStr& text) {
    const wchar_t* name = reinterpret_cast<const wchar_t*>(text.c_str());
    DWORD needed = GetFullPathNameW(name, 0, nullptr, nullptr);
    if (needed == 0) {
        return;
    }
    WStr absolute(needed, u'\0');
    DWORD got =
        GetFullPathNameW(name, needed, reinterpret_cast<wchar_t*>(absolute.data()), nullptr);
    if (got == 0 || got >= needed) {
        return;
    }
    absolute.resize(got);
    text.swap(absolute);
}

uint32_t Pathname::portableErrorCode(uint32_t lastError) {
    return lastError;
}

bool Pathname::isAlreadyExistsError(uint32_t lastError) {
    return lastError == ERROR_ALREADY_EXISTS || lastError == ERROR_FILE_EXISTS;
}

void Pathname::setPathNotFoundError() {
    SetLastError(ERROR_PATH_NOT_FOUND);
}

int Pathname::exists() const {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(apiName(*this), GetFileExInfoStandard, &data)) {
        return NOT_FOUND;
    }
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) {
        return DEVICE;
    }
    return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ? DIRECTORY : REGULAR_FILE;
}

bool Pathname::removeFile() const {
    return DeleteFileW(apiName(*this)) != 0;
}

// Any mode other than 0 asks for a restricted directory; the default security is what we give,
// since the installation's own directories already limit who reaches it.
bool Pathname::createDirectory(uint32_t) const {
    return CreateDirectoryW(apiName(*this), nullptr) != 0;
}

bool Pathname::readDirectory(std::vector<WStr>& names) const {
    WStr pattern = path_;
    if (!isSeparator(pattern.back())) {
        pattern += SEPARATOR;
    }
    pattern += u'*';
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileExW(reinterpret_cast<const wchar_t*>(pattern.c_str()),
                                     FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
    if (search == INVALID_HANDLE_VALUE) {
        // A drive's root may hold no entries at all, not even "." and "..".
        if (GetLastError() == ERROR_FILE_NOT_FOUND) {
            return true;
        }
        return false;
    }
    bool ok = true;
    do {
        const char16_t* name = reinterpret_cast<const char16_t*>(found.cFileName);
        WStr entry(name);
        if (entry != u"." && entry != u"..") {
            names.push_back(std::move(entry));
        }
    } while (FindNextFileW(search, &found));
    DWORD error = GetLastError();
    if (error != ERROR_NO_MORE_FILES) {
        ok = false;
    }
    FindClose(search);
    SetLastError(ok ? ERROR_SUCCESS : error);
    return ok;
}

// Renaming through the open handle with POSIX semantics replaces even a target that is open
// elsewhere with delete sharing; the usual move API would fail with a sharing violation.
int Pathname::rename(const Pathname& to) const {
    HANDLE h = CreateFileW(apiName(*this), kDeleteAccess, kShareAll, nullptr, OPEN_EXISTING,
                           kOpenDirectories, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        return -1;
    }
    size_t nameBytes = to.length() * sizeof(char16_t);
    size_t size = offsetof(RenameInformation, FileName) + nameBytes + sizeof(WCHAR);
    // Whole 8-byte words keep the block aligned for its handle member.
    std::unique_ptr<uint64_t[]> storage(new uint64_t[(size + 7) / 8]());
    auto* info = reinterpret_cast<RenameInformation*>(storage.get());
    info->Flags = kReplaceIfExists | kPosixSemantics;
    info->RootDirectory = nullptr;
    info->FileNameLength = static_cast<DWORD>(nameBytes);
    std::memcpy(info->FileName, to.c_str(), nameBytes);
    BOOL ok =
        SetFileInformationByHandle(h, static_cast<FILE_INFO_BY_HANDLE_CLASS>(kFileRenameInfoEx),
                                   info, static_cast<DWORD>(size));
    if (!ok) {
        DWORD error = GetLastError();
        // Older systems know neither the class nor the POSIX flag.
        if (error == ERROR_NOT_SUPPORTED || error == ERROR_INVALID_PARAMETER) {
            info->Flags = 0;
            info->ReplaceIfExists = TRUE;
            ok = SetFileInformationByHandle(h,
                                            static_cast<FILE_INFO_BY_HANDLE_CLASS>(kFileRenameInfo),
                                            info, static_cast<DWORD>(size));
        }
    }
    DWORD error = GetLastError();
    CloseHandle(h);
    if (ok) {
        return 0;
    }
    SetLastError(error);
    return -1;
}

FileHandle Pathname::openForWrite(uint32_t share) const {
    return openFile(*this, GENERIC_WRITE, share, CREATE_ALWAYS);
}

FileHandle Pathname::openForAppend(uint32_t share) const {
    FileHandle file = openFile(*this, GENERIC_WRITE, share, OPEN_ALWAYS);
    if (file && !file.seekToEnd()) {
        LastErrorPreserver keep;
        file.close();
    }
    return file;
}

FileHandle Pathname::openForRead(uint32_t share) const {
    return openFile(*this, GENERIC_READ, share, OPEN_EXISTING);
}

bool Pathname::createExclusive() const {
    FileHandle file = openFile(*this, GENERIC_WRITE, 0, CREATE_NEW);
    return file.isValid() && file.close();
}

bool Pathname::resolveSymlink(Pathname& target) const {
    Str name = toStr();
    // A failed query gives all bits set, the reparse flag among them: the open below reports.
    DWORD attributes = GetFileAttributesW(apiName(*this));
    if (!(attributes & kReparsePoint)) {
        diagnostics().debug("src=%s is not a symlink", name.c_str());
        return false;
    }
    HANDLE h = CreateFileW(apiName(*this), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                           kOpenDirectories, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        uint32_t error = GetLastError();
        diagnostics().warn("Failed in open the symlink=%s error=%u", name.c_str(), error);
        return false;
    }
    wchar_t buffer[kFinalPathUnits];
    DWORD length = GetFinalPathNameByHandleW(h, buffer, kFinalPathUnits, 0);
    DWORD error = GetLastError();
    CloseHandle(h);
    if (length >= kFinalPathUnits + 1) {
        diagnostics().warn("Target path is too long src=%s", name.c_str());
        return false;
    }
    if (length <= kFinalPathPrefix) {
        diagnostics().warn("Failed in GetFinalPathNameByHandle path=%s error=%u", name.c_str(),
                           error);
        return false;
    }
    const char16_t* final = reinterpret_cast<const char16_t*>(buffer) + kFinalPathPrefix;
    size_t finalLength = length - kFinalPathPrefix;
    // "\\?\UNC\server\share" names the share "\\server\share".
    if (finalLength > 4 && std::char_traits<char16_t>::compare(final, u"UNC\\", 4) == 0) {
        target.path_.assign(u"\\\\");
        target.path_.append(final + 4, finalLength - 4);
    } else {
        target.path_.assign(final, finalLength);
    }
    return true;
}

bool Pathname::inSameFilesystemAs(const Pathname& other) const {
    wchar_t mine[MAX_PATH + 1];
    wchar_t theirs[MAX_PATH + 1];
    if (!GetVolumePathNameW(apiName(*this), mine, MAX_PATH + 1) ||
        !GetVolumePathNameW(apiName(other), theirs, MAX_PATH + 1)) {
        return false;
    }
    return CompareStringOrdinal(mine, -1, theirs, -1, TRUE) == CSTR_EQUAL;
}

}  // namespace morvax
