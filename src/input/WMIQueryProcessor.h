#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "input/EventRecord.h"
#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax {

class WMIDataOutputter;

// What a query handler asks (the text, a description) and how it hands results back. The
// connection runs the text through the processor's query call and passes each batch of results
// to writeData.
class WMIQueryProcessor {
  public:
    // The two calls a query can be run with. A processor is in notification mode exactly when
    // its call is the notification one.
    using QueryRun = wmi::HRESULT (*)(wmi::Services& services, const WStr& wql,
                                      std::unique_ptr<wmi::Enumerator>& out);
    static wmi::HRESULT runPlainQuery(wmi::Services& services, const WStr& wql,
                                      std::unique_ptr<wmi::Enumerator>& out);
    static wmi::HRESULT runNotificationQuery(wmi::Services& services, const WStr& wql,
                                             std::unique_ptr<wmi::Enumerator>& out);

    WMIQueryProcessor() = default;
    virtual ~WMIQueryProcessor();
    WMIQueryProcessor(const WMIQueryProcessor&) = delete;
    WMIQueryProcessor& operator=(const WMIQueryProcessor&) = delete;

    // The query text to run now.
    virtual Str getWql() = 0;
    // Names the query in log lines and exception texts.
    virtual Str describe();
    // One batch of results, possibly empty (then the whole enumeration was empty).
    virtual void writeData(ResultBatch::iterator first, ResultBatch::iterator last) = 0;
    // May remove properties from a fresh record.
    virtual void filterRecord(EventRecord& record);

    // Whether processResults may hand over the result objects themselves (writeObjects), which
    // then go to their events without records.
    virtual bool writesObjects() const { return false; }
    // One batch of result objects, as writeData takes the batch of their records; null objects
    // are skipped. Throws WMIException with nothing of the batch written.
    virtual void writeObjects(const std::shared_ptr<wmi::ClassObject>* objects, size_t count);

    wmi::HRESULT runQuery(wmi::Services& services, const WStr& wql,
                          std::unique_ptr<wmi::Enumerator>& out) {
        return queryRun_(services, wql, out);
    }
    bool isNotification() const { return queryRun_ == &runNotificationQuery; }

    // The shared outputter; not owned.
    void setOutputter(WMIDataOutputter* outputter) { outputter_ = outputter; }
    WMIDataOutputter* outputter() const { return outputter_; }
    uint32_t outputMode() const { return outputMode_; }

  protected:
    WMIDataOutputter* outputter_ = nullptr;
    QueryRun queryRun_ = &runPlainQuery;
    uint32_t outputMode_ = 2;
};

}  // namespace morvax
