#include "unit/wmi/SimTestSupport.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include "support/WaitUntil.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"
#include "util/thread/ScopedLock.h"

namespace morvax::wmi::simtest {

namespace fs = std::filesystem;

std::u16string u(const std::string& text) {
    return Str::toWide(StrSegment(text.data(), text.size()));
}

std::string utf8(const std::u16string& wide) {
    return Str::fromWide(wide).toStdString();
}

fs::path fixture(const std::string& name) {
    const char* root = std::getenv("MORVAX_TEST_FIXTURES");
    return fs::path(root ? root : "tests/fixtures") / "worlds" / name;
}

TempWorld::TempWorld(const std::string& fixtureName) {
    std::random_device random;
    path_ =
        fs::temp_directory_path() / ("morvax-sim-" + fixtureName + "-" + std::to_string(random()));
    fs::create_directories(path_);
    fs::copy(fixture(fixtureName), path_, fs::copy_options::recursive);
}

TempWorld::~TempWorld() {
    std::error_code ec;
    fs::remove_all(path_, ec);
}

void appendText(const fs::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary | std::ios::app);
    out << text;
}

void rewriteFile(const fs::path& file, const std::string& text) {
    std::error_code ec;
    const auto before = fs::last_write_time(file, ec);
    const fs::path temporary = file.string() + ".new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << text;
    }
    if (!ec) {
        fs::last_write_time(temporary, before + std::chrono::seconds(2), ec);
    }
    // A reader never sees half a file. The provider may hold the old one open for a moment.
    const Pathname from(temporary.u16string()), to(file.u16string());
    test::waitUntil([&] { return from.rename(to) == 0; }, 5000);
}

HRESULT runQuery(Services& services, const std::string& wql, Objects& out) {
    std::unique_ptr<Enumerator> enumerator;
    HRESULT hr = services.execQuery(u(wql), enumerator);
    if (failed(hr)) {
        return hr;
    }
    for (int guard = 0; guard < 100000; ++guard) {
        hr = enumerator->next(0, 100, out);
        if (hr != WBEM_S_NO_ERROR) {
            return hr;
        }
    }
    return hr;
}

HRESULT pollUntil(Enumerator& enumerator, size_t want, Objects& out, int limitMs) {
    HRESULT hr = WBEM_S_TIMEDOUT;
    test::waitUntil(
        [&] {
            hr = enumerator.next(0, 100, out);
            return failed(hr) || out.size() >= want;
        },
        static_cast<uint32_t>(limitMs));
    return hr;
}

Variant get(ClassObject& object, const std::string& name) {
    Variant v;
    if (failed(object.get(u(name), v))) {
        v.vt = VT_EMPTY;
    }
    return v;
}

std::string text(ClassObject& object, const std::string& name) {
    Variant v = get(object, name);
    if (v.vt == VT_NULL) {
        return "<null>";
    }
    if (v.vt != VT_BSTR && failed(changeType(v, v, VT_BSTR))) {
        return "<" + std::to_string(v.vt) + ">";
    }
    return utf8(v.str);
}

std::vector<std::string> names(ClassObject& object) {
    std::vector<std::u16string> wide;
    object.getNames(wide);
    std::vector<std::string> out;
    for (const auto& name : wide) {
        out.push_back(utf8(name));
    }
    return out;
}

}  // namespace morvax::wmi::simtest
