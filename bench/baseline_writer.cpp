// The reference of the whole-process scenarios: the least a program can do to put a stream of
// events on standard output with one write per event. It reads the events with one read, the
// offsets at which they end (native 64-bit integers, made by the scenario) with another, and
// then only writes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>

namespace {

// The whole file in one read; false on any failure.
bool readWhole(const char* path, std::unique_ptr<char[]>& data, size_t& size) {
    const int fd = ::open(path, O_RDONLY);
    struct stat info;
    if (fd < 0 || ::fstat(fd, &info) != 0) {
        std::perror(path);
        return false;
    }
    size = static_cast<size_t>(info.st_size);
    data.reset(new char[size + 1]);
    const bool ok = ::read(fd, data.get(), size) == static_cast<ssize_t>(size);
    ::close(fd);
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: baseline_writer EVENTS-FILE ENDS-FILE\n");
        return 2;
    }
    std::unique_ptr<char[]> events;
    std::unique_ptr<char[]> endsData;
    size_t eventsSize = 0;
    size_t endsSize = 0;
    if (!readWhole(argv[1], events, eventsSize) || !readWhole(argv[2], endsData, endsSize)) {
        return 1;
    }
    const auto* ends = reinterpret_cast<const uint64_t*>(endsData.get());
    const size_t count = endsSize / sizeof(uint64_t);
    uint64_t start = 0;
    for (size_t i = 0; i < count; ++i) {
        const char* p = events.get() + start;
        size_t left = ends[i] - start;
        while (left > 0) {
            const ssize_t written = ::write(1, p, left);
            if (written <= 0) {
                return 1;
            }
            p += written;
            left -= static_cast<size_t>(written);
        }
        start = ends[i];
    }
    return 0;
}
