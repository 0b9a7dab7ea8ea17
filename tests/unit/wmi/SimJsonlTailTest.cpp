#include "wmi/sim/SimJsonlTail.h"

#include <gtest/gtest.h>

#include <random>

#include "unit/wmi/SimTestSupport.h"

namespace morvax::wmi {
namespace {

using namespace simtest;
namespace fs = std::filesystem;

// "number:text" of each line handed over since the last restart, and how many restarts came.
class Collected final : public SimJsonlTail::Sink {
  public:
    void restart() override {
        ++restarts;
        lines.clear();
    }
    void line(uint32_t number, StrSegment text) override {
        lines.push_back(std::to_string(number) + ":" + std::string(text.view()));
    }

    int restarts = 0;
    std::vector<std::string> lines;
};

// Line n of a test file: a JSON object of about 500 bytes.
std::string record(int n) {
    return "{\"n\": " + std::to_string(n) + ", \"pad\": \"" + std::string(480, 'x') + "\"}";
}

class SimJsonlTailTest : public ::testing::Test {
  protected:
    SimJsonlTailTest()
        : path_(fs::temp_directory_path() /
                ("morvax-sim-tail-" + std::to_string(std::random_device()()) + ".jsonl")),
          tail_(path_) {}
    ~SimJsonlTailTest() override {
        std::error_code ec;
        fs::remove(path_, ec);
    }

    // Lines first to last, each with its LF.
    static std::string records(int first, int last) {
        std::string text;
        for (int n = first; n <= last; ++n) {
            text += record(n) + "\n";
        }
        return text;
    }

    fs::path path_;
    SimJsonlTail tail_;
    Collected sink_;
};

TEST_F(SimJsonlTailTest, AnAppendIsReadAloneAndATornLineWaitsForItsEnd) {
    // Over 1 MiB, so that lines straddle the reads the first refresh makes.
    appendText(path_, records(1, 3000));
    const uint64_t generation = tail_.refresh(sink_);
    ASSERT_EQ(sink_.lines.size(), 3000u);
    for (int n = 1; n <= 3000; ++n) {
        ASSERT_EQ(sink_.lines[n - 1], std::to_string(n) + ":" + record(n));
    }

    sink_.lines.clear();
    const uint64_t before = tail_.bytesRead();
    const std::string appended = records(3001, 3001) + "{\"n\": 3002";
    appendText(path_, appended);
    EXPECT_EQ(tail_.refresh(sink_), generation);
    EXPECT_EQ(sink_.lines, std::vector<std::string>{"3001:" + record(3001)});
    // The new bytes and the fingerprint of the old ones (first 4 KiB, end of the last line).
    EXPECT_LE(tail_.bytesRead() - before, appended.size() + 2 * 4096);

    appendText(path_, "}\r\n");
    EXPECT_EQ(tail_.refresh(sink_), generation);
    EXPECT_EQ(sink_.lines,
              (std::vector<std::string>{"3001:" + record(3001), "3002:{\"n\": 3002}"}));
    EXPECT_EQ(sink_.restarts, 0);
}

TEST_F(SimJsonlTailTest, ARewriteBeyondTheFirstBytesStartsANewGeneration) {
    appendText(path_, records(1, 20));
    const uint64_t first = tail_.refresh(sink_);
    // The same start and the same length, another last line: a cleared log written again.
    std::string rewritten = records(1, 19) + record(20) + "\n";
    rewritten[rewritten.size() - 4] = 'y';
    rewriteFile(path_, rewritten);
    EXPECT_NE(tail_.refresh(sink_), first);
    EXPECT_EQ(sink_.restarts, 1);
    ASSERT_EQ(sink_.lines.size(), 20u);
    EXPECT_EQ(sink_.lines.back().substr(sink_.lines.back().size() - 3), "y\"}");

    // Shorter, with the same start.
    rewriteFile(path_, records(1, 10));
    tail_.refresh(sink_);
    EXPECT_EQ(sink_.restarts, 2);
    EXPECT_EQ(sink_.lines.size(), 10u);
}

TEST_F(SimJsonlTailTest, AnOverlongLineIsReportedAndSkipped) {
    LogCapture log;
    const std::string overlong = "{\"pad\": \"" + std::string(SimJsonlTail::kMaxLineBytes, 'x');
    appendText(path_, overlong);
    tail_.refresh(sink_);
    EXPECT_FALSE(log.contains("longer than"));  // not a line until its LF comes

    appendText(path_, "\"}\n{\"n\": 2}\n");
    tail_.refresh(sink_);
    EXPECT_TRUE(log.contains(":1: longer than 1048576 bytes; line skipped"))
        << ::testing::PrintToString(log.texts());
    EXPECT_EQ(sink_.lines, std::vector<std::string>{"2:{\"n\": 2}"});

    // The refused line still counts as taken: an append is not mistaken for a rewrite.
    appendText(path_, "{\"n\": 3}\n");
    tail_.refresh(sink_);
    EXPECT_EQ(sink_.restarts, 0);
    EXPECT_EQ(sink_.lines, (std::vector<std::string>{"2:{\"n\": 2}", "3:{\"n\": 3}"}));
}

}  // namespace
}  // namespace morvax::wmi
