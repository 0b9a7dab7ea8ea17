#pragma once

// A directory of the fuzzing process's own, for targets whose parser reads files: made on first
// use, removed at exit.

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <system_error>

#include "util/base/StrSegment.h"
#include "util/io/Pathname.h"

namespace morvax::fuzz {

class ScratchDirectory {
  public:
    explicit ScratchDirectory(const char* purpose) {
        std::random_device seed;
        // MORVAX_FUZZ_SCRATCH when set (a run that crashes leaves its directory, so the runner
        // names one it removes), else memory where there is a file system in it: flushes sync
        // every file they write.
        std::error_code ec;
        const char* chosen = std::getenv("MORVAX_FUZZ_SCRATCH");
        const std::filesystem::path base =
            chosen != nullptr && *chosen != '\0' ? std::filesystem::path(chosen)
            : hasMemoryFileSystem(ec)            ? std::filesystem::path("/dev/shm")
                                                 : std::filesystem::temp_directory_path();
        path_ = base / (std::string("morvax-") + purpose + "-fuzz-" + std::to_string(seed()) +
                        std::to_string(seed()));
        std::filesystem::create_directories(path_);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

    static Pathname pathname(const std::filesystem::path& path) {
        const std::u8string text = path.u8string();
        return Pathname(StrSegment(reinterpret_cast<const char*>(text.data()), text.size()));
    }
    Pathname file(const char* name) const { return pathname(path_ / name); }

    // Replaces the file's content by `bytes`; false when it cannot be written.
    static bool write(const std::filesystem::path& file, const void* bytes, size_t size) {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
        return static_cast<bool>(out);
    }
    static std::string read(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

  private:
    // Under Wine "/dev/shm" is a path without a drive, which the collector's paths do not take.
    static bool hasMemoryFileSystem(std::error_code& ec) {
#if defined(_WIN32)
        (void)ec;
        return false;
#else
        return std::filesystem::is_directory("/dev/shm", ec);
#endif
    }

    std::filesystem::path path_;
};

}  // namespace morvax::fuzz
