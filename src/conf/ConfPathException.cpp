#include "conf/ConfPathException.h"

namespace morvax {

ConfPathException::ConfPathException(const char* text, StrSegment path)
    : BaseException(Str(text) + path) {}

ConfPathDirectoryTraversalException::ConfPathDirectoryTraversalException(StrSegment path,
                                                                         StrSegment segment)
    : ConfPathException("Directory traversal risk in ",
                        (Str(path) + " at segment \"" + segment + "\"").segment()) {}

}  // namespace morvax
