#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "input/EventRecord.h"
#include "input/WMIQueryProcessor.h"
#include "support/Calendar.h"
#include "support/LogCapture.h"
#include "util/log/Logger.h"
#include "util/time/Timeval.h"
#include "wmi/Wmi.h"

namespace morvax::outputtest {

WStr w(const std::string& utf8);

// A result object with properties in a fixed order; system properties ("__CLASS",
// "TargetInstance", ...) answer get() only, as they do on a real object. Names are looked up
// without regard to case, as WMI does.
class FakeClassObject : public wmi::ClassObject {
  public:
    FakeClassObject& add(const std::string& name, wmi::Variant value);
    FakeClassObject& addSystem(const std::string& name, wmi::Variant value);
    FakeClassObject& failNames(wmi::HRESULT hr, NamesStep step = NamesStep::GET_NAMES) {
        namesResult_ = hr;
        namesStep_ = step;
        return *this;
    }
    NamesStep namesFailure() const override { return namesStep_; }
    FakeClassObject& failGet(const std::string& name, wmi::HRESULT hr);

    wmi::HRESULT getNames(std::vector<std::u16string>& out) override;
    wmi::HRESULT get(const std::u16string& name, wmi::Variant& out) override;

  private:
    const wmi::Variant* find(const std::u16string& name) const;

    std::vector<std::pair<WStr, wmi::Variant>> properties_;
    std::vector<std::pair<WStr, wmi::Variant>> system_;
    std::vector<std::pair<WStr, wmi::HRESULT>> failures_;
    wmi::HRESULT namesResult_ = wmi::WBEM_S_NO_ERROR;
    NamesStep namesStep_ = NamesStep::GET_NAMES;
};

// A temporary file to hand to an outputter as its stream; read back as bytes.
class CapturedStream {
  public:
    CapturedStream();
    ~CapturedStream();
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;

    std::FILE* file() const { return file_; }
    // Everything written so far.
    std::string text() const;

  private:
    std::FILE* file_;
};

// Log lines as "<logger> <LEVEL> <message>": of(name), formatted().
using LogLines = test::LogCapture;

// Holds Timeval::now() at a set time while it lives.
class FixedClock {
  public:
    explicit FixedClock(Timeval time);
    ~FixedClock();
    void set(Timeval time) { time_ = time; }

  private:
    Timeval time_;
    const Timeval* previous_;
};

using test::utcTime;

// The local time text of `time` as the time line of an event has it.
std::string localTimeLine(Timeval time);

// Makes the process's local zone UTC while it lives, where the platform lets a test do so
// (active() tells).
class UtcTimeZone {
  public:
    UtcTimeZone();
    ~UtcTimeZone();
    bool active() const { return active_; }

  private:
    bool active_ = false;
    bool hadValue_ = false;
    std::string previous_;
};

// A processor that keeps what it was handed.
class RecordingProcessor : public WMIQueryProcessor {
  public:
    explicit RecordingProcessor(uint32_t outputMode = 2, bool notification = false);

    Str getWql() override { return Str("SELECT * FROM Test"); }
    Str describe() override { return Str("test: SELECT * FROM Test"); }
    void writeData(ResultBatch::iterator first, ResultBatch::iterator last) override;
    void filterRecord(EventRecord& record) override;

    // One entry per call of writeData.
    std::vector<std::vector<EventRecord>> batches;
    size_t filtered = 0;
    // Removed from every record by filterRecord, when not empty.
    WStr dropProperty;
};

}  // namespace morvax::outputtest
