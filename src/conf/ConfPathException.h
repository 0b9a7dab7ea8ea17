#pragma once

#include "util/base/BaseException.h"
#include "util/base/Str.h"

namespace morvax {

// The failures of conf paths: each text is followed by the path. The read path raises none of
// them for a missing file; the write-side ones exist for the callers that write.
class ConfPathException : public BaseException {
  public:
    ConfPathException(const char* text, StrSegment path);
};

#define MORVAX_CONF_PATH_EXCEPTION(Name, Base, Text)                  \
    class Name : public Base {                                        \
      public:                                                         \
        explicit Name(StrSegment path) : Base(Text, path) {}          \
                                                                      \
      protected:                                                      \
        Name(const char* text, StrSegment path) : Base(text, path) {} \
    };

MORVAX_CONF_PATH_EXCEPTION(ConfPathAlreadyExistsException, ConfPathException, "Already exists: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathDoesNotExistException, ConfPathException, "Does not exist: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathHasNoDataException, ConfPathException, "Has no data: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathHasNoMetadataException, ConfPathException, "Has no metadata: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathWriteException, ConfPathException, "")
MORVAX_CONF_PATH_EXCEPTION(ConfPathWriteDataException, ConfPathWriteException,
                           "Data could not be written: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathWriteMetadataException, ConfPathWriteException,
                           "Metadata could not be written: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathFlushException, ConfPathWriteException,
                           "Could not flush changes to disk: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathHasNoWriter, ConfPathException, "No write path found: ")
MORVAX_CONF_PATH_EXCEPTION(ConfPathPermissionDeniedException, ConfPathException,
                           "Permission denied: ")

#undef MORVAX_CONF_PATH_EXCEPTION

// "Directory traversal risk in <path> at segment "<segment>"".
class ConfPathDirectoryTraversalException : public ConfPathException {
  public:
    ConfPathDirectoryTraversalException(StrSegment path, StrSegment segment);
};

}  // namespace morvax
