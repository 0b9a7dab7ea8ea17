#include "input/CheckpointPath.h"

#include "conf/InstallationInfo.h"
#include "input/WMILogger.h"

namespace morvax {

bool getMorvaxWmiCheckpointPath(Pathname& path, StrSegment baseName) {
    Pathname directory = Pathname::join(
        Pathname::join(InstallationInfo::instance().dbPath(), "persistentstorage"), "wmi");
    // Made before the attempt, so that nothing runs between the failure and the report of %m.
    const Str directoryText = directory.toStr();
    if (!directory.makeDirectories()) {
        wmiLogger().error("%s: Failed to create AD Monitor check point directory: '%s': '%m'",
                          "getMorvaxWmiCheckpointPath", directoryText.c_str());
        return false;
    }
    Str fileName(baseName);
    fileName.append(".ini");
    const Pathname file = Pathname::join(directory, fileName);
    path.append(file.c_str(), file.length());
    return true;
}

}  // namespace morvax
