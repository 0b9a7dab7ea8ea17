#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "input/EventLogCheckpoint.h"
#include "input/EventRecord.h"
#include "input/RowBatch.h"
#include "input/RowReader.h"
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
    // Straight from the objects to the events, unless the outputter collects records.
    bool writesObjects() const override;
    void writeObjects(const std::shared_ptr<wmi::ClassObject>* objects, size_t count) override;

    const EventLogCheckpoint& checkpoint() const { return checkpoint_; }
    int32_t probeState() const { return probeState_; }
    // "<namespace>|<CRC-32 of the log name>"
    const Str& getCheckpointKey();

  private:
    // Where the checkpoint goes once a record is written.
    struct Step {
        uint32_t mode;
        uint32_t chk;
        uint32_t low;
        uint32_t hi;
    };

    WMIDataOutputter& sharedOutputter() const;
    Str getEventLogWql();
    // What an empty batch tells.
    void noResults();
    bool readCheckpoint();
    // Writes the record and moves the checkpoint; false when the record was skipped.
    bool reportResult(ResultBatch::iterator position);
    // reportResult for row `row` of rows_.
    void reportRow(size_t row);
    bool probeResult(const Str& thisTime);
    // The checkpoint after record `rec`, and, once its event is out, moving there.
    Step nextStep(uint32_t rec);
    void commitStep(const Step& step, uint32_t rec, std::string_view timeWritten);
    // The normalised form of a ComputerName value, in UTF-8.
    const std::string& normalizedComputerName(std::string_view value);
    // The local time of TimeWritten, "%Y%m%d%H%M%S.000000"; now when it is no time.
    void appendTimeLine(std::string_view timeWritten, std::string& target);
    // Sets `target` to the line; false (and the line of now) when the text is no time.
    static bool localTimeLine(std::string_view timeWritten, std::string& target);
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
    std::string lastMinuteKey_;
    std::string lastMinuteLine_;

    // The row path: header, fixed properties and host names in UTF-8.
    RowReader reader_;
    RowBatch rows_;
    std::string headerStartUtf8_;
    std::string eventHeaderUtf8_;
    std::string typeNameUtf8_;
    std::string hostnameUtf8_;
    std::vector<std::string> localNamesUtf8_;
    std::string lastComputerNameUtf8_;
    std::string normalizedComputerNameUtf8_;
    // Whether each of these is plain, as the outputter means it: found when it is set.
    bool typeNamePlain_ = false;
    bool hostnamePlain_ = false;
    bool normalizedComputerNamePlain_ = false;
    // The columns of the last plan that the checkpoint and the host need.
    // Held, so that no other plan takes its place at the same address.
    std::shared_ptr<const RowPlan> lastPlan_;
    uint32_t timeWrittenColumn_ = RowPlan::kNoColumn;
    uint32_t recordNumberColumn_ = RowPlan::kNoColumn;
    uint32_t computerNameColumn_ = RowPlan::kNoColumn;
    bool messageColumn_ = false;
    bool probeColumns_ = false;
};

}  // namespace morvax
