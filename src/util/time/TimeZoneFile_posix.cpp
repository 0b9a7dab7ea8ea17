#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/time/TimeZoneFile.h"

namespace morvax {

bool TimeZoneFile::readFile(const char* path, size_t limit, std::string& bytes, Str& resolved) {
    // The links followed, so that /etc/localtime tells which zone of the database it is.
    char* real = realpath(path, nullptr);
    if (!real) {
        return false;
    }
    resolved = real;
    free(real);
    int fd = open(resolved.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        int error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        close(fd);
        errno = error;
        return false;
    }
    bytes.assign(limit + 1, '\0');
    size_t total = 0;
    while (total < bytes.size()) {
        ssize_t n = read(fd, bytes.data() + total, bytes.size() - total);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            int error = errno;
            close(fd);
            errno = error;
            return false;
        }
        if (n == 0) {
            break;
        }
        total += static_cast<size_t>(n);
    }
    close(fd);
    bytes.resize(total);
    return true;
}

}  // namespace morvax
