#include "input/WMIConnectionFactory.h"

#include "input/IWMIConnectionConsumer.h"
#include "input/WMIException.h"
#include "input/WMILogger.h"
#include "util/thread/ScopedLock.h"
#include "util/time/TimeDifference.h"

namespace morvax {

WMIConnectionFactory::WMIConnectionFactory(wmi::Locator& locator)
    : Thread("WMIConnectionFactory"), locator_(locator) {}

WMIConnectionFactory::~WMIConnectionFactory() {
    // A factory that was started and never stopped must not outlive its thread.
    stop();
    if (started_) {
        join();
    }
}

void WMIConnectionFactory::start() {
    {
        ScopedLock hold(lock_);
        wake_.wakeAll();
    }
    started_ = true;
    Thread::start();
}

void WMIConnectionFactory::request(IWMIConnectionConsumer* consumer) {
    ScopedLock hold(lock_);
    requests_.push_back(consumer);
    wake_.wakeAll();
}

bool WMIConnectionFactory::pollResponse(ConnectionResponse& out) {
    ScopedLock hold(lock_);
    if (responses_.empty()) {
        return false;
    }
    out = std::move(responses_.front());
    responses_.pop_front();
    return true;
}

bool WMIConnectionFactory::waitResponse(ConnectionResponse& out, uint64_t milliseconds) {
    ScopedLock hold(lock_);
    if (responses_.empty()) {
        answered_.timedWait(lock_, milliseconds);
    }
    return pollResponse(out);
}

void WMIConnectionFactory::stop() {
    ScopedLock hold(lock_);
    stopRequested_ = true;
    wake_.wakeAll();
}

void WMIConnectionFactory::main() {
    for (;;) {
        IWMIConnectionConsumer* consumer = nullptr;
        {
            ScopedLock hold(lock_);
            if (stopRequested_) {
                break;
            }
            if (requests_.empty()) {
                wake_.wait(lock_);
                continue;
            }
            consumer = requests_.front();
            requests_.pop_front();
        }

        const Str& ns = consumer->getNamespace();
        wmiLogger().debug("Attempting to connect to WMI provider %s", ns.c_str());
        ConnectionResponse response;
        response.consumer = consumer;
        response.started = Timeval::now();
        response.status = locator_.connectServer(Str::toWide(ns), response.services);
        response.finished = Timeval::now();
        if (wmi::failed(response.status)) {
            response.services.reset();
        }

        Str elapsed = TimeDifference(response.finished, response.started).toText();
        if (!wmi::failed(response.status)) {
            Str text("Connected to WMI provider ");
            text.append(ns).append(" (connecting took ").append(elapsed).append(")");
            wmiLogger().info(text.segment());
        } else {
            Str text("Unable to connect to WMI namespace \"");
            text.append(ns).append("\" (attempt to connect took ").append(elapsed).append(")");
            wmiLogger().error(
                formatWMIError(text.segment(), response.status, StrSegment()).segment());
        }

        ScopedLock hold(lock_);
        responses_.push_back(std::move(response));
        answered_.wakeAll();
    }
    // What nobody will collect is dropped here; the services of unanswered attempts go with it.
    ScopedLock hold(lock_);
    requests_.clear();
    responses_.clear();
}

}  // namespace morvax
