#include "input/CheckpointPath.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/input/CheckpointPathTestSupport.h"
#include "unit/input/OutputTestSupport.h"
#include "util/base/LastError.h"

namespace morvax {
namespace {

TEST(CheckpointPathTest, CreatesTheDirectoryWithItsParents) {
    cmdlinetest::ScopedDatabaseDirectory database;
    const Pathname directory = database.pathname("persistentstorage/wmi");
    ASSERT_FALSE(database.pathname("persistentstorage").isDirectory());

    Pathname path;
    outputtest::LogLines writer;
    ASSERT_TRUE(getMorvaxWmiCheckpointPath(path, "wmi"));
    EXPECT_TRUE(directory.isDirectory());
    EXPECT_EQ(path.wide(), directory.wide() + Pathname::SEPARATOR + u"wmi.ini");
    // An existing directory is fine too.
    Pathname again;
    ASSERT_TRUE(getMorvaxWmiCheckpointPath(again, "wmitst"));
    EXPECT_EQ(again.toStr(), database.pathname("persistentstorage/wmi/wmitst.ini").toStr());
    EXPECT_TRUE(writer.formatted().empty());
}

TEST(CheckpointPathTest, FailureLogsTheDirectoryAndLeavesThePath) {
    cmdlinetest::ScopedDatabaseDirectory database;
    Pathname blocker = database.pathname("persistentstorage");
    ASSERT_TRUE(blocker.openForWrite().isValid());

    Pathname path("keep");
    const WStr before = path.wide();
    outputtest::LogLines writer;
    EXPECT_FALSE(getMorvaxWmiCheckpointPath(path, "wmi"));
    const uint32_t error = LastError::get();
    EXPECT_NE(error, 0u);
    EXPECT_EQ(path.wide(), before);

    Str expected;
    expected.appendFormatError(
        error,
        "WMI ERROR getMorvaxWmiCheckpointPath: Failed to create AD Monitor check point "
        "directory: '%s': '%m'",
        database.pathname("persistentstorage/wmi").toStr().c_str());
    ASSERT_EQ(writer.formatted().size(), 1u);
    EXPECT_EQ(writer.formatted()[0], expected.c_str());
}

}  // namespace
}  // namespace morvax
