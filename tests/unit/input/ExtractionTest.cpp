#include "input/Extraction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "support/Environment.h"
#include "util/base/BaseException.h"
#include "util/thread/EmptyMainThread.h"

namespace morvax {
namespace {

// The simulated provider with the collector's world, whatever the build's default provider.
class ExtractionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        oldProvider_ = test::getEnvironment("MORVAX_WMI_PROVIDER");
        oldWorld_ = test::getEnvironment("MORVAX_WMI_SIM");
        const std::optional<std::string> fixtures = test::getEnvironment("MORVAX_TEST_FIXTURES");
        ASSERT_TRUE(fixtures.has_value());
        test::setEnvironment("MORVAX_WMI_PROVIDER", "sim");
        test::setEnvironment("MORVAX_WMI_SIM", (*fixtures + "/worlds/collector").c_str());
    }
    void TearDown() override {
        test::setEnvironment("MORVAX_WMI_PROVIDER", oldProvider_ ? oldProvider_->c_str() : nullptr);
        test::setEnvironment("MORVAX_WMI_SIM", oldWorld_ ? oldWorld_->c_str() : nullptr);
    }

    EmptyMainThread mainThread_;
    std::optional<std::string> oldProvider_;
    std::optional<std::string> oldWorld_;
};

TEST_F(ExtractionTest, ListsClassNamesPropertyNamesOrTheValuesOfOneProperty) {
    std::vector<Str> classes;
    EXPECT_TRUE(runExtraction("SELECT * FROM Win32_Disk", WStr(), classes, 0, "root\\cimv2"));
    EXPECT_EQ(classes, (std::vector<Str>{"Win32_Disk", "Win32_Disk"}));

    std::vector<Str> names;
    EXPECT_TRUE(runExtraction("SELECT * FROM Win32_Memory", WStr(), names, 1, "root\\cimv2"));
    EXPECT_EQ(names, (std::vector<Str>{"AvailableBytes", "Caption", "Comment"}));

    std::vector<Str> values;
    EXPECT_TRUE(runExtraction("SELECT * FROM Win32_Disk", u"Name", values, 2, "root\\cimv2"));
    EXPECT_EQ(values, (std::vector<Str>{"C:", "D:"}));

    std::vector<Str> remote;
    EXPECT_TRUE(runExtraction("SELECT Caption FROM Win32_Memory", u"Caption", remote, 2,
                              "\\\\host2\\root\\cimv2"));
    EXPECT_EQ(remote, (std::vector<Str>{"Remote"}));
}

TEST_F(ExtractionTest, AFailureEndsWithNothingListed) {
    std::vector<Str> list;
    EXPECT_FALSE(runExtraction("SELECT * FROM Win32_Memory", WStr(), list, 0, "root\\nosuch"));
    EXPECT_FALSE(runExtraction("SELECT * FROM NoSuchClass", WStr(), list, 0, "root\\cimv2"));
    EXPECT_TRUE(list.empty());
    EXPECT_THROW(runExtraction("", WStr(), list, 0, "root\\cimv2"), BaseException);
}

}  // namespace
}  // namespace morvax
