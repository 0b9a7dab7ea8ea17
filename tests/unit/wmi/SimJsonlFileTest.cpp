#include "wmi/sim/SimJsonlFile.h"

#include <gtest/gtest.h>

#include <random>

#include "unit/wmi/SimTestSupport.h"

namespace morvax::wmi {
namespace {

using namespace simtest;
namespace fs = std::filesystem;

class SimJsonlFileTest : public ::testing::Test {
  protected:
    SimJsonlFileTest()
        : path_(fs::temp_directory_path() /
                ("morvax-sim-jsonl-" + std::to_string(std::random_device()()) + ".jsonl")),
          file_(path_) {}
    ~SimJsonlFileTest() override {
        std::error_code ec;
        fs::remove(path_, ec);
    }

    // "number:text" of every line of the current generation.
    std::vector<std::string> lines() {
        const uint64_t generation = file_.refresh();
        std::vector<SimJsonlFile::Line> lines;
        EXPECT_TRUE(file_.linesFrom(generation, 0, lines));
        std::vector<std::string> out;
        for (const auto& line : lines) {
            out.push_back(std::to_string(line.number) + ":" + line.text.toStdString());
        }
        return out;
    }

    fs::path path_;
    SimJsonlFile file_;
};

using Lines = std::vector<std::string>;

TEST_F(SimJsonlFileTest, TakesWholeLinesAsTheyArrive) {
    EXPECT_EQ(lines(), Lines{});  // no file yet: an empty log
    appendText(path_, "\xEF\xBB\xBF{\"a\": 1}\r\n\n  \n{\"b\"");
    EXPECT_EQ(lines(), (Lines{"1:{\"a\": 1}"}));
    appendText(path_, ": 2}\n");
    EXPECT_EQ(lines(), (Lines{"1:{\"a\": 1}", "4:{\"b\": 2}"}));

    uint64_t generation = 0;
    size_t count = 0;
    file_.position(generation, count);
    EXPECT_EQ(count, 2u);
    appendText(path_, "{\"c\": 3}\n");
    file_.refresh();
    std::vector<SimJsonlFile::Line> added;
    ASSERT_TRUE(file_.linesFrom(generation, count, added));
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(added[0].number, 5u);
}

TEST_F(SimJsonlFileTest, ARewriteOrATruncationStartsANewGeneration) {
    appendText(path_, "{\"n\": 1}\n{\"n\": 2}\n");
    const uint64_t first = file_.refresh();
    EXPECT_EQ(lines().size(), 2u);

    // Same length, other bytes.
    rewriteFile(path_, "{\"n\": 3}\n{\"n\": 4}\n");
    const uint64_t second = file_.refresh();
    EXPECT_NE(second, first);
    std::vector<SimJsonlFile::Line> stale;
    EXPECT_FALSE(file_.linesFrom(first, 0, stale));
    EXPECT_EQ(lines(), (Lines{"1:{\"n\": 3}", "2:{\"n\": 4}"}));

    rewriteFile(path_, "{\"n\": 5}\n");
    EXPECT_EQ(lines(), (Lines{"1:{\"n\": 5}"}));
    fs::remove(path_);
    EXPECT_EQ(lines(), Lines{});
    EXPECT_NE(file_.refresh(), second);
}

}  // namespace
}  // namespace morvax::wmi
