#include "input/EventLogQueryProcessor.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include "conf/InstallationInfo.h"
#include "input/DefaultWMIDataOutputter.h"
#include "input/NamespaceServer.h"
#include "input/WMICheckpointer.h"
#include "input/WMILogger.h"
#include "net/HostNames.h"
#include "util/base/Ascii.h"
#include "util/base/BaseException.h"
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

// The positions of the fixed properties in the row plans' options.
enum Fixed : uint32_t {
    FIXED_COMPUTER_NAME,
    FIXED_ORIGINAL_COMPUTER_NAME,
    FIXED_WMI_HOSTNAME,
    FIXED_WMI_TYPE
};

RowPlan::Options rowOptions(bool notification) {
    RowPlan::Options options;
    options.fixedNames = {COMPUTER_NAME, ORIGINAL_COMPUTER_NAME, WMI_HOSTNAME, WMI_TYPE};
    if (notification) {
        options.excluded.assign(std::begin(NOTIFICATION_ONLY), std::end(NOTIFICATION_ONLY));
    }
    return options;
}

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
bool readRecordNumber(std::string_view text, uint32_t& out) {
    size_t pos = 0;
    while (pos < text.size() && isSpace(text[pos])) {
        ++pos;
    }
    bool negative = false;
    if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        negative = text[pos] == '-';
        ++pos;
    }
    const size_t start = pos;
    uint32_t value = 0;
    for (; pos < text.size() && text[pos] >= '0' && text[pos] <= '9'; ++pos) {
        value = value * 10 + static_cast<uint32_t>(text[pos] - '0');
    }
    if (pos == start) {
        return false;
    }
    out = negative ? 0u - value : value;
    return true;
}

}  // namespace

EventLogQueryProcessor::EventLogQueryProcessor(const WMIQueryEntry* entry,
                                               WMICheckpointer* checkpointer)
    : reader_(rowOptions(entry != nullptr && entry->notification)) {
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
        localNamesUtf8_.push_back(EventBuffer::utf8(localNames_.back()));
    }
    headerStart_ = headerStart(index_, typeName_);
    headerStartUtf8_ = EventBuffer::utf8(headerStart_);
    typeNameUtf8_ = EventBuffer::utf8(typeName_);
    hostnameUtf8_ = EventBuffer::utf8(hostname_);
    typeNamePlain_ = WMIDataOutputter::plainFixedValue(typeNameUtf8_);
    hostnamePlain_ = WMIDataOutputter::plainFixedValue(hostnameUtf8_);
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

WMIDataOutputter& EventLogQueryProcessor::sharedOutputter() const {
    return outputter_ != nullptr ? *outputter_ : DefaultWMIDataOutputter::instance();
}

void EventLogQueryProcessor::writeData(ResultBatch::iterator first, ResultBatch::iterator last) {
    if (first != last) {
        WMIDataOutputter::writeData(first, last);
        return;
    }
    noResults();
}

bool EventLogQueryProcessor::writesObjects() const {
    return sharedOutputter().writesRows();
}

void EventLogQueryProcessor::writeObjects(const std::shared_ptr<wmi::ClassObject>* objects,
                                          size_t count) {
    reader_.read(*this, objects, count, rows_);
    if (rows_.empty()) {
        noResults();
        return;
    }
    const WMIDataOutputter::OutputHold hold;
    for (size_t row = 0; row < rows_.size(); ++row) {
        reportRow(row);
    }
}

void EventLogQueryProcessor::noResults() {
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
    WMIDataOutputter* out = &sharedOutputter();
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
    const std::string timeText = EventBuffer::utf8(timeWritten->second);
    if (isResetProbeResult(record)) {
        return probeResult(Str(timeText));
    }
    auto recordNumber = record.find(RECORD_NUMBER);
    uint32_t rec = 0;
    if (recordNumber == record.end() || record.find(MESSAGE) == record.end() ||
        !readRecordNumber(EventBuffer::utf8(recordNumber->second), rec)) {
        return false;
    }
    const Step step = nextStep(rec);

    WMIDataOutputter* out = &sharedOutputter();
    eventHeader_ = headerStart_;
    std::string timeLine;
    appendTimeLine(timeText, timeLine);
    eventHeader_.append(timeLine.begin(), timeLine.end());
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
    commitStep(step, rec, timeText);
    return true;
}

