#pragma once

#include "util/base/Str.h"
#include "util/base/StrSegment.h"

namespace morvax {

// The server part of a namespace path such as "\\host2\root\cimv2", or the empty text when the
// path names the local machine ("\\.\...", "\\localhost\...", a relative path). The server keeps
// its case.
Str serverFromNamespace(StrSegment ns);

// Whether `name` is one of the loopback names: "localhost", "127.0.0.1" or an IPv6 loopback
// form, in any case.
bool isLocalHostName(StrSegment name);

}  // namespace morvax
