#include <dirent.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "util/base/Diagnostics.h"
#include "util/base/LastError.h"
#include "util/io/Pathname.h"

namespace morvax {

// No drives here: "C:" is an ordinary name, and a path is rooted by "/".
const char16_t Pathname::SEPARATOR = u'/';
const char16_t Pathname::ALT_SEPARATOR = u'/';
const bool Pathname::HAS_DRIVES = false;

namespace {

int openFile(const Pathname& path, int flags) {
    Str name = path.toStr();
    int fd;
    do {
        fd = ::open(name.c_str(), flags | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

}  // namespace

void Pathname::appendCallSites(Str& target) {
    void* frames[18];
    int count = ::backtrace(frames, 18);
    target.append(" call_sites=[");
    // The first two frames are this function and the report that asked for it.
    for (int i = 2; i < count; ++i) {
        if (i > 2) {
            target.append(',');
        }
        target.appendFormat("%p", frames[i]);
    }
    target.append(']');
}

void Pathname::makeAbsoluteText(WStr& text) {
    if (!text.empty() && text[0] == SEPARATOR) {
        return;
    }
    std::unique_ptr<char, decltype(&std::free)> cwd(::getcwd(nullptr, 0), &std::free);
    if (!cwd) {
        return;
    }
    WStr absolute = Str::toWide(StrSegment(cwd.get()));
    absolute += SEPARATOR;
    absolute += text;
    text.swap(absolute);
}

// The retry rules speak in Windows codes; these are the nearest equivalents of errno values.
// Unlisted values map to 0xFFFFFFFF, which is never retried.
uint32_t Pathname::portableErrorCode(uint32_t lastError) {
    switch (static_cast<int>(lastError)) {
        case ENOENT:
            return 2;  // file not found
        case ENOTDIR:
            return 3;  // path not found
        case EMFILE:
        case ENFILE:
            return 4;  // too many open files
        case EACCES:
        case EPERM:
            return 5;  // access denied
        case ENOMEM:
            return 8;  // not enough memory
        case EXDEV:
            return 17;  // not the same device
        case EINTR:
        case EAGAIN:
            return 21;  // not ready
        case EIO:
            return 31;  // general failure
        case EBUSY:
        case ETXTBSY:
            return 32;  // sharing violation
        case EDEADLK:
        case ENOLCK:
            return 33;  // lock violation
        case ENOBUFS:
            return 84;  // out of structures
        case ENETDOWN:
        case ENETUNREACH:
        case ENETRESET:
        case ECONNABORTED:
        case ECONNRESET:
        case ETIMEDOUT:
        case EHOSTUNREACH:
            return 59;  // unexpected network error
        default:
            return 0xFFFFFFFF;
    }
}

bool Pathname::isAlreadyExistsError(uint32_t lastError) {
    return lastError == EEXIST;
}

void Pathname::setPathNotFoundError() {
    LastError::set(ENOENT);
}

// Anything that is neither a regular file nor a directory (devices, pipes, sockets) is a device.
int Pathname::exists() const {
    struct stat info;
    if (::stat(toStr().c_str(), &info) != 0) {
        return NOT_FOUND;
    }
    if (S_ISDIR(info.st_mode)) {
        return DIRECTORY;
    }
    return S_ISREG(info.st_mode) ? REGULAR_FILE : DEVICE;
}

bool Pathname::removeFile() const {
    return ::unlink(toStr().c_str()) == 0;
}

bool Pathname::createDirectory(uint32_t mode) const {
    return ::mkdir(toStr().c_str(), mode == 0 ? 0777 : 0700) == 0;
}

bool Pathname::readDirectory(std::vector<WStr>& names) const {
    DIR* directory = ::opendir(toStr().c_str());
    if (directory == nullptr) {
        return false;
    }
    bool ok = true;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (entry == nullptr) {
            ok = errno == 0;
            break;
        }
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
            continue;
        }
        names.push_back(Str::toWide(StrSegment(name)));
    }
    LastErrorPreserver keep;
    ::closedir(directory);
    return ok;
}

// rename(2) replaces the target atomically, open or not.
int Pathname::rename(const Pathname& to) const {
    return ::rename(toStr().c_str(), to.toStr().c_str()) == 0 ? 0 : -1;
}

// Sharing does not exist here; the argument only matters on Windows.
FileHandle Pathname::openForWrite(uint32_t) const {
    return FileHandle(openFile(*this, O_WRONLY | O_CREAT | O_TRUNC));
}

FileHandle Pathname::openForAppend(uint32_t) const {
    return FileHandle(openFile(*this, O_WRONLY | O_CREAT | O_APPEND));
}

FileHandle Pathname::openForRead(uint32_t) const {
    return FileHandle(openFile(*this, O_RDONLY));
}

bool Pathname::createExclusive() const {
    FileHandle file(openFile(*this, O_WRONLY | O_CREAT | O_EXCL));
    return file.isValid() && file.close();
}

bool Pathname::resolveSymlink(Pathname& target) const {
    Str name = toStr();
    struct stat info;
    // A path that cannot be examined goes on to the open below, which reports why.
    if (::lstat(name.c_str(), &info) == 0 && !S_ISLNK(info.st_mode)) {
        diagnostics().debug("src=%s is not a symlink", name.c_str());
        return false;
    }
    FileHandle file(openFile(*this, O_RDONLY));
    if (!file) {
        uint32_t error = LastError::get();
        diagnostics().warn("Failed in open the symlink=%s error=%u", name.c_str(), error);
        return false;
    }
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(name.c_str(), nullptr),
                                                         &std::free);
    if (!resolved) {
        uint32_t error = LastError::get();
        diagnostics().warn("Failed in GetFinalPathNameByHandle path=%s error=%u", name.c_str(),
                           error);
        return false;
    }
    target = Pathname(resolved.get());
    return true;
}

bool Pathname::inSameFilesystemAs(const Pathname& other) const {
    struct stat mine;
    struct stat theirs;
    if (::stat(toStr().c_str(), &mine) != 0 || ::stat(other.toStr().c_str(), &theirs) != 0) {
        return false;
    }
    return mine.st_dev == theirs.st_dev;
}

}  // namespace morvax
