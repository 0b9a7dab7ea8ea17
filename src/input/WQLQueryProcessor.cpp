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

void appendAscii(WStr& target, const char* text, size_t length) {
    target.append(text, text + length);
}

}  // namespace

WQLQueryProcessor::WQLQueryProcessor(const WMIQueryEntry* entry) {
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

void WQLQueryProcessor::writeEvent(ResultBatch::iterator position) {
    WMIDataOutputter* out =
        outputter_ != nullptr ? outputter_ : &DefaultWMIDataOutputter::instance();

    eventHeader_ = headerStart_;
    appendTimeLine(eventHeader_);
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

void WQLQueryProcessor::appendTimeLine(WStr& target) {
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
        appendAscii(target, digits, SUB_SECOND_DIGITS);
        return;
    }
    // A new second: ask the calendar once, and keep what stays the same until the next one.
    LocalStructTmHires tm;
    now.toLocalHires(tm);
    Str text;
    timeLineFormat().format(tm, text);
    appendAscii(target, text.data(), text.size());
    cachedSecond_ = ~uint64_t{0};
    if (text.size() >= SUB_SECOND_DIGITS &&
        std::memcmp(text.end() - SUB_SECOND_DIGITS, digits, SUB_SECOND_DIGITS) == 0) {
        cachedSecondText_.clear();
        appendAscii(cachedSecondText_, text.data(), text.size() - SUB_SECOND_DIGITS);
        cachedSecond_ = second;
    }
}

}  // namespace morvax
