#include "wmi/sim/SimReport.h"

#include "util/log/Logger.h"

namespace morvax::wmi {

namespace {

Logger& logger() {
    static Logger instance("WMISim");
    return instance;
}

}  // namespace

Str SimReport::displayName(const std::filesystem::path& file) {
    const std::u16string wide = file.u16string();
    return Str::fromWide(wide);
}

void SimReport::atLine(const std::filesystem::path& file, uint32_t line, StrSegment what) {
    Str text = displayName(file);
    text.appendFormat(":%u: ", line);
    text.append(what);
    logger().error(text.segment());
}

void SimReport::inFile(const std::filesystem::path& file, StrSegment what) {
    Str text = displayName(file);
    text.append(": ");
    text.append(what);
    logger().error(text.segment());
}

}  // namespace morvax::wmi
