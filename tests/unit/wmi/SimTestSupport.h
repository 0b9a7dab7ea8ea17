#pragma once

#include "support/LogCapture.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "util/log/Logger.h"
#include "util/thread/Mutex.h"
#include "wmi/Wmi.h"

namespace morvax::wmi::simtest {

using Objects = std::vector<std::shared_ptr<ClassObject>>;

std::u16string u(const std::string& utf8);
std::string utf8(const std::u16string& wide);

// <MORVAX_TEST_FIXTURES>/worlds/<name>
std::filesystem::path fixture(const std::string& name);

// A copy of a fixture world in a private temporary directory, for tests that change files.
class TempWorld {
  public:
    explicit TempWorld(const std::string& fixtureName);
    ~TempWorld();
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

void appendText(const std::filesystem::path& file, const std::string& text);
// Replaces the content at once (through a new file renamed over it), with a modification time
// that surely differs from the old one.
void rewriteFile(const std::filesystem::path& file, const std::string& text);

// Runs a data query to its end through next(0, 100).
HRESULT runQuery(Services& services, const std::string& wql, Objects& out);
// Polls next(0, 100) every 10 ms until at least `want` objects came or `limitMs` passed;
// returns the last status.
HRESULT pollUntil(Enumerator& enumerator, size_t want, Objects& out, int limitMs = 5000);

Variant get(ClassObject& object, const std::string& name);
std::string text(ClassObject& object, const std::string& name);
std::vector<std::string> names(ClassObject& object);

using test::LogCapture;

}  // namespace morvax::wmi::simtest
