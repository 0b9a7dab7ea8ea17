#include "util/crash/CrashLogSink.h"

namespace morvax {

const char CrashLogSink::OVERSIZED_WRITE[] =
    "Crash log write attempted over the limit of (50kB), skipping.\r\n";
const char CrashLogSink::OVERFLOWED[] =
    "Crash log has overflowed the allowed limit (512kB), truncated.\r\n";
const char CrashLogSink::LOOPING[] =
    "Crash log writes still attempted after 3 seconds, maybe something is looping?\r\n";

void CrashLogSink::write(const char* bytes, size_t length) {
    if (overflowed_) {
        uint64_t before = discarded_;
        discarded_ += length;
        if (discarded_ / LOOP_CHECK_BYTES == before / LOOP_CHECK_BYTES) {
            return;
        }
        uint64_t now = target_.nowMs();
        // A clock that went back is no proof of progress either.
        if (now < overflowedAtMs_ || now - overflowedAtMs_ > LOOP_LIMIT_MS) {
            target_.write(LOOPING, sizeof LOOPING - 1);
            target_.exitProcess(LOOP_EXIT_STATUS);
        }
        return;
    }
    if (length > MAX_SINGLE_WRITE) {
        bytes = OVERSIZED_WRITE;
        length = sizeof OVERSIZED_WRITE - 1;
    }
    if (written_ + length >= MAX_TOTAL) {
        target_.write(OVERFLOWED, sizeof OVERFLOWED - 1);
        overflowed_ = true;
        overflowedAtMs_ = target_.nowMs();
        return;
    }
    target_.write(bytes, length);
    written_ += length;
}

}  // namespace morvax
