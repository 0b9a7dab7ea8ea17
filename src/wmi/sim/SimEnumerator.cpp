#include "wmi/sim/SimEnumerator.h"

#include <atomic>

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
        std::shared_ptr<SimClassObject> object = generatedHalf
                                                     ? make(s.shape, nullptr, s.generatedBegin + at)
                                                     : make(s.shape, s.storedAt(at), 0);
        if (!where || WqlEvaluator::matches(where, *object)) {
            handedOut_.push_back(object);
            return object;
        }
        spare_.push_back(std::move(object));
    }
    return nullptr;
}

std::shared_ptr<SimClassObject> SimEnumerator::make(
    const std::shared_ptr<const SimObjectShape>& shape, std::shared_ptr<const SimInstance> instance,
    uint64_t index) {
    std::shared_ptr<SimClassObject> object;
    if (spare_.empty()) {
        object = instance ? std::make_shared<SimClassObject>(shape, std::move(instance))
                          : std::make_shared<SimClassObject>(shape, index);
    } else {
        object = std::move(spare_.back());
        spare_.pop_back();
        object->remake(shape, std::move(instance), index);
    }
    return object;
}

void SimEnumerator::reclaim() {
    for (std::shared_ptr<SimClassObject>& object : handedOut_) {
        // Only this reference is left, so no other thread can take another: the fence orders
        // the reads of whoever let it go before the writes of its remaking.
        if (object.use_count() == 1) {
            std::atomic_thread_fence(std::memory_order_acquire);
            spare_.push_back(std::move(object));
        }
    }
    handedOut_.clear();
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
    reclaim();
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
