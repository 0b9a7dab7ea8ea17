#include <errno.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/io/FileDescriptorLineReader.h"

namespace morvax {

uint32_t FileDescriptorLineReader::wouldBlockCode() {
    return EWOULDBLOCK;
}

bool FileDescriptorLineReader::isPipe(Handle handle) {
    struct stat st;
    if (fstat(static_cast<int>(handle), &st) != 0) {
        return false;
    }
    return S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode);
}

FileDescriptorLineReader::ReadStatus FileDescriptorLineReader::readSome(
    Handle handle, bool pipe, char* buffer, size_t capacity, size_t& got, uint32_t& error) {
    int fd = static_cast<int>(handle);
    got = 0;
    if (pipe) {
        // Only a look: a pipe with nothing ready must not hold the caller up.
        struct pollfd pfd = {fd, POLLIN, 0};
        int ready;
        do {
            ready = poll(&pfd, 1, 0);
        } while (ready < 0 && errno == EINTR);
        if (ready < 0) {
            error = static_cast<uint32_t>(errno);
            return READ_ERROR;
        }
        if (ready == 0) {
            error = EWOULDBLOCK;
            return READ_WOULD_BLOCK;
        }
    }
    for (;;) {
        ssize_t n = read(fd, buffer, capacity);
        if (n > 0) {
            got = static_cast<size_t>(n);
            return READ_DATA;
        }
        if (n == 0) {
            return READ_END;
        }
        if (errno == EINTR) {
            continue;
        }
        error = static_cast<uint32_t>(errno);
        // A descriptor set to non-blocking by its owner says so itself.
        return error == EAGAIN || error == EWOULDBLOCK ? READ_WOULD_BLOCK : READ_ERROR;
    }
}

void FileDescriptorLineReader::closeHandle(Handle handle) {
    close(static_cast<int>(handle));
}

}  // namespace morvax
