#pragma once

#include <cstddef>
#include <vector>

#include "conf/ConfUserContext.h"
#include "conf/SharedStr.h"

namespace morvax {

// The address of a piece of configuration: the owner (user and app), the application it lives
// in, then the segments type, stanza, key. A stanza's expanded form, where there is one, stands
// beside its raw name.
class ConfPathBase {
  public:
    ConfPathBase() = default;
    ConfPathBase(ConfUserContext context, SharedStr app)
        : context_(std::move(context)), app_(std::move(app)) {}
    virtual ~ConfPathBase();

    const ConfUserContext& context() const { return context_; }
    const SharedStr& app() const { return app_; }
    // The application "system": the global layer.
    bool isSystem() const { return app_ == StrSegment("system"); }
    // Owned by user "nobody" with no app.
    bool isNobody() const { return context_ == ConfUserContext(); }

    size_t segmentCount() const { return segments_.size(); }
    const SharedStr& segment(size_t i) const { return segments_[i]; }
    const SharedStr& expandedSegment(size_t i) const {
        return i < expansions_.size() && !expansions_[i].empty() ? expansions_[i] : segments_[i];
    }
    void addSegment(SharedStr segment, SharedStr expansion = SharedStr());

  private:
    ConfUserContext context_;
    SharedStr app_;
    std::vector<SharedStr> segments_;
    std::vector<SharedStr> expansions_;
};

}  // namespace morvax
