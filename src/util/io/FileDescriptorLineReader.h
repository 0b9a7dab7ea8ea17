#pragma once

#include <cstddef>
#include <cstdint>

#include "util/base/Str.h"
#include "util/io/LineReader.h"

namespace morvax {

// Lines read straight from an open file of the platform (a descriptor, or a HANDLE on
// Windows), taken byte for byte: only the LF and a CR before it are cut. On a pipe a read
// never blocks: with no complete line and nothing to read, readLine answers false and reports
// the would-block code, and a later call carries on where this one stopped.
class FileDescriptorLineReader : public LineReader {
  public:
    // The same bits as FileHandle::Native: a descriptor, or a HANDLE.
    using Handle = intptr_t;
    static constexpr Handle INVALID_HANDLE = -1;
    static constexpr size_t READ_SIZE = 4096;

    // With `ownsHandle` the handle is closed with the reader.
    explicit FileDescriptorLineReader(Handle handle, bool ownsHandle = false);
    ~FileDescriptorLineReader() override;

    FileDescriptorLineReader(const FileDescriptorLineReader&) = delete;
    FileDescriptorLineReader& operator=(const FileDescriptorLineReader&) = delete;

    // False at the end of the input, after a read error (which counts as the end), or when a
    // pipe has nothing ready; lastError() and the platform's last-error value tell which.
    bool readLine(Str& target) override;
    bool isEof() const override { return ended_ && start_ == buffer_.size(); }

    // True when the last readLine stopped because the pipe had nothing ready.
    bool wouldBlock() const { return wouldBlock_; }
    // The code of the last failure: wouldBlockCode() or the read error; 0 when none.
    uint32_t lastError() const { return lastError_; }
    // 10035 on Windows (WSAEWOULDBLOCK), EWOULDBLOCK elsewhere.
    static uint32_t wouldBlockCode();

    Handle handle() const { return handle_; }

  private:
    enum ReadStatus { READ_DATA, READ_END, READ_WOULD_BLOCK, READ_ERROR };
    // Platform: pipes are polled before reading, other files read as they are.
    static bool isPipe(Handle handle);
    static ReadStatus readSome(Handle handle, bool pipe, char* buffer, size_t capacity, size_t& got,
                               uint32_t& error);
    static void closeHandle(Handle handle);

    bool deliver(Str& target, size_t end, size_t next);

    Handle handle_;
    bool ownsHandle_;
    bool pipe_;
    bool ended_;
    bool wouldBlock_ = false;
    uint32_t lastError_ = 0;
    uint32_t readError_ = 0;
    // Bytes read and not yet handed out start at start_; scanned_ is how far an LF was sought.
    Str buffer_;
    size_t start_ = 0;
    size_t scanned_ = 0;
};

}  // namespace morvax
