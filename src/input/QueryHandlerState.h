#pragma once

#include <cstdint>

namespace morvax {

// The state of a connection, moved by the handlers that use it. ERROR is named but never entered.
enum QueryHandlerState : uint32_t {
    READY = 0,
    READY_AFTER_ERROR = 1,
    CONNECTING = 2,
    CONNECTING_AFTER_ERROR = 3,
    CONNECTED = 4,
    QUERIED = 5,
    ERROR_STATE = 6,
};

// "READY" ... "ERROR", as a queue dump prints them.
const char* queryHandlerStateName(QueryHandlerState state);

}  // namespace morvax
