#include "input/WMIQueryHandler.h"

#include "input/IWMIConnector.h"
#include "input/WMIConnection.h"
#include "input/WMILogger.h"
#include "util/time/Sleep.h"
#include "util/time/TimeDifference.h"

namespace morvax {

WMIQueryHandler::WMIQueryHandler(WMIConnection* connection,
                                 std::unique_ptr<IQueryHandlerSchedulePolicy> policy,
                                 std::unique_ptr<WMIQueryProcessor> processor,
                                 IWMIConnector* connector)
    : connection_(connection),
      policy_(std::move(policy)),
      processor_(std::move(processor)),
      connector_(connector) {}

WMIQueryHandler::~WMIQueryHandler() = default;

Timeval WMIQueryHandler::advance() {
    WMIConnection& c = *connection_;
    switch (c.state()) {
        case READY:
        case READY_AFTER_ERROR:
            c.setState(c.state() == READY ? CONNECTING : CONNECTING_AFTER_ERROR);
            c.clearAnswer();
            connector_->requestConnection(connection_);
            return policy_->onWaitForConn();

        case CONNECTING:
            if (!c.hasAnswer()) {
                return policy_->onWaitForConn();
            }
            return onAnswer();

        case CONNECTING_AFTER_ERROR:
            if (!c.hasAnswer()) {
                return policy_->onError();
            }
            return onAnswer();

        case CONNECTED: {
            const wmi::HRESULT hr = c.executeQuery(*processor_);
            c.setStatus(hr);
            if (wmi::failed(hr)) {
                c.setState(READY_AFTER_ERROR);
                return errorPath();
            }
            c.setState(QUERIED);
            return policy_->onWaitForQuery();
        }

        case QUERIED: {
            const int result = c.readResults(*processor_);
            if (result > 0) {
                c.setState(CONNECTED);
                c.releaseEnumerator();
                return policy_->onDataReceived();
            }
            if (result == 0) {
                return policy_->onBusy();
            }
            c.setState(READY_AFTER_ERROR);
            c.releaseEnumerator();
            return errorPath();
        }

        case ERROR_STATE:
            break;
    }
    return policy_->onError();
}

Timeval WMIQueryHandler::onAnswer() {
    WMIConnection& c = *connection_;
    c.setStatus(c.connectStatus());
    if (!wmi::failed(c.connectStatus())) {
        c.setState(CONNECTED);
        return policy_->onConnected();
    }
    c.setState(READY_AFTER_ERROR);
    return errorPath();
}

Timeval WMIQueryHandler::errorPath() {
    const Timeval next = policy_->onError();
    const Str description = processor_->describe();
    if (next.isMax()) {
        wmiLogger().error(
            "Giving up attempt to connect to WMI provider after maximum number of retries at "
            "maximum backoff time (%s)",
            description.c_str());
    } else {
        Str text("Will retry connection to WMI provider after ");
        TimeDifference(next, Timeval::now()).appendTo(text);
        text.append(" (").append(description).append(")");
        wmiLogger().info(text.segment());
    }
    return next;
}

Str WMIQueryHandler::describeState() const {
    Str text;
    text.appendFormat("%-12s %s", queryHandlerStateName(connection_->state()),
                      processor_ ? processor_->describe().c_str() : "NONE");
    return text;
}

void WMIQueryHandler::advanceUntilDone(const std::atomic<bool>* stopRequested) {
    while (stopRequested == nullptr || !stopRequested->load()) {
        const Timeval next = advance();
        if (next.isMax()) {
            return;
        }
        const Timeval now = Timeval::now();
        if (now.isBefore(next)) {
            morvax::sleep(Timeval::differenceMs(next, now));
        }
    }
}

}  // namespace morvax
