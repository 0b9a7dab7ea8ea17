#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "util/log/LogPlatform.h"

namespace morvax {

bool LogPlatform::writeStandardError(const char* bytes, size_t length) {
    while (length > 0) {
        ssize_t put = ::write(STDERR_FILENO, bytes, std::min<size_t>(length, SSIZE_MAX));
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes += put;
        length -= static_cast<size_t>(put);
    }
    return true;
}

bool LogPlatform::fileSize(const FileHandle& file, int64_t& size) {
    struct stat info;
    if (::fstat(static_cast<int>(file.native()), &info) != 0) {
        return false;
    }
    size = static_cast<int64_t>(info.st_size);
    return true;
}

bool LogPlatform::isNotFoundError(uint32_t error) {
    return error == ENOENT || error == ENOTDIR;
}

}  // namespace morvax
