#pragma once

#include <cstdint>
#include <vector>

#include "input/EventLogCheckpoint.h"
#include "input/EventRecord.h"
#include "input/WMIDataOutputter.h"
#include "input/WMIQueryEntry.h"
#include "input/WMIQueryProcessor.h"
#include "util/base/Str.h"

namespace morvax {

class WMICheckpointer;

// Reads one event log of one server through Win32_NTLogEvent without losing a record across
// polls, restarts and clears. The provider promises no order, so the order is learnt from the
// first two records; every reported record moves the checkpoint, and the next query is built
// from it. A probe of record 1 before the first poll and after every empty one tells a cleared
// log by its changed TimeWritten. The notification form serves the stream of new records and
// keeps no checkpoint.
class EventLogQueryProcessor : public WMIQueryProcessor, public WMIDataOutputter {
  public:
    enum ProbeState : int32_t { PROBE_NONE = 0, PROBE_DUE = 1, PROBE_SENT = 2 };

    // Throws BaseException unless `entry` is an event-log entry with a log name and there is a
    // checkpointer (not used, and may be anything, for a notification entry).
    EventLogQueryProcessor(const WMIQueryEntry* entry, WMICheckpointer* checkpointer);
    // Writes the newest checkpoints, so that a clean stop loses nothing.
    ~EventLogQueryProcessor() override;

    Str getWql() override;
    // "<server>: <log>", the server empty for the local machine.
    Str describe() override;
    // An empty batch ends a descending pass, or makes the next poll a probe.
    void writeData(ResultBatch::iterator first, ResultBatch::iterator last) override;
    // A notification's record carries what the polled query never asks for.
    void filterRecord(EventRecord& record) override;
    // Normalises ComputerName around reportResult.
    void writeEvent(ResultBatch::iterator position) override;

    const EventLogCheckpoint& checkpoint() const { return checkpoint_; }
    int32_t probeState() const { return probeState_; }
    // "<namespace>|<CRC-32 of the log name>"
    const Str& getCheckpointKey();

  private:
    Str getEventLogWql();
    bool readCheckpoint();
    // Writes the record and moves the checkpoint; false when the record was skipped.
    bool reportResult(ResultBatch::iterator position);
    bool probeResult(const Str& thisTime);
    // The local time of TimeWritten, "%Y%m%d%H%M%S.000000"; now when it is no time.
    void appendTimeLine(const WStr& timeWritten, WStr& target);
    // Sets `target` to the line; false (and the line of now) when the text is no time.
    static bool localTimeLine(const WStr& timeWritten, WStr& target);
    static bool isResetProbeResult(const EventRecord& record);

    Str logFile_;
    int32_t probeState_ = PROBE_DUE;
    WMICheckpointer* checkpointer_ = nullptr;
    EventLogCheckpoint checkpoint_;
    Str checkpointKey_;
    Str namespace_;
    WStr typeName_;
    WStr hostname_;
    WStr index_;
    bool disableHostnameNormalization_ = false;
    std::vector<WStr> localNames_;
    WStr lastComputerName_;
    WStr normalizedComputerName_;

    WStr headerStart_;
    WStr eventHeader_;
    // The minute and offset of the last TimeWritten, and the local time line of that minute up to
    // its seconds.
    WStr lastMinuteKey_;
    WStr lastMinuteLine_;
};

}  // namespace morvax
