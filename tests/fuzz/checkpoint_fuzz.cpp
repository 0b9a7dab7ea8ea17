// Fuzz target of the checkpoint store: any bytes become the checkpoint file that the
// checkpointer reads at start, and every value in it, and the whole input, go through the
// event-log checkpoint parser. The file's records are the lines with exactly one '='; what
// the checkpointer writes back is those records in key order, and it reads back to the same
// file. A checkpoint that parses formats to text that parses to the same position.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "FuzzDiscardLog.h"
#include "FuzzScratch.h"
#include "FuzzSupport.h"
#include "input/EventLogCheckpoint.h"
#include "input/WMICheckpointer.h"
#include "util/base/Str.h"

namespace morvax {
namespace {

using fuzz::check;

// The records the file holds, by the file's own rule: LF ends a line and the CRs before it go
// with it; a line is a record when it holds exactly one '='; the last of a key wins.
std::map<std::string, std::string> recordsOf(std::string_view bytes) {
    std::map<std::string, std::string> records;
    size_t start = 0;
    while (start < bytes.size()) {
        size_t end = bytes.find('\n', start);
        const size_t next = end == std::string_view::npos ? bytes.size() : end + 1;
        if (end == std::string_view::npos) {
            end = bytes.size();
        }
        std::string_view line = bytes.substr(start, end - start);
        while (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        const size_t equals = line.find('=');
        if (equals != std::string_view::npos &&
            line.find('=', equals + 1) == std::string_view::npos) {
            records[std::string(line.substr(0, equals))] = std::string(line.substr(equals + 1));
        }
        start = next;
    }
    return records;
}

std::string fileOf(const std::map<std::string, std::string>& records) {
    std::string out;
    for (const auto& [key, value] : records) {
        out.append(key).append("=").append(value).append("\n");
    }
    return out;
}

bool samePosition(const EventLogCheckpoint& a, const EventLogCheckpoint& b) {
    return a.chk() == b.chk() && a.low() == b.low() && a.hi() == b.hi() && a.time() == b.time();
}

void checkCheckpoint(StrSegment text) {
    EventLogCheckpoint checkpoint;
    const Str time("T1");
    checkpoint.setCheckpoint(1, 2, 3, EventLogCheckpoint::MODE_ASCENDING, &time);
    const Str before = checkpoint.formatCheckpoint();
    if (!checkpoint.parseCheckpoint(text)) {
        check(checkpoint.formatCheckpoint() == before, "a refused checkpoint changes nothing");
        return;
    }
    check(checkpoint.mode() >= EventLogCheckpoint::MODE_UNKNOWN &&
              checkpoint.mode() <= EventLogCheckpoint::MODE_DESCENDING,
          "a parsed checkpoint has a read order");
    check(checkpoint.time().size() <= EventLogCheckpoint::kMaxTimeLength,
          "a time within its bound");
    const Str formatted = checkpoint.formatCheckpoint();
    check(formatted.size() <= 1 + 3 * 11 + 1 + EventLogCheckpoint::kMaxTimeLength,
          "the written form within its bound");
    EventLogCheckpoint again;
    check(again.parseCheckpoint(formatted), "a written checkpoint parses");
    check(samePosition(again, checkpoint), "a written checkpoint parses to the same position");
    // An unknown order has no letter of its own and is written as descending.
    check(again.mode() == checkpoint.mode() ||
              (checkpoint.mode() == EventLogCheckpoint::MODE_UNKNOWN &&
               again.mode() == EventLogCheckpoint::MODE_DESCENDING),
          "a written checkpoint keeps its read order");
    check(again.formatCheckpoint() == formatted || again.mode() != checkpoint.mode(),
          "a written checkpoint writes the same again");
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    fuzz::DiscardLog::install();
    static const fuzz::ScratchDirectory scratch("checkpoint");
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    checkCheckpoint(StrSegment(bytes.data(), bytes.size()));

    const std::filesystem::path path = scratch.path() / "wmi.ini";
    check(fuzz::ScratchDirectory::write(path, data, size), "the input is written");
    const std::map<std::string, std::string> records = recordsOf(bytes);
    {
        WMICheckpointer checkpointer;
        check(checkpointer.init(UINT64_MAX, fuzz::ScratchDirectory::pathname(path)),
              "an existing file is read");
        for (const auto& [key, value] : records) {
            Str got;
            checkpointer.get(Str(key), got);
            check(got.view() == value, "every record is read with its last value");
            checkCheckpoint(got);
        }
        check(checkpointer.sync(), "the file is written");
    }
    const std::string written = fuzz::ScratchDirectory::read(path);
    check(written == fileOf(records), "the file written holds the records in key order");
    {
        WMICheckpointer again;
        check(again.init(UINT64_MAX, fuzz::ScratchDirectory::pathname(path)),
              "a written file is read");
        check(again.sync(), "the file is written again");
    }
    check(fuzz::ScratchDirectory::read(path) == written, "a written file reads back to itself");
    return 0;
}
