#pragma once

#include <memory>

namespace morvax {

// The access rule of a configuration source. Settings carry it from their metadata so that a
// server can decide who may read or write them; the collector never looks at it, so the rule
// itself stays opaque here and the reference is null throughout.
class ConfPathPermissions;

// Shared by every setting of one source.
using ConfPathPermissionsReference = std::shared_ptr<const ConfPathPermissions>;

}  // namespace morvax
