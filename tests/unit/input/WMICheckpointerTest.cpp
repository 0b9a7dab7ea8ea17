#include "input/WMICheckpointer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "conf/InstallationInfo.h"
#include "input/CheckpointPath.h"
#include "storage/PersistentStorage.h"
#include "unit/input/CheckpointPathTestSupport.h"
#include "unit/input/OutputTestSupport.h"

namespace morvax {
namespace {

namespace fs = std::filesystem;

class WMICheckpointerTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(getMorvaxWmiCheckpointPath(path_, "wmi")); }

    fs::path file() const { return database_.root() / "persistentstorage" / "wmi" / "wmi.ini"; }
    std::string content() const {
        std::ifstream in(file(), std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    std::string value(WMICheckpointer& checkpointer, const char* key) {
        Str out("stale");
        EXPECT_TRUE(checkpointer.get(Str(key), out));
        return out.toStdString();
    }

    cmdlinetest::ScopedDatabaseDirectory database_;
    Pathname path_;
    outputtest::LogLines log_;
};

TEST_F(WMICheckpointerTest, ANewFileIsWrittenWholeInKeyOrderAtIntervalsAndAtTheEnd) {
    {
        WMICheckpointer checkpointer;
        ASSERT_TRUE(checkpointer.init(3600000, path_));
        EXPECT_TRUE(fs::exists(file()));
        EXPECT_EQ(content(), "");
        EXPECT_TRUE(checkpointer.put(Str("\\\\host2\\root\\cimv2|1f2e3d4c"),
                                     Str("D 210 0 500 20261114102530.000000-000")));
        EXPECT_TRUE(checkpointer.put(Str(".|00000001"), Str("A 7 1 4294967295")));
        // Within the interval nothing is written yet.
        EXPECT_EQ(content(), "");
        EXPECT_EQ(value(checkpointer, ".|00000001"), "A 7 1 4294967295");
        EXPECT_EQ(value(checkpointer, "none"), "");
        EXPECT_TRUE(checkpointer.sync());
        EXPECT_EQ(content(),
                  ".|00000001=A 7 1 4294967295\n"
                  "\\\\host2\\root\\cimv2|1f2e3d4c=D 210 0 500 20261114102530.000000-000\n");
        checkpointer.put(Str(".|00000001"), Str("A 8 1 4294967295"));
    }
    EXPECT_EQ(content().substr(0, 28), ".|00000001=A 8 1 4294967295\n");
    // The directory holds the file alone: the write went through a renamed temporary file.
    EXPECT_EQ(std::distance(fs::directory_iterator(file().parent_path()), fs::directory_iterator()),
              1);

    // With no interval every put writes.
    WMICheckpointer again;
    ASSERT_TRUE(again.init(0, path_));
    EXPECT_EQ(value(again, ".|00000001"), "A 8 1 4294967295");
    again.put(Str("k"), Str("v"));
    EXPECT_NE(content().find("k=v\n"), std::string::npos);
}

TEST_F(WMICheckpointerTest, BadLinesAreSkippedAndTheLastLineOfAKeyWins) {
    std::ofstream(file(), std::ios::binary) << "a=1\nno separator\nb=x=y\na=2\n\nc=\n";
    WMICheckpointer checkpointer;
    ASSERT_TRUE(checkpointer.init(3600000, path_));
    EXPECT_EQ(value(checkpointer, "a"), "2");
    EXPECT_EQ(value(checkpointer, "b"), "");
    EXPECT_EQ(log_.of("WMI"),
              (std::vector<std::string>{
                  "WMI WARN WMICheckpointer::populateCacheFromFile: Invalid checkpoint record in "
                  "line: no separator",
                  "WMI WARN WMICheckpointer::populateCacheFromFile: Invalid checkpoint record in "
                  "line: b=x=y",
                  "WMI WARN WMICheckpointer::populateCacheFromFile: Invalid checkpoint record in "
                  "line: "}));
}

TEST_F(WMICheckpointerTest, TheOldStoreIsTakenOverOnceByPrintableFirstCharacters) {
    {
        PersistentStorage old(InstallationInfo::instance().dbPath(), "wmi_checkpoint");
        old.write(PersistentStorageKey{Str(".|0badf00d"), Str(), Str(), Str()}, Str("O 3 1 9"));
        old.write(PersistentStorageKey{Str("\x7f|left"), Str(), Str(), Str()}, Str("O 1 1 1"));
    }
    {
        WMICheckpointer checkpointer;
        ASSERT_TRUE(checkpointer.init(3600000, path_));
        EXPECT_EQ(content(), ".|0badf00d=O 3 1 9\n");
    }
    // Once the file exists the old store is not read again.
    fs::remove(database_.root() / "persistentstorage" / "wmi_checkpoint");
    WMICheckpointer later;
    ASSERT_TRUE(later.init(3600000, path_));
    EXPECT_EQ(value(later, ".|0badf00d"), "O 3 1 9");
}

TEST_F(WMICheckpointerTest, FailuresAreLoggedAndLoseNothing) {
    WMICheckpointer unnamed;
    EXPECT_FALSE(unnamed.init(0, Pathname()));
    EXPECT_EQ(log_.of("WMI"), std::vector<std::string>{"WMI ERROR WMICheckpointer::init: Unable "
                                                       "to open WMI checkpoint directory"});

    // A directory is not a checkpoint file on any system, and nothing is written beside it.
    WMICheckpointer directory;
    const Pathname parent = Pathname(file().parent_path().string().c_str());
    EXPECT_FALSE(directory.init(0, parent));
    EXPECT_EQ(log_.of("WMI").back().rfind("WMI ERROR WMICheckpointer::init: Unable to create "
                                          "checkpoint file='",
                                          0),
              0u);
    log_.clear();

    WMICheckpointer checkpointer;
    ASSERT_TRUE(checkpointer.init(3600000, path_));
    checkpointer.put(Str("k"), Str("v"));
    fs::remove_all(file().parent_path());
    EXPECT_FALSE(checkpointer.sync());
    EXPECT_EQ(log_.of("WMI").size(), 1u);
    fs::create_directories(file().parent_path());
    EXPECT_TRUE(checkpointer.sync());
    EXPECT_EQ(content(), "k=v\n");
}

}  // namespace
}  // namespace morvax
