#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "util/base/StrSegment.h"

namespace morvax {

// Owns one open file of the platform (a HANDLE on Windows, a descriptor elsewhere) and closes
// it when it goes. Failures answer false or -1 and leave the platform's last error in place.
class FileHandle {
  public:
    using Native = intptr_t;
    // INVALID_HANDLE_VALUE and the descriptor -1 have the same bits.
    static constexpr Native INVALID = -1;

    FileHandle() = default;
    explicit FileHandle(Native handle) : handle_(handle) {}
    ~FileHandle() { close(); }

    FileHandle(FileHandle&& other) noexcept : handle_(other.release()) {}
    FileHandle& operator=(FileHandle&& other) noexcept;
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    bool isValid() const { return handle_ != INVALID; }
    explicit operator bool() const { return isValid(); }
    Native native() const { return handle_; }
    // Gives up ownership; the caller closes.
    Native release() {
        Native h = handle_;
        handle_ = INVALID;
        return h;
    }

    // Bytes read, 0 at the end of the file, -1 on error.
    int64_t read(void* buffer, size_t size);
    // Writes all of the bytes or fails.
    bool write(const void* bytes, size_t size) { return writeTo(handle_, bytes, size); }
    bool write(StrSegment text) { return write(text.data(), text.size()); }
    // Moves to the end of the file.
    bool seekToEnd();
    // Forces written data to the disk, so that a rename after it never exposes a torn file.
    bool sync();
    // True when there was nothing to close or closing succeeded.
    bool close();

    // Writes all of the bytes to a file this object does not own, or fails.
    static bool writeTo(Native handle, const void* bytes, size_t size);
    // The file under a C stream, INVALID when it has none.
    static Native ofStream(std::FILE* stream);

  private:
    Native handle_ = INVALID;
};

}  // namespace morvax
