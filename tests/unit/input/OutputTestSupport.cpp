#include "unit/input/OutputTestSupport.h"

#include <gtest/gtest.h>

#include "util/time/StructTm.h"
#include "util/time/TimeFormat.h"

namespace morvax::outputtest {

namespace {

bool sameName(const WStr& a, const WStr& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        char16_t x = a[i] >= u'A' && a[i] <= u'Z' ? a[i] + 32 : a[i];
        char16_t y = b[i] >= u'A' && b[i] <= u'Z' ? b[i] + 32 : b[i];
        if (x != y) {
            return false;
        }
    }
    return true;
}

}  // namespace

WStr w(const std::string& utf8) {
    return Str::toWide(StrSegment(utf8));
}

FakeClassObject& FakeClassObject::add(const std::string& name, wmi::Variant value) {
    properties_.emplace_back(w(name), std::move(value));
    return *this;
}

FakeClassObject& FakeClassObject::addSystem(const std::string& name, wmi::Variant value) {
    system_.emplace_back(w(name), std::move(value));
    return *this;
}

FakeClassObject& FakeClassObject::failGet(const std::string& name, wmi::HRESULT hr) {
    failures_.emplace_back(w(name), hr);
    return *this;
}

wmi::HRESULT FakeClassObject::getNames(std::vector<std::u16string>& out) {
    if (wmi::failed(namesResult_)) {
        return namesResult_;
    }
    for (const auto& property : properties_) {
        out.push_back(property.first);
    }
    return wmi::WBEM_S_NO_ERROR;
}

wmi::HRESULT FakeClassObject::get(const std::u16string& name, wmi::Variant& out) {
    for (const auto& failure : failures_) {
        if (sameName(failure.first, name)) {
            return failure.second;
        }
    }
    const wmi::Variant* value = find(name);
    if (value == nullptr) {
        return wmi::WBEM_E_NOT_FOUND;
    }
    out = *value;
    return wmi::WBEM_S_NO_ERROR;
}

const wmi::Variant* FakeClassObject::find(const std::u16string& name) const {
    for (const auto* list : {&properties_, &system_}) {
        for (const auto& property : *list) {
            if (sameName(property.first, name)) {
                return &property.second;
            }
        }
    }
    return nullptr;
}

CapturedStream::CapturedStream() : file_(std::tmpfile()) {
    EXPECT_NE(file_, nullptr);
}

CapturedStream::~CapturedStream() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

std::string CapturedStream::text() const {
    std::string out;
    if (file_ == nullptr) {
        return out;
    }
    std::fflush(file_);
    long end = std::ftell(file_);
    std::rewind(file_);
    char chunk[4096];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file_)) > 0) {
        out.append(chunk, got);
    }
    std::fseek(file_, end, SEEK_SET);
    return out;
}

FixedClock::FixedClock(Timeval time) : time_(time), previous_(Timeval::setClockOverride(&time_)) {}

FixedClock::~FixedClock() {
    Timeval::setClockOverride(previous_);
}

std::string localTimeLine(Timeval time) {
    TimeFormat format;
    EXPECT_TRUE(format.compile("%Y%m%d%H%M%S.%6q"));
    LocalStructTmHires tm;
    time.toLocalHires(tm);
    Str text;
    format.format(tm, text);
    return text.toStdString();
}

RecordingProcessor::RecordingProcessor(uint32_t outputMode, bool notification) {
    outputMode_ = outputMode;
    if (notification) {
        queryRun_ = &runNotificationQuery;
    }
}

void RecordingProcessor::writeData(ResultBatch::iterator first, ResultBatch::iterator last) {
    batches.emplace_back(first, last);
}

void RecordingProcessor::filterRecord(EventRecord& record) {
    ++filtered;
    if (!dropProperty.empty()) {
        record.erase(dropProperty);
    }
}

}  // namespace morvax::outputtest
