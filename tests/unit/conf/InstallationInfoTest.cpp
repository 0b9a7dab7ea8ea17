#include "conf/InstallationInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/Environment.h"

namespace morvax {
namespace {

namespace fs = std::filesystem;
using test::getEnvironment;
using test::ScopedEnvironment;

const char* const kVariables[] = {"MORVAX_HOME",       "LD_LIBRARY_PATH", "MORVAX_DB",
                                  "MORVAX_ETC",        "OPENSSL_CONF",    "OPENSSL_MODULES",
                                  "MORVAX_SERVER_NAME"};

std::string native(std::string text) {
    std::replace(text.begin(), text.end(), '/', static_cast<char>(Pathname::SEPARATOR));
    return text;
}

std::string str(const Pathname& path) {
    return path.toStr().toStdString();
}

// Every variable the object reads starts out unset; the old values come back afterwards.
class InstallationInfoTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : kVariables) {
            saved_.emplace_back(std::make_unique<ScopedEnvironment>(name, nullptr));
        }
        root_ = fs::temp_directory_path() /
                ("morvax-installation-" +
                 std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(root_);
        fs::create_directories(root_);
        // The clean form of the temporary directory itself, so expectations can be joined to it.
        rootText_ = str(Pathname::absoluteClean(
            Str(reinterpret_cast<const char*>(root_.u8string().c_str())).toWide()));
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
        while (!saved_.empty()) {
            saved_.pop_back();
        }
    }

    std::string under(const std::string& relative) const { return rootText_ + native(relative); }

    std::vector<std::unique_ptr<ScopedEnvironment>> saved_;
    fs::path root_;
    std::string rootText_;
};

TEST_F(InstallationInfoTest, StartValuesAndServerName) {
    InstallationInfo plain;
    EXPECT_EQ(plain.componentName(), "morvaxd");
    EXPECT_EQ(plain.instanceDirectory(), "myinstall");
    EXPECT_EQ(plain.managementPort(), 8089u);
    EXPECT_EQ(plain.flag(0), 0);
    EXPECT_EQ(plain.flag(1), 1);
    EXPECT_EQ(plain.runContext(), 5);
    EXPECT_TRUE(plain.home().empty());
    EXPECT_TRUE(plain.dbPath().empty());
    EXPECT_TRUE(plain.noPython());
    EXPECT_EQ(plain.serverName(), u"Morvaxd");

    ScopedEnvironment name("MORVAX_SERVER_NAME", "collector-7");
    InstallationInfo named;
    EXPECT_EQ(named.serverName(), u"collector-7");
}

TEST_F(InstallationInfoTest, PathsBecomeAbsoluteAndCleanInFieldAndEnvironment) {
    ScopedEnvironment home("MORVAX_HOME", (rootText_ + native("/a/./x/../b//")).c_str());
    ScopedEnvironment conf("OPENSSL_CONF", (rootText_ + "/ssl.cnf").c_str());
    InstallationInfo info;
    info.readEnvironment();
    EXPECT_EQ(str(info.home()), under("/a/b"));
    EXPECT_EQ(getEnvironment("MORVAX_HOME"), under("/a/b"));
    // Written with '/', which Windows takes as a separator too; the clean form is native.
    EXPECT_EQ(str(info.opensslConf()), under("/ssl.cnf"));
    EXPECT_EQ(getEnvironment("OPENSSL_CONF"), under("/ssl.cnf"));

    // A relative value is taken against the current directory.
    fs::path oldCurrent = fs::current_path();
    fs::current_path(root_);
    ScopedEnvironment modules("OPENSSL_MODULES", native("mods/./ossl/").c_str());
    info.readEnvironment();
    fs::current_path(oldCurrent);
    EXPECT_EQ(str(info.opensslModules()), under("/mods/ossl"));

    // Variables that go away leave their fields alone.
    test::setEnvironment("MORVAX_HOME", nullptr);
    info.readEnvironment();
    EXPECT_EQ(str(info.home()), under("/a/b"));
}

TEST_F(InstallationInfoTest, DatabaseDefaultsBelowHomeUntilTheEnvironmentNamesOne) {
    ScopedEnvironment home("MORVAX_HOME", (rootText_ + native("/h1")).c_str());
    InstallationInfo info;
    info.readEnvironment();
    EXPECT_EQ(str(info.dbPath()), under("/h1/var/lib/morvax"));
    EXPECT_EQ(str(info.logDirectory()), under("/h1/var/log/morvax"));
    EXPECT_EQ(str(info.runDirectory()), under("/h1/var/run/morvax"));
    // The default is ours, not the environment's.
    EXPECT_FALSE(getEnvironment("MORVAX_DB").has_value());

    // A moved home moves the default too.
    test::setEnvironment("MORVAX_HOME", (rootText_ + native("/h2")).c_str());
    info.readEnvironment();
    EXPECT_EQ(str(info.dbPath()), under("/h2/var/lib/morvax"));

    test::setEnvironment("MORVAX_DB", (rootText_ + native("/db")).c_str());
    info.readEnvironment();
    EXPECT_EQ(str(info.dbPath()), under("/db"));
    test::setEnvironment("MORVAX_DB", nullptr);
    info.readEnvironment();
    EXPECT_EQ(str(info.dbPath()), under("/db"));
}

