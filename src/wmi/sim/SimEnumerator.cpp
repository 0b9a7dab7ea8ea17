#include "wmi/sim/SimEnumerator.h"

#include "util/time/MonotonicTime.h"
#include "wmi/wql/WqlEvaluator.h"

namespace morvax::wmi {

SimEnumerator::SimEnumerator(std::shared_ptr<const WqlQuery> query, std::vector<Segment> segments,
                             const SimHost::Faults& faults)
    : query_(std::move(query)),
      segments_(std::move(segments)),
      faults_(faults),
      startMs_(MonotonicTime::now()) {}

std::shared_ptr<ClassObject> SimEnumerator::find() {
    const WqlExpr* where = query_->where();
    while (segment_ < segments_.size()) {
        const Segment& s = segments_[segment_];
        // Which half comes now: stored (false) or generated (true).
        const bool generatedHalf = (part_ == 0) == (s.generatedFirst != s.reverse);
        const uint64_t size = generatedHalf ? s.generatedEnd - s.generatedBegin : s.storedCount();
        if (position_ >= size) {
            position_ = 0;
            if (++part_ == 2) {
                part_ = 0;
                ++segment_;
            }
            continue;
        }
        const uint64_t at = s.reverse ? size - 1 - position_ : position_;
        ++position_;
        if (generatedHalf) {
            const uint64_t index = s.generatedBegin + at;
            if (!where) {
                return std::make_shared<SimClassObject>(s.shape, index);
            }
            SimClassObject candidate(s.shape, index);
            if (WqlEvaluator::matches(where, candidate)) {
                return std::make_shared<SimClassObject>(s.shape, index);
            }
        } else {
            auto object = std::make_shared<SimClassObject>(s.shape, s.storedAt(at));
            if (!where || WqlEvaluator::matches(where, *object)) {
                return object;
            }
        }
    }
    return nullptr;
}

HRESULT SimEnumerator::next(long, unsigned count, std::vector<std::shared_ptr<ClassObject>>& out) {
    if (failed(failure_)) {
        return failure_;
    }
    if (faults_.nextDelayMs > 0 && MonotonicTime::now() - startMs_ < faults_.nextDelayMs) {
        return WBEM_S_TIMEDOUT;
    }
    uint64_t limit = count;
    if (faults_.nextAfter) {
        if (delivered_ >= faults_.nextAfterCount) {
            failure_ = faults_.nextAfterResult;
            return failure_;
        }
        limit = std::min<uint64_t>(limit, faults_.nextAfterCount - delivered_);
    }
    if (!started_) {
        started_ = true;
        pending_ = find();
    }
    uint64_t produced = 0;
    while (produced < limit && pending_) {
        out.push_back(std::move(pending_));
        ++produced;
        pending_ = find();
    }
    delivered_ += produced;
    if (produced == count && count > 0) {
        return WBEM_S_NO_ERROR;
    }
    if (!pending_) {
        return WBEM_S_FALSE;
    }
    // Held back by a fault: what is left comes (or fails) at the next call.
    return WBEM_S_TIMEDOUT;
}

}  // namespace morvax::wmi
