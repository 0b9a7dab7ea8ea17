#include "input/WMIConnectionManager.h"

#include "input/IWMIConfiguration.h"
#include "input/QueryHandlerState.h"
#include "input/WMIConnection.h"
#include "input/WMIConnectionFactory.h"
#include "input/WMIException.h"
#include "input/WMILogger.h"
#include "input/WMIQueryHandler.h"
#include "input/WMIQueryHandlerBuilder.h"
#include "util/thread/ScopedLock.h"
#include "util/time/Sleep.h"

namespace morvax {

WMIConnectionManager::WMIConnectionManager() : Thread("WMIConnectionManager") {}

WMIConnectionManager::~WMIConnectionManager() {
    if (started_) {
        stop();
        join();
    }
    if (factory_) {
        factory_->stop();
        factory_->join();
        factory_.reset();
    }
    // Handlers point at connections; both before the locator.
    scheduleQueue_.clear();
    handlers_.clear();
    connections_.clear();
    locator_.reset();
}

bool WMIConnectionManager::init(IWMIConfiguration* configuration) {
    if (configuration == nullptr) {
        return false;
    }
    configuration_ = configuration;
    const wmi::HRESULT hr = wmi::createLocator(locator_);
    if (wmi::failed(hr) || !locator_) {
        wmiLogger().error(
            formatWMIError("Instantiation of IWbemLocator inside WMIConnectionManager::init failed",
                           hr, StrSegment())
                .segment());
        return false;
    }
    return true;
}

void WMIConnectionManager::start() {
    started_ = true;
    Thread::start();
}

void WMIConnectionManager::stop() {
    {
        ScopedLock hold(connectionsLock_);
        for (auto& [key, connection] : connections_) {
            connection->cancel();
        }
    }
    stopRequested_.store(true);
}

void WMIConnectionManager::requestConnection(IWMIConnectionConsumer* consumer) {
    factory_->request(consumer);
}

std::unique_ptr<WMIQueryHandler> WMIConnectionManager::nextHandler() {
    const WMIQueryEntry* entry = configuration_->nextQuery();
    if (entry == nullptr) {
        return nullptr;
    }
    WMIConnection* connection = nullptr;
    {
        ScopedLock hold(connectionsLock_);
        if (entry->notification) {
            // Such a query never leaves QUERIED: it cannot share its connection.
            Str key = Str::printf("%s|%u", entry->namespace_.c_str(),
                                  static_cast<unsigned>(connections_.size()));
            auto made = std::make_unique<WMIConnection>(entry->namespace_);
            connection = made.get();
            connections_[key] = std::move(made);
        } else {
            std::unique_ptr<WMIConnection>& shared = connections_[entry->namespace_];
            if (!shared) {
                shared = std::make_unique<WMIConnection>(entry->namespace_);
            }
            connection = shared.get();
        }
    }
    return WMIQueryHandlerBuilder::createWMIQueryHandler(connection, *entry);
}

void WMIConnectionManager::schedule(WMIQueryHandler* handler, Timeval when) {
    if (!when.isMax()) {
        scheduleQueue_.emplace(when, handler);
    }
}

void WMIConnectionManager::main() {
    factory_ = std::make_unique<WMIConnectionFactory>(*locator_);
    factory_->start();

    // The start phase: every entry issues its connection request at once.
    {
        ScopedLock hold(queueLock_);
        while (std::unique_ptr<WMIQueryHandler> handler = nextHandler()) {
            WMIQueryHandler* raw = handler.get();
            handlers_.push_back(std::move(handler));
            schedule(raw, raw->advance());
        }
    }

    while (!stopRequested_.load()) {
        {
            ScopedLock hold(queueLock_);
            WMIConnectionFactory::ConnectionResponse response;
            while (factory_->pollResponse(response)) {
                response.consumer->connectionDone(std::move(response.services), response.status);
            }
            if (!scheduleQueue_.empty() &&
                !Timeval::now().isBefore(scheduleQueue_.begin()->first)) {
                WMIQueryHandler* due = scheduleQueue_.begin()->second;
                scheduleQueue_.erase(scheduleQueue_.begin());
                schedule(due, due->advance());
                continue;
            }
        }
        if (stopRequested_.load()) {
            break;
        }
        morvax::sleep(kPassMilliseconds);
    }
    factory_->stop();
}

Str WMIConnectionManager::dumpQueue() const {
    ScopedLock hold(queueLock_);
    Str out("PrioQ:\n");
    const Timeval now = Timeval::now();
    unsigned number = 0;
    for (const auto& [when, handler] : scheduleQueue_) {
        out.appendFormat("%4u %s %s\n", number++, now.isBefore(when) ? "  " : "**",
                         handler->describeState().c_str());
    }
    return out;
}

}  // namespace morvax
