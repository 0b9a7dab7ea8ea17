#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <system_error>

#include "util/base/StrSegment.h"
#include "util/io/FileStarOpen.h"

namespace morvax::test {

inline std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) {
        out.push_back(static_cast<char>(v));
    }
    return out;
}

inline StrSegment segment(const std::string& s) {
    return StrSegment(s.data(), s.size());
}

// A file name of its own in the temporary directory, removed when the object goes.
class TempFile {
  public:
    TempFile() {
        static std::atomic<unsigned> counter{0};
        auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        path_ = std::filesystem::temp_directory_path() /
                ("morvax_stream_test_" + std::to_string(stamp) + "_" +
                 std::to_string(counter.fetch_add(1)) + ".txt");
    }
    ~TempFile() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::filesystem::path& path() const { return path_; }

    FILE* open(const char* mode) const { return openFileStar(path_.u16string().c_str(), mode); }

    void write(const std::string& content) const {
        FILE* f = open("w");
        ASSERT_NE(f, nullptr);
        ASSERT_EQ(std::fwrite(content.data(), 1, content.size(), f), content.size());
        ASSERT_EQ(std::fclose(f), 0);
    }

    std::string read() const {
        std::string content;
        FILE* f = open("r");
        if (!f) {
            ADD_FAILURE() << "cannot open " << path_.string();
            return content;
        }
        char buffer[1024];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) {
            content.append(buffer, n);
        }
        std::fclose(f);
        return content;
    }

  private:
    std::filesystem::path path_;
};

}  // namespace morvax::test