TEST_F(InstallationInfoTest, EtcPathFollowsMorvaxEtc) {
    ScopedEnvironment home("MORVAX_HOME", rootText_.c_str());
    InstallationInfo info;
    info.readEnvironment();
    EXPECT_EQ(str(info.etcPath()), under("/etc"));
    EXPECT_TRUE(info.configuredEtcPath().empty());

    ScopedEnvironment etc("MORVAX_ETC", (rootText_ + native("/conf/../moved/")).c_str());
    info.readEnvironment();
    EXPECT_EQ(str(info.etcPath()), under("/moved"));
}

TEST_F(InstallationInfoTest, NoPythonUnlessBothInterpreterFilesExist) {
    ScopedEnvironment home("MORVAX_HOME", rootText_.c_str());
    InstallationInfo info;
    fs::create_directories(root_ / "bin");
    std::ofstream(root_ / "bin" / "Python3.13.exe") << "x";
    info.readEnvironment();
    EXPECT_TRUE(info.noPython());

    fs::create_directories(root_ / "Python-3.13" / "Lib" / "site-packages");
    info.readEnvironment();
    EXPECT_FALSE(info.noPython());
}

TEST_F(InstallationInfoTest, ExpandVariables) {
    InstallationInfo info;
    ScopedEnvironment home("MORVAX_HOME", "H");
    ScopedEnvironment value("MORVAX_TEST_VALUE", "v$MORVAX_HOME");
    struct Case {
        const char* text;
        const char* expected;
    };
    const Case withoutEtc[] = {
        {"plain text", "plain text"},
        {"$MORVAX_HOME/bin", "H/bin"},
        {"a${MORVAX_HOME}", "a${MORVAX_HOME}"},
        {"$MORVAX_HOME-x", "H-x"},
        // The rewrite applies even when MORVAX_ETC is unset; the name then stays as written.
        {"$MORVAX_HOME/etc/x", "$MORVAX_ETC/x"},
        {"$MORVAX_HOME\\etc", "$MORVAX_ETC"},
        {"$MORVAX_HOME/etcetera", "H/etcetera"},
        {"$MORVAX_HOME/et", "H/et"},
        {"$NO_SUCH_MORVAX_VARIABLE/y", "$NO_SUCH_MORVAX_VARIABLE/y"},
        {"$", "$"},
        {"a$", "a$"},
        {"$$", "$$"},
        {"$$MORVAX_HOME", "$H"},
        {"$/x", "$/x"},
        // Replaced text is not scanned again.
        {"$MORVAX_TEST_VALUE", "v$MORVAX_HOME"},
    };
    for (const Case& c : withoutEtc) {
        EXPECT_EQ(info.expandVariables(c.text), c.expected) << c.text;
    }

    ScopedEnvironment etc("MORVAX_ETC", "E");
    const Case withEtc[] = {
        {"$MORVAX_HOME/etc/x", "E/x"},
        {"$MORVAX_HOME\\etc\\x", "E\\x"},
        {"$MORVAX_HOME/etc", "E"},
        {"$MORVAX_HOME/etcetera", "H/etcetera"},
        {"x$MORVAX_HOME/etc/$MORVAX_HOME", "xE/H"},
    };
    for (const Case& c : withEtc) {
        EXPECT_EQ(info.expandVariables(c.text), c.expected) << c.text;
    }
}

bool exitedWithMinusOne(int status) {
    // The shell sees 255 on Linux; Windows keeps the whole value.
    return ::testing::ExitedWithCode(255)(status) || ::testing::ExitedWithCode(-1)(status);
}

TEST_F(InstallationInfoTest, MissingHomeStopsTheProcess) {
    InstallationInfo info;
    info.readEnvironment();
    EXPECT_EXIT(info.requireHome(), exitedWithMinusOne, "^MORVAX_HOME must be set\\.  Stopping\\.");

    ScopedEnvironment home("MORVAX_HOME", rootText_.c_str());
    info.readEnvironment();
    EXPECT_TRUE(info.requireHome());
}

}  // namespace
}  // namespace morvax
