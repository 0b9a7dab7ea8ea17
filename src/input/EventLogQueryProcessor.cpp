#include "input/EventLogQueryProcessor.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "input/DefaultWMIDataOutputter.h"
#include "input/NamespaceServer.h"
#include "input/WMICheckpointer.h"
#include "input/WMILogger.h"
#include "net/HostNames.h"
#include "util/base/Ascii.h"
#include "util/base/BaseException.h"
#include "conf/InstallationInfo.h"
#include "util/time/StructTm.h"
#include "util/time/TimeFormat.h"
#include "util/time/TimeZoneProvider.h"
#include "util/time/Timeval.h"

namespace morvax {

namespace {

constexpr uint32_t kNone = EventLogCheckpoint::kNone;
// "yyyymmddHHMMSS.mmmmmmsUUU"
constexpr size_t kDmtfLength = 25;

constexpr const char* kProperties =
    "Category, CategoryString, ComputerName, EventCode, EventIdentifier, EventType, Logfile, "
    "Message, RecordNumber, SourceName, TimeGenerated, TimeWritten, Type, User";

const WStr TIME_WRITTEN(u"TimeWritten");
const WStr RECORD_NUMBER(u"RecordNumber");
const WStr MESSAGE(u"Message");
const WStr COMPUTER_NAME(u"ComputerName");
const WStr ORIGINAL_COMPUTER_NAME(u"OriginalComputerName");
const WStr WMI_TYPE(u"wmi_type");
const WStr WMI_HOSTNAME(u"wmi_hostname");
const WStr FOOTER(WMIDataOutputter::END_OF_EVENT);
// What a notification's record carries beyond the polled query's property list.
const WStr NOTIFICATION_ONLY[] = {u"InsertionStrings", u"Data", u"EventClass"};

// TimeWritten: CIM date text with six sub-second digits and the offset in minutes.
const TimeFormat& timeWrittenFormat() {
    static const TimeFormat* format = [] {
        auto* compiled = new TimeFormat();
        if (!compiled->compile("%Y%m%d%H%M%S.%6Q%03Ez")) {
            std::abort();
        }
        return compiled;
    }();
    return *format;
}

// The record number as "%u" reads it: blanks, an optional sign, digits; the value taken modulo
// 2^32. False without digits.
bool readRecordNumber(const WStr& text, uint32_t& out) {
    size_t pos = 0;
    while (pos < text.size() && isSpace(text[pos])) {
        ++pos;
    }
    bool negative = false;
    if (pos < text.size() && (text[pos] == u'+' || text[pos] == u'-')) {
        negative = text[pos] == u'-';
        ++pos;
    }
    const size_t start = pos;
    uint32_t value = 0;
    for (; pos < text.size() && text[pos] >= u'0' && text[pos] <= u'9'; ++pos) {
        value = value * 10 + static_cast<uint32_t>(text[pos] - u'0');
    }
    if (pos == start) {
        return false;
    }
    out = negative ? 0u - value : value;
    return true;
}

}  // namespace

EventLogQueryProcessor::EventLogQueryProcessor(const WMIQueryEntry* entry,
                                               WMICheckpointer* checkpointer) {
    if (entry == nullptr || entry->type != WMIQueryEntry::TYPE_EVENT_LOG ||
        entry->parameter.empty() || checkpointer == nullptr) {
        throw BaseException(
            "Incorrect parameters given when creating a EventLogQueryProcessor object");
    }
    outputMode_ = 2;
    checkpointer_ = checkpointer;
    if (entry->notification) {
        queryRun_ = &runNotificationQuery;
        checkpointer_ = nullptr;
    }
    logFile_ = entry->parameter;
    namespace_ = entry->namespace_;
    typeName_ = entry->name.empty() ? WStr(u"unspecified") : entry->name.toWide();
    hostname_ = entry->hostname.toWide();
    index_ = entry->index.toWide();
    disableHostnameNormalization_ = entry->disableHostnameNormalization;

    std::vector<Str> names;
    HostNames::getLocalNames(names);
    for (const Str& name : names) {
        localNames_.push_back(name.toWide());
    }
    headerStart_ = headerStart(index_, typeName_);
    timeWrittenFormat();
}

EventLogQueryProcessor::~EventLogQueryProcessor() {
    if (checkpointer_ != nullptr) {
        checkpointer_->sync();
    }
}

Str EventLogQueryProcessor::getWql() {
    if (isNotification()) {
        return Str::printf(
            "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA \"Win32_NTLogEvent\" "
            "AND TargetInstance.Logfile = \"%s\"",
            logFile_.c_str());
    }
    return getEventLogWql();
}

Str EventLogQueryProcessor::describe() {
    Str text = serverFromNamespace(namespace_);
    text.append(": ").append(logFile_);
    return text;
}

const Str& EventLogQueryProcessor::getCheckpointKey() {
    if (checkpointKey_.empty()) {
        const uLong crc = crc32(0L, reinterpret_cast<const Bytef*>(logFile_.data()),
                                static_cast<uInt>(logFile_.size()));
        checkpointKey_ = namespace_;
        checkpointKey_.appendFormat("|%08x", static_cast<unsigned>(crc));
    }
    return checkpointKey_;
}

Str EventLogQueryProcessor::getEventLogWql() {
    Str where = Str::printf(" WHERE Logfile = \"%s\"", logFile_.c_str());
    if (probeState_ == PROBE_SENT) {
        probeState_ = PROBE_NONE;
    }
    if (checkpoint_.mode() == EventLogCheckpoint::MODE_UNSET && !readCheckpoint()) {
        return Str();
    }
    const char* properties = kProperties;
    if (probeState_ != PROBE_NONE) {
        properties = "TimeWritten";
        where.append(" AND RecordNumber = 1");
        probeState_ = PROBE_SENT;
    } else {
        switch (checkpoint_.mode()) {
            case EventLogCheckpoint::MODE_ONE_SEEN:
                where.appendFormat(" AND RecordNumber != %u", checkpoint_.chk());
                break;
            case EventLogCheckpoint::MODE_ASCENDING:
                where.appendFormat(" AND RecordNumber > %u", checkpoint_.chk());
                break;
            case EventLogCheckpoint::MODE_DESCENDING:
                wmiLogger().debug("getEventLogWql: DESC: chk=%u, low=%u, hi=%u (%s)",
                                  checkpoint_.chk(), checkpoint_.low(), checkpoint_.hi(),
                                  describe().c_str());
                where.appendFormat(" AND RecordNumber > %u", checkpoint_.low());
                if (checkpoint_.chk() != kNone) {
                    where.appendFormat(" AND RecordNumber < %u", checkpoint_.chk());
                }
                break;
            default:
                break;
        }
    }
    Str wql = Str::printf("SELECT %s FROM Win32_NTLogEvent%s", properties, where.c_str());
    wmiLogger().debug("Event log wql \"%s\" (%s)", wql.c_str(), describe().c_str());
    return wql;
}

bool EventLogQueryProcessor::readCheckpoint() {
    Str value;
    checkpointer_->get(getCheckpointKey(), value);
    if (value.empty()) {
        checkpoint_.setCheckpoint(kNone, 0, kNone, EventLogCheckpoint::MODE_UNKNOWN, nullptr);
        return true;
    }
    if (!checkpoint_.parseCheckpoint(value.segment())) {
        wmiLogger().error(
            "Error setting checkpoint value.  This may be a bug.  Please report it. "
            "(%s)",
            describe().c_str());
        return false;
    }
    return true;
}

void EventLogQueryProcessor::writeData(ResultBatch::iterator first, ResultBatch::iterator last) {
    if (first != last) {
        WMIDataOutputter::writeData(first, last);
        return;
    }
    wmiLogger().debug("EventLogQueryProcessor::writeData: No results returned (%s)",
                      describe().c_str());
    if (checkpoint_.mode() == EventLogCheckpoint::MODE_DESCENDING && checkpoint_.chk() != kNone) {
        // The pass is complete: what lies above its newest record is the next pass. Kept in
        // memory only, since a restart repeats the empty query and comes to the same place.
        const uint32_t hi = checkpoint_.hi();
        wmiLogger().debug(
            "EventLogQueryProcessor::writeData: Reseting DESC: PRE chk=%u, low=%u, hi=%u (%s)",
            checkpoint_.chk(), checkpoint_.low(), hi, describe().c_str());
        checkpoint_.setCheckpoint(kNone, hi, kNone, EventLogCheckpoint::MODE_UNSET, nullptr);
        wmiLogger().debug(
            "EventLogQueryProcessor::writeData: Reseting DESC: chk=%u, low=%u, hi=%u (%s)",
            checkpoint_.chk(), checkpoint_.low(), checkpoint_.hi(), describe().c_str());
    } else if (probeState_ == PROBE_NONE) {
        probeState_ = PROBE_DUE;
    }
}

void EventLogQueryProcessor::filterRecord(EventRecord& record) {
    if (!isNotification()) {
        return;
    }
    for (const WStr& name : NOTIFICATION_ONLY) {
        record.erase(name);
    }
}

void EventLogQueryProcessor::writeEvent(ResultBatch::iterator position) {
    if (disableHostnameNormalization_) {
        reportResult(position);
        return;
    }
    auto found = position->find(COMPUTER_NAME);
    if (found == position->end()) {
        reportResult(position);
        return;
    }
    WMIDataOutputter* out =
        outputter_ != nullptr ? outputter_ : &DefaultWMIDataOutputter::instance();
    const WStr& value = found->second;
    if (value != lastComputerName_) {
        lastComputerName_ = value;
        Str lower = Str::fromWide(value);
        lower.toLower();
        const WStr wideLower = lower.toWide();
        const bool local =
            std::find(localNames_.begin(), localNames_.end(), wideLower) != localNames_.end();
        normalizedComputerName_ = local ? InstallationInfo::instance().serverName() : value;
    }
    out->setFixedProperty(COMPUTER_NAME, normalizedComputerName_);
    if (normalizedComputerName_ != value) {
        out->setFixedProperty(ORIGINAL_COMPUTER_NAME, value);
    }
    reportResult(position);
    out->removeFixedProperty(COMPUTER_NAME);
    out->removeFixedProperty(ORIGINAL_COMPUTER_NAME);
}

bool EventLogQueryProcessor::isResetProbeResult(const EventRecord& record) {
    return record.size() == 1 && record.begin()->first == TIME_WRITTEN;
}

bool EventLogQueryProcessor::probeResult(const Str& thisTime) {
    const Str& known = checkpoint_.time();
    if (!known.empty() && thisTime != known) {
        // Record 1 is another record now: the log was cleared and numbering starts again. The
        // store learns it with the next record reported.
        const Str empty;
        checkpoint_.setCheckpoint(0, 0, 0, EventLogCheckpoint::MODE_UNSET, &empty);
        wmiLogger().warn("The event log file seems to have been reset (cleared) (%s)",
                         describe().c_str());
        return true;
    }
    wmiLogger().debug("Event log reset check: no reset (clearing) of the log file (%s)",
                      describe().c_str());
    if (known.empty()) {
        checkpoint_.setCheckpoint(checkpoint_.chk(), checkpoint_.low(), checkpoint_.hi(),
                                  EventLogCheckpoint::MODE_UNSET, &thisTime);
    }
    return true;
}

bool EventLogQueryProcessor::reportResult(ResultBatch::iterator position) {
    const EventRecord& record = *position;
    auto timeWritten = record.find(TIME_WRITTEN);
    if (timeWritten == record.end()) {
        return false;
    }
    if (isResetProbeResult(record)) {
        return probeResult(Str::fromWide(timeWritten->second));
    }
    auto recordNumber = record.find(RECORD_NUMBER);
    uint32_t rec = 0;
    if (recordNumber == record.end() || record.find(MESSAGE) == record.end() ||
        !readRecordNumber(recordNumber->second, rec)) {
        return false;
    }

    uint32_t mode = checkpoint_.mode();
    uint32_t chk = checkpoint_.chk();
    uint32_t low = checkpoint_.low();
    uint32_t hi = checkpoint_.hi();
    switch (mode) {
        case EventLogCheckpoint::MODE_UNKNOWN:
            mode = EventLogCheckpoint::MODE_ONE_SEEN;
            chk = rec;
            low = 0;
            hi = rec + 1;
            break;
        case EventLogCheckpoint::MODE_ONE_SEEN:
            if (rec > chk) {
                mode = EventLogCheckpoint::MODE_ASCENDING;
                chk = rec;
            } else {
                // The second record's successor is the first record when numbers are
                // consecutive: the lower bound of the pass after this one.
                mode = EventLogCheckpoint::MODE_DESCENDING;
                chk = rec;
                low = 0;
                hi = rec + 1;
                wmiLogger().debug("reportResult: DESC: POST chk=%u, low=%u, hi=%u (%s)", chk, low,
                                  hi, describe().c_str());
            }
            break;
        case EventLogCheckpoint::MODE_ASCENDING:
            chk = rec;
            break;
        case EventLogCheckpoint::MODE_DESCENDING:
            wmiLogger().debug("reportResult: DESC: PRE  chk=%u, low=%u, hi=%u (%s)", chk, low, hi,
                              describe().c_str());
            chk = rec;
            if (hi == kNone) {
                hi = rec;
            }
            wmiLogger().debug("reportResult: DESC: POST chk=%u, low=%u, hi=%u (%s)", chk, low, hi,
                              describe().c_str());
            break;
        default:
            break;
    }

    WMIDataOutputter* out =
        outputter_ != nullptr ? outputter_ : &DefaultWMIDataOutputter::instance();
    eventHeader_ = headerStart_;
    appendTimeLine(timeWritten->second, eventHeader_);
    eventHeader_ += u'\n';
    out->setHeader(eventHeader_);
    if (out->footer() != FOOTER) {
        out->setFooter(FOOTER);
    }
    out->setFixedProperty(WMI_TYPE, typeName_);
    if (!hostname_.empty()) {
        out->setFixedProperty(WMI_HOSTNAME, hostname_);
    }
    out->writeEvent(position);
    out->removeFixedProperty(WMI_TYPE);
    out->removeFixedProperty(WMI_HOSTNAME);

    // Only now that the event is out may the checkpoint pass it: a crash in between repeats
    // this record at the next start, and never loses it.
    // Record 1 names the log; any other keeps the time known.
    const Str recordOneTime = rec == 1 ? Str::fromWide(timeWritten->second) : Str();
    checkpoint_.setCheckpoint(chk, low, hi, mode, rec == 1 ? &recordOneTime : nullptr);
    if (checkpointer_ != nullptr) {
        checkpointer_->put(getCheckpointKey(), checkpoint_.formatCheckpoint());
    }
    return true;
}

void EventLogQueryProcessor::appendTimeLine(const WStr& timeWritten, WStr& target) {
    // Zone offsets are whole minutes, so the seconds of a TimeWritten carry over to local time
    // unchanged: the calendar is asked once per minute of records, not once per record.
    const bool wholeText = timeWritten.size() == kDmtfLength && timeWritten[14] == u'.' &&
                           isDigit(timeWritten[12]) && isDigit(timeWritten[13]) &&
                           timeWritten[12] < u'6';
    if (wholeText) {
        const bool sameMinute =
            !lastMinuteKey_.empty() &&
            std::equal(timeWritten.begin(), timeWritten.begin() + 12, lastMinuteKey_.begin()) &&
            std::equal(timeWritten.begin() + 21, timeWritten.end(), lastMinuteKey_.begin() + 12);
        if (!sameMinute) {
            WStr minute = timeWritten;
            minute[12] = minute[13] = u'0';
            lastMinuteKey_.clear();
            if (!localTimeLine(minute, lastMinuteLine_)) {
                // Not a time: the line of now stands.
                target += lastMinuteLine_;
                return;
            }
            lastMinuteKey_.assign(timeWritten.begin(), timeWritten.begin() + 12);
            lastMinuteKey_.append(timeWritten.begin() + 21, timeWritten.end());
            lastMinuteLine_.resize(12);
        }
        target += lastMinuteLine_;
        target += timeWritten[12];
        target += timeWritten[13];
        target += u".000000";
        return;
    }
    WStr line;
    localTimeLine(timeWritten, line);
    target += line;
}

bool EventLogQueryProcessor::localTimeLine(const WStr& timeWritten, WStr& target) {
    Timeval written;
    const Str text = Str::fromWide(timeWritten);
    LocalStructTm tm;
    const bool parsed =
        timeWrittenFormat().parse(written, text.segment(), TimeZoneProvider::local()) >= 0 &&
        written.ticks() > 0;
    (parsed ? written : Timeval::now()).toLocal(tm);
    char buffer[100];
    const size_t length = std::strftime(buffer, sizeof buffer, "%Y%m%d%H%M%S.000000", &tm);
    target.assign(buffer, buffer + length);
    return parsed;
}

}  // namespace morvax
