#include "input/QueryHandlerState.h"

namespace morvax {

const char* queryHandlerStateName(QueryHandlerState state) {
    static const char* const names[] = {
        "READY",     "READY_AFTER_ERROR", "CONNECTING", "CONNECTING_AFTER_ERROR",
        "CONNECTED", "QUERIED",           "ERROR"};
    return state <= ERROR_STATE ? names[state] : "UNKNOWN";
}

}  // namespace morvax
