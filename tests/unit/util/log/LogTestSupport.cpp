#include "unit/util/log/LogTestSupport.h"

#include <fstream>
#include <sstream>

namespace morvax::test {

namespace fs = std::filesystem;

namespace {

fs::path toPath(const std::string& utf8) {
    return fs::path(std::u8string(reinterpret_cast<const char8_t*>(utf8.data()), utf8.size()));
}

}  // namespace

TempDirectory::TempDirectory(const std::string& name)
    : root_(fs::temp_directory_path() / ("morvax-log-" + name)) {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
    fs::create_directories(root_);
    text_ = Pathname::absoluteClean(
                Str(reinterpret_cast<const char*>(root_.u8string().c_str())).toWide())
                .toStr()
                .toStdString();
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

std::string TempDirectory::path(const std::string& relative) const {
    std::string native = relative;
    std::replace(native.begin(), native.end(), '/', static_cast<char>(Pathname::SEPARATOR));
    return text_ + static_cast<char>(Pathname::SEPARATOR) + native;
}

Pathname TempDirectory::pathname(const std::string& relative) const {
    std::string text = path(relative);
    return Pathname(StrSegment(text.data(), text.size()));
}

std::string readFile(const std::string& path) {
    std::ifstream in(toPath(path), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(toPath(path), std::ios::binary | std::ios::trunc);
    out << text;
}

void writeFileMakingDirectories(const std::string& path, const std::string& text) {
    fs::create_directories(toPath(path).parent_path());
    writeFile(path, text);
}

bool fileExists(const std::string& path) {
    std::error_code ignored;
    return fs::exists(toPath(path), ignored);
}

StandardErrorCapture::StandardErrorCapture(const std::string& path) : path_(path) {
    writeFile(path_, "");
    redirect();
    active_ = true;
}

StandardErrorCapture::~StandardErrorCapture() {
    if (active_) {
        restore();
    }
}

void makeDirectories(const std::string& path) {
    fs::create_directories(toPath(path));
}

std::string StandardErrorCapture::finish() {
    if (active_) {
        restore();
        active_ = false;
    }
    return readFile(path_);
}

}  // namespace morvax::test