void EventLogQueryProcessor::reportRow(size_t row) {
    const RowPlan& plan = rows_.plan(row);
    if (&plan != lastPlan_.get()) {
        lastPlan_ = rows_.sharedPlan(row);
        timeWrittenColumn_ = plan.find(TIME_WRITTEN);
        recordNumberColumn_ = plan.find(RECORD_NUMBER);
        computerNameColumn_ = plan.find(COMPUTER_NAME);
        messageColumn_ = plan.find(MESSAGE) != RowPlan::kNoColumn;
        probeColumns_ = plan.columns().size() == 1 && timeWrittenColumn_ == 0;
    }
    if (timeWrittenColumn_ == RowPlan::kNoColumn) {
        return;
    }
    const std::string_view timeWritten = rows_.text(row, timeWrittenColumn_);
    if (probeColumns_) {
        probeResult(Str(timeWritten));
        return;
    }
    uint32_t rec = 0;
    if (recordNumberColumn_ == RowPlan::kNoColumn || !messageColumn_ ||
        !readRecordNumber(rows_.text(row, recordNumberColumn_), rec)) {
        return;
    }
    const Step step = nextStep(rec);

    eventHeaderUtf8_.assign(headerStartUtf8_);
    appendTimeLine(timeWritten, eventHeaderUtf8_);
    eventHeaderUtf8_ += '\n';
    WMIDataOutputter::FixedValues fixed;
    fixed.put(FIXED_WMI_TYPE, typeNameUtf8_, typeNamePlain_);
    if (!hostname_.empty()) {
        fixed.put(FIXED_WMI_HOSTNAME, hostnameUtf8_, hostnamePlain_);
    }
    if (!disableHostnameNormalization_ && computerNameColumn_ != RowPlan::kNoColumn) {
        const std::string_view value = rows_.text(row, computerNameColumn_);
        const std::string& normalized = normalizedComputerName(value);
        fixed.put(FIXED_COMPUTER_NAME, normalized, normalizedComputerNamePlain_);
        if (normalized != value) {
            fixed.put(FIXED_ORIGINAL_COMPUTER_NAME, value);
        }
    }
    sharedOutputter().writeRow(eventHeaderUtf8_, rows_, row, fixed);
    commitStep(step, rec, timeWritten);
}

const std::string& EventLogQueryProcessor::normalizedComputerName(std::string_view value) {
    if (value != lastComputerNameUtf8_) {
        lastComputerNameUtf8_.assign(value);
        Str lower(value);
        lower.toLower();
        const std::string_view lowered(lower.data(), lower.size());
        const bool local = std::find(localNamesUtf8_.begin(), localNamesUtf8_.end(), lowered) !=
                           localNamesUtf8_.end();
        normalizedComputerNameUtf8_ =
            local ? EventBuffer::utf8(InstallationInfo::instance().serverName())
                  : lastComputerNameUtf8_;
        normalizedComputerNamePlain_ =
            WMIDataOutputter::plainFixedValue(normalizedComputerNameUtf8_);
    }
    return normalizedComputerNameUtf8_;
}

EventLogQueryProcessor::Step EventLogQueryProcessor::nextStep(uint32_t rec) {
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
    return Step{mode, chk, low, hi};
}

void EventLogQueryProcessor::commitStep(const Step& step, uint32_t rec,
                                        std::string_view timeWritten) {
    // Only now that the event is out may the checkpoint pass it: a crash in between repeats
    // this record at the next start, and never loses it.
    // Record 1 names the log; any other keeps the time known.
    const Str recordOneTime = rec == 1 ? Str(timeWritten) : Str();
    checkpoint_.setCheckpoint(step.chk, step.low, step.hi, step.mode,
                              rec == 1 ? &recordOneTime : nullptr);
    if (checkpointer_ != nullptr) {
        checkpointer_->put(getCheckpointKey(), checkpoint_.formatCheckpoint());
    }
}

void EventLogQueryProcessor::appendTimeLine(std::string_view timeWritten, std::string& target) {
    // Zone offsets are whole minutes, so the seconds of a TimeWritten carry over to local time
    // unchanged: the calendar is asked once per minute of records, not once per record.
    const bool wholeText = timeWritten.size() == kDmtfLength && timeWritten[14] == '.' &&
                           isDigit(timeWritten[12]) && isDigit(timeWritten[13]) &&
                           timeWritten[12] < '6';
    if (wholeText) {
        const bool sameMinute =
            !lastMinuteKey_.empty() &&
            timeWritten.substr(0, 12) == std::string_view(lastMinuteKey_).substr(0, 12) &&
            timeWritten.substr(21) == std::string_view(lastMinuteKey_).substr(12);
        if (!sameMinute) {
            std::string minute(timeWritten);
            minute[12] = minute[13] = '0';
            lastMinuteKey_.clear();
            if (!localTimeLine(minute, lastMinuteLine_)) {
                // Not a time: the line of now stands.
                target += lastMinuteLine_;
                return;
            }
            lastMinuteKey_.assign(timeWritten.substr(0, 12));
            lastMinuteKey_.append(timeWritten.substr(21));
            lastMinuteLine_.resize(12);
        }
        target += lastMinuteLine_;
        target += timeWritten[12];
        target += timeWritten[13];
        target += ".000000";
        return;
    }
    std::string line;
    localTimeLine(timeWritten, line);
    target += line;
}

bool EventLogQueryProcessor::localTimeLine(std::string_view timeWritten, std::string& target) {
    Timeval written;
    const Str text(timeWritten);
    LocalStructTm tm;
    const bool parsed =
        timeWrittenFormat().parse(written, text.segment(), TimeZoneProvider::local()) >= 0 &&
        written.ticks() > 0;
    (parsed ? written : Timeval::now()).toLocal(tm);
    char buffer[100];
    const size_t length = std::strftime(buffer, sizeof buffer, "%Y%m%d%H%M%S.000000", &tm);
    target.assign(buffer, length);
    return parsed;
}

}  // namespace morvax
