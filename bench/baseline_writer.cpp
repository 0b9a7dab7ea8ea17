// The baseline of the whole-process scenario: writes a stream of events that is already made,
// with one write per event, so that the collector's cost can be set against the bare cost of
// putting the same bytes on standard output.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: baseline_writer EVENTS-FILE\n");
        return 2;
    }
    std::FILE* in = std::fopen(argv[1], "rb");
    if (!in) {
        std::perror(argv[1]);
        return 1;
    }
    std::string data;
    char chunk[1 << 16];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, in)) > 0) {
        data.append(chunk, n);
    }
    std::fclose(in);

    // An event ends with its footer; the marker also stands inside the header, so every second
    // marker ends an event.
    static const char marker[] = "\n---morvax-wmi-end-of-event---\n";
    const size_t markerLength = sizeof marker - 1;
    std::vector<size_t> ends;
    size_t seen = 0;
    for (size_t at = data.find(marker); at != std::string::npos;
         at = data.find(marker, at + markerLength)) {
        if (++seen % 2 == 0) {
            ends.push_back(at + markerLength);
        }
    }
    size_t start = 0;
    for (size_t end : ends) {
        const char* p = data.data() + start;
        size_t left = end - start;
        while (left > 0) {
            const ssize_t written = ::write(1, p, left);
            if (written <= 0) {
                return 1;
            }
            p += written;
            left -= static_cast<size_t>(written);
        }
        start = end;
    }
    std::fprintf(stderr, "%zu events\n", ends.size());
    return 0;
}
