#pragma once

#include "util/base/BaseException.h"

namespace morvax {

// Reads of configuration that cannot be served. A legacy read raises none of them.
class PropertyPagesException : public BaseException {
  public:
    using BaseException::BaseException;
};

// "<type>: Invalid configuration context: <reason>"
class PropertyPagesContextException : public PropertyPagesException {
  public:
    PropertyPagesContextException(const Str& type, const char* reason)
        : PropertyPagesException(type + ": Invalid configuration context: " + reason) {}
};

// "Application is disabled: <name>"
class PropertyPagesDisabledAppException : public PropertyPagesException {
  public:
    explicit PropertyPagesDisabledAppException(const Str& app)
        : PropertyPagesException(Str("Application is disabled: ") + app) {}
};

// "User '<name>' could not act as: <other>"
class PropertyPagesImpersonationException : public PropertyPagesException {
  public:
    PropertyPagesImpersonationException(const Str& user, const Str& other)
        : PropertyPagesException(Str("User '") + user + "' could not act as: " + other) {}
};

}  // namespace morvax
