#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "net/HostNames.h"

namespace morvax {

namespace {

// The four kinds from what the platform offers: gethostname for the host, the canonical name
// of getaddrinfo for the fully qualified name, and what follows its first dot for the domain.
class PosixComputerNameSource : public ComputerNameSource {
  public:
    bool name(ComputerNameKind kind, Str& out) override {
        char host[256] = {0};
        if (gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') {
            return false;
        }
        Str shortName(host);
        size_t dot = shortName.find('.');
        if (dot != Str::npos) {
            shortName.resize(dot);
        }
        switch (kind) {
            case COMPUTER_NAME_NETBIOS:
                // NetBIOS names have at most 15 characters.
                out = shortName;
                if (out.size() > 15) {
                    out.resize(15);
                }
                return true;
            case COMPUTER_NAME_DNS_HOSTNAME:
                out = shortName;
                return true;
            case COMPUTER_NAME_DNS_FULLY_QUALIFIED:
                out = fullyQualified(host);
                return true;
            case COMPUTER_NAME_DNS_DOMAIN: {
                Str full = fullyQualified(host);
                size_t at = full.find('.');
                if (at == Str::npos || at + 1 >= full.size()) {
                    return false;
                }
                out = Str(full.data() + at + 1, full.size() - at - 1);
                return true;
            }
        }
        return false;
    }

  private:
    static Str fullyQualified(const char* host) {
        addrinfo hints;
        std::memset(&hints, 0, sizeof hints);
        hints.ai_family = AF_UNSPEC;
        hints.ai_flags = AI_CANONNAME;
        addrinfo* result = nullptr;
        Str name(host);
        if (getaddrinfo(host, nullptr, &hints, &result) == 0 && result) {
            if (result->ai_canonname && result->ai_canonname[0]) {
                name = result->ai_canonname;
            }
            freeaddrinfo(result);
        }
        return name;
    }
};

}  // namespace

ComputerNameSource& ComputerNameSource::platform() {
    static PosixComputerNameSource source;
    return source;
}

}  // namespace morvax
