#pragma once

#include <vector>

#include "util/base/Str.h"

namespace morvax {

// The kinds of name the platform gives for the local machine.
enum ComputerNameKind {
    COMPUTER_NAME_NETBIOS = 0,
    COMPUTER_NAME_DNS_HOSTNAME = 1,
    COMPUTER_NAME_DNS_DOMAIN = 2,
    COMPUTER_NAME_DNS_FULLY_QUALIFIED = 3,
};

// Where the local machine's names come from; the platform's by default.
class ComputerNameSource {
  public:
    virtual ~ComputerNameSource() = default;
    // False when the platform has no name of that kind (a machine outside a domain has no DNS
    // domain, say).
    virtual bool name(ComputerNameKind kind, Str& out) = 0;
    static ComputerNameSource& platform();
};

// Names under which the local machine is known, and two syntax tests on IPv6 texts.
class HostNames {
  public:
    // Empties `names` and fills it with "localhost", "127.0.0.1", "::1" and the machine's names,
    // lower case, sorted and without duplicates.
    static void getLocalNames(std::vector<Str>& names);
    static void getLocalNames(std::vector<Str>& names, ComputerNameSource& source);

    // True if `text` has the form of an IPv6 address (no name resolution).
    static bool isIPv6Address(const char* text);
    // True if the text is a form of the IPv6 loopback address, also the ".ipv6-literal.net"
    // form.
    static bool isIPv6Loopback(const char* text, size_t length);
};

}  // namespace morvax
