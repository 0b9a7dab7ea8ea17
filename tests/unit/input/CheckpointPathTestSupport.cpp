#include "unit/input/CheckpointPathTestSupport.h"

#include <atomic>
#include <chrono>

#include "conf/InstallationInfo.h"
#include "support/Environment.h"

namespace morvax::cmdlinetest {

using test::getEnvironment;
using test::setEnvironment;

namespace {
std::string utf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}
}  // namespace

ScopedDatabaseDirectory::ScopedDatabaseDirectory() : oldValue_(getEnvironment("MORVAX_DB")) {
    static std::atomic<unsigned> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    root_ = std::filesystem::temp_directory_path() /
            ("morvax-cmdline-" + std::to_string(stamp) + "-" + std::to_string(++counter));
    std::filesystem::create_directories(root_);
    setEnvironment("MORVAX_DB", utf8(root_).c_str());
    InstallationInfo::instance().readEnvironment();
}

ScopedDatabaseDirectory::~ScopedDatabaseDirectory() {
    setEnvironment("MORVAX_DB", oldValue_ ? oldValue_->c_str() : nullptr);
    InstallationInfo::instance().readEnvironment();
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

Pathname ScopedDatabaseDirectory::pathname(const std::string& relative) const {
    Pathname path = Pathname::absoluteClean(Str::toWide(StrSegment(utf8(root_))));
    size_t start = 0;
    while (start <= relative.size()) {
        size_t slash = relative.find('/', start);
        if (slash == std::string::npos) {
            slash = relative.size();
        }
        if (slash > start) {
            path = Pathname::join(path, StrSegment(relative.data() + start, slash - start));
        }
        start = slash + 1;
    }
    return path;
}

}  // namespace morvax::cmdlinetest
