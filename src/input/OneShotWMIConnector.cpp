#include "input/OneShotWMIConnector.h"

#include "input/WMIConnection.h"
#include "input/WMIConnectionFactory.h"

namespace morvax {

void OneShotWMIConnector::requestConnection(IWMIConnectionConsumer* consumer) {
    factory_.request(consumer);
    WMIConnectionFactory::ConnectionResponse response;
    // Looks every 100 ms, and at once when the attempt ends in between.
    while (!factory_.waitResponse(response, POLL_MILLISECONDS)) {
    }
    connection_.connectionDone(std::move(response.services), response.status);
}

}  // namespace morvax
