#include "input/WQLQueryProcessor.h"

#include <cstdlib>
#include <cstring>

#include "input/DefaultWMIDataOutputter.h"
#include "input/NamespaceServer.h"
#include "util/base/BaseException.h"
#include "util/time/StructTm.h"
#include "util/time/TimeFormat.h"
#include "util/time/Timeval.h"

namespace morvax {

namespace {

constexpr size_t SUB_SECOND_DIGITS = 6;

const WStr FOOTER(WMIDataOutputter::END_OF_EVENT);
const WStr COMPUTER_NAME(u"ComputerName");
const WStr WMI_TYPE(u"wmi_type");
const WStr WMI_HOSTNAME(u"wmi_hostname");

const TimeFormat& timeLineFormat() {
    static const TimeFormat* format = [] {
        auto* compiled = new TimeFormat();
        if (!compiled->compile("%Y%m%d%H%M%S.%6q")) {
            std::abort();
        }
        return compiled;
    }();
    return *format;
}

// The positions of the fixed properties in the row plans' options.
enum Fixed : uint32_t { FIXED_COMPUTER_NAME, FIXED_WMI_HOSTNAME, FIXED_WMI_TYPE };

RowPlan::Options rowOptions() {
    RowPlan::Options options;
    options.fixedNames = {COMPUTER_NAME, WMI_HOSTNAME, WMI_TYPE};
    return options;
}

}  // namespace

WQLQueryProcessor::WQLQueryProcessor(const WMIQueryEntry* entry) : reader_(rowOptions()) {
    if (entry == nullptr || entry->type != WMIQueryEntry::TYPE_WQL || entry->parameter.empty()) {
        throw BaseException("Incorrect parameters given when creating a WQLQueryProcessor object");
    }
    wql_ = entry->parameter;
    namespace_ = entry->namespace_;
    index_ = entry->index.toWide();
    if (!entry->hostname.empty()) {
        hostname_ = entry->hostname;
        hostnameIsExplicit_ = true;
    } else {
        hostname_ = serverFromNamespace(namespace_);
    }
    typeName_ = entry->name.empty() ? WStr(u"unspecified") : entry->name.toWide();
    outputMode_ = entry->outputMode;
    if (entry->notification) {
        queryRun_ = &runNotificationQuery;
    }

    wideHostname_ = hostname_.toWide();
    headerStart_ = headerStart(index_, typeName_);
    headerStartUtf8_ = EventBuffer::utf8(headerStart_);
    typeNameUtf8_ = EventBuffer::utf8(typeName_);
    hostnameUtf8_ = EventBuffer::utf8(wideHostname_);
    typeNamePlain_ = WMIDataOutputter::plainFixedValue(typeNameUtf8_);
    hostnamePlain_ = WMIDataOutputter::plainFixedValue(hostnameUtf8_);
    // The format is checked here rather than at the first event.
    timeLineFormat();
}

WQLQueryProcessor::~WQLQueryProcessor() = default;

Str WQLQueryProcessor::getWql() {
    return wql_;
}

Str WQLQueryProcessor::describe() {
    Str text(namespace_.empty() ? Str(".") : namespace_);
    text.append(": ");
    text.append(wql_);
    return text;
}

void WQLQueryProcessor::writeData(ResultBatch::iterator first, ResultBatch::iterator last) {
    WMIDataOutputter::writeData(first, last);
}

WMIDataOutputter& WQLQueryProcessor::sharedOutputter() const {
    return outputter_ != nullptr ? *outputter_ : DefaultWMIDataOutputter::instance();
}

bool WQLQueryProcessor::writesObjects() const {
    return outputMode_ != 0 && sharedOutputter().writesRows();
}

void WQLQueryProcessor::writeObjects(const std::shared_ptr<wmi::ClassObject>* objects,
                                     size_t count) {
    reader_.read(*this, objects, count, rows_);
    WMIDataOutputter& out = sharedOutputter();
    const WMIDataOutputter::OutputHold hold;
    for (size_t row = 0; row < rows_.size(); ++row) {
        const RowPlan& plan = rows_.plan(row);
        if (&plan != lastPlan_.get()) {
            lastPlan_ = rows_.sharedPlan(row);
            lastPlanHasComputerName_ = plan.find(COMPUTER_NAME) != RowPlan::kNoColumn;
        }
        eventHeaderUtf8_.assign(headerStartUtf8_);
        appendTimeLine(eventHeaderUtf8_);
        eventHeaderUtf8_ += '\n';

        WMIDataOutputter::FixedValues fixed;
        fixed.put(FIXED_WMI_TYPE, typeNameUtf8_, typeNamePlain_);
        if (hostnameIsExplicit_ && !hostname_.empty()) {
            fixed.put(FIXED_WMI_HOSTNAME, hostnameUtf8_, hostnamePlain_);
        } else if (!lastPlanHasComputerName_ && !hostname_.empty()) {
            // Otherwise the data's own host stands, or there is none.
            fixed.put(FIXED_COMPUTER_NAME, hostnameUtf8_, hostnamePlain_);
        }
        out.writeRow(eventHeaderUtf8_, rows_, row, fixed);
    }
}

void WQLQueryProcessor::writeEvent(ResultBatch::iterator position) {
    WMIDataOutputter* out = &sharedOutputter();

    eventHeader_ = headerStart_;
    std::string timeLine;
    appendTimeLine(timeLine);
    eventHeader_.append(timeLine.begin(), timeLine.end());
    eventHeader_ += u'\n';

    out->setFixedProperty(WMI_TYPE, typeName_);
    out->setHeader(eventHeader_);
    if (out->footer() != FOOTER) {
        out->setFooter(FOOTER);
    }
    if (hostnameIsExplicit_ && !hostname_.empty()) {
        out->setFixedProperty(WMI_HOSTNAME, wideHostname_);
    } else if (position->count(COMPUTER_NAME) != 0) {
        // The data's own host stands.
    } else if (!hostname_.empty()) {
        out->setFixedProperty(COMPUTER_NAME, wideHostname_);
    }
    out->writeEvent(position);
    out->removeFixedProperty(COMPUTER_NAME);
    out->removeFixedProperty(WMI_TYPE);
    out->removeFixedProperty(WMI_HOSTNAME);
}

void WQLQueryProcessor::appendTimeLine(std::string& target) {
    const Timeval now = Timeval::now();
    const uint64_t second = now.ticks() / Timeval::TICKS_PER_SECOND;
    const uint32_t subTicks = static_cast<uint32_t>(now.ticks() % Timeval::TICKS_PER_SECOND);
    char digits[SUB_SECOND_DIGITS];
    uint32_t micros = subTicks / 10;
    for (size_t i = SUB_SECOND_DIGITS; i-- > 0;) {
        digits[i] = static_cast<char>('0' + micros % 10);
        micros /= 10;
    }
    if (second == cachedSecond_) {
        target += cachedSecondText_;
        target.append(digits, SUB_SECOND_DIGITS);
        return;
    }
    // A new second: ask the calendar once, and keep what stays the same until the next one.
    LocalStructTmHires tm;
    now.toLocalHires(tm);
    Str text;
    timeLineFormat().format(tm, text);
    target.append(text.data(), text.size());
    cachedSecond_ = ~uint64_t{0};
    if (text.size() >= SUB_SECOND_DIGITS &&
        std::memcmp(text.end() - SUB_SECOND_DIGITS, digits, SUB_SECOND_DIGITS) == 0) {
        cachedSecondText_.assign(text.data(), text.size() - SUB_SECOND_DIGITS);
        cachedSecond_ = second;
    }
}

}  // namespace morvax
