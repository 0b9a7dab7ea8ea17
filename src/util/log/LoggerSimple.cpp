#include "util/log/LoggerSimple.h"

namespace morvax {

LoggerSimple::LoggerSimple(const char* name) : Logger(name) {}

LoggerSimple::~LoggerSimple() = default;

bool LoggerSimple::escapesMessages() const {
    return false;
}

bool LoggerSimple::truncatesMessages() const {
    return false;
}

}  // namespace morvax
