#pragma once

#include <cstdint>
#include <string>

#include "input/EventRecord.h"
#include "input/RowBatch.h"
#include "input/RowReader.h"
#include "input/WMIDataOutputter.h"
#include "input/WMIQueryEntry.h"
#include "input/WMIQueryProcessor.h"
#include "util/base/Str.h"

namespace morvax {

// Serves one fixed WQL text and writes each result as an event stamped with the time of
// collection. Its own outputter side stays empty: writeEvent dresses the shared outputter with
// header, footer and the fixed properties of this query, and hands the record on.
class WQLQueryProcessor : public WMIQueryProcessor, public WMIDataOutputter {
  public:
    // Throws BaseException unless `entry` is given, is a WQL entry and has a query text.
    explicit WQLQueryProcessor(const WMIQueryEntry* entry);
    explicit WQLQueryProcessor(const WMIQueryEntry& entry) : WQLQueryProcessor(&entry) {}
    ~WQLQueryProcessor() override;

    Str getWql() override;
    // "<namespace or .>: <wql>"
    Str describe() override;
    // Overrides both sides: one event per record, nothing at all for an empty batch.
    void writeData(ResultBatch::iterator first, ResultBatch::iterator last) override;
    void writeEvent(ResultBatch::iterator position) override;
    // Straight from the objects to the events, unless the results are class names only or the
    // outputter collects records.
    bool writesObjects() const override;
    void writeObjects(const std::shared_ptr<wmi::ClassObject>* objects, size_t count) override;

    const Str& hostname() const { return hostname_; }
    bool hostnameIsExplicit() const { return hostnameIsExplicit_; }
    const Str& namespaceName() const { return namespace_; }
    const WStr& typeName() const { return typeName_; }
    const WStr& index() const { return index_; }

  private:
    WMIDataOutputter& sharedOutputter() const;
    // Appends the local time of now, "%Y%m%d%H%M%S.%6q".
    void appendTimeLine(std::string& target);

    Str wql_;
    Str hostname_;
    bool hostnameIsExplicit_ = false;
    Str namespace_;
    WStr typeName_;
    WStr index_;

    WStr wideHostname_;
    // The header up to the time line; it changes only with the time.
    WStr headerStart_;
    WStr eventHeader_;
    // The time line without its sub-second digits, for the second it was made in.
    uint64_t cachedSecond_ = ~uint64_t{0};
    std::string cachedSecondText_;

    // The row path: the same header and fixed properties in UTF-8.
    RowReader reader_;
    RowBatch rows_;
    std::string headerStartUtf8_;
    std::string eventHeaderUtf8_;
    std::string typeNameUtf8_;
    std::string hostnameUtf8_;
    // Whether each is plain, as the outputter means it: found once, when it is set.
    bool typeNamePlain_ = false;
    bool hostnamePlain_ = false;
    // Whether the last plan's records have ComputerName.
    // Held, so that no other plan takes its place at the same address.
    std::shared_ptr<const RowPlan> lastPlan_;
    bool lastPlanHasComputerName_ = false;
};

}  // namespace morvax
