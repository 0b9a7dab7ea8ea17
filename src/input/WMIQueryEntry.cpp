#include "input/WMIQueryEntry.h"

namespace morvax {

bool WMIQueryEntry::sameQuery(const WMIQueryEntry& other) const {
    return type == other.type && namespace_ == other.namespace_ && parameter == other.parameter &&
           intervalMilliseconds == other.intervalMilliseconds && name == other.name &&
           notification == other.notification && index == other.index &&
           disableHostnameNormalization == other.disableHostnameNormalization;
}

}  // namespace morvax
