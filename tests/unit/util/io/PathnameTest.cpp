#include "util/io/Pathname.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/DiagnosticsCapture.h"
#include "util/base/LastError.h"

namespace morvax {
namespace {

namespace fs = std::filesystem;

bool hasDrives() {
    return Pathname::SEPARATOR == u'\\';
}

// Test paths are written with '/' and turned into the native form.
std::string native(std::string text) {
    std::replace(text.begin(), text.end(), '/', static_cast<char>(Pathname::SEPARATOR));
    return text;
}

Pathname fromText(const std::string& text) {
    return Pathname(StrSegment(text.data(), text.size()));
}

std::string str(const Pathname& path) {
    return path.toStr().toStdString();
}

std::string str(const WStr& wide) {
    return Str::fromWide(wide).toStdString();
}

std::string readAll(const Pathname& path) {
    FileHandle file = path.openForRead();
    std::string text;
    char buffer[256];
    int64_t got;
    while (file && (got = file.read(buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

bool writeFile(const Pathname& path, const std::string& text) {
    FileHandle file = path.openForWrite();
    return file && file.write(text.data(), text.size()) && file.close();
}

// Collects the reports of the "Pathname" channel while it lives.
class CapturedLog {
  public:
    std::vector<test::Diagnostic> lines() const { return capture_.entriesOf("Pathname"); }

  private:
    test::DiagnosticsCapture capture_;
};

// A fresh directory for each test, removed with everything in it afterwards.
class PathnameFsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::random_device random;
        std::string name = "pathname-test-" + std::to_string(random()) + std::to_string(random());
        dir_ = fs::temp_directory_path() / name;
        fs::create_directories(dir_);
        root_ = Pathname(dir_.u16string());
    }

    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    Pathname at(const char* relative) const {
        return Pathname::join(root_, native(relative).c_str());
    }

    fs::path dir_;
    Pathname root_;
};

TEST(PathnameTest, JoinFollowsTheAppendRule) {
    EXPECT_EQ(str(Pathname::join(fromText(native("/a/dir")), native("/file").c_str())),
              native("/a/dir/file"));
    EXPECT_EQ(str(Pathname::join(fromText(native("/a/")), "b")), native("/a/b"));
    EXPECT_EQ(str(Pathname::join(fromText(native("/a")), native("//b/c/").c_str())),
              native("/a/b/c/"));
    EXPECT_EQ(str(Pathname::join(fromText(native("/a")), "")), native("/a"));
    // Text is rooted as it is built, however many separators it starts with.
    EXPECT_EQ(str(Pathname("x")), native("/x"));
    EXPECT_EQ(str(fromText(native("///x"))), native("/x"));
    EXPECT_EQ(str(Pathname(u"x")), native("/x"));
    EXPECT_TRUE(Pathname("").empty());

    Pathname assigned;
    assigned = "y";
    EXPECT_EQ(str(assigned), native("/y"));
    assigned = WStr(u"z");
    EXPECT_EQ(str(assigned), native("/z"));

    // UTF-8 in, UTF-16 inside, the same UTF-8 out.
    Pathname accented = fromText(native("/caf\xC3\xA9"));
    EXPECT_EQ(accented.wide().back(), u'\u00E9');
    EXPECT_EQ(str(accented), native("/caf\xC3\xA9"));

    if (hasDrives()) {
        EXPECT_EQ(str(Pathname::join(Pathname("C:\\dir"), "\\file")), "C:\\dir\\file");
        EXPECT_EQ(str(Pathname("C:\\x")), "C:\\x");
        EXPECT_EQ(str(Pathname::join(Pathname("C:"), "x")), "C:\\x");
        EXPECT_EQ(str(Pathname::join(Pathname("c:\\"), u"x", 1)), "c:\\x");
    } else {
        EXPECT_EQ(str(Pathname("C:/x")), "/C:/x");
    }
}

TEST(PathnameTest, DirNameAndBaseName) {
    struct Row {
        const char* path;
        const char* dir;
        const char* base;
    };
    const Row rows[] = {
        {"/a/b/c", "/a/b", "c"}, {"/a/b//", "/a", "b"}, {"/a//b", "/a", "b"},
        {"/a", "/", "a"},        {"/", "/", ""},
    };
    for (const Row& row : rows) {
        Pathname path = fromText(native(row.path));
        EXPECT_EQ(str(path.dirName()), native(row.dir)) << row.path;
        EXPECT_EQ(str(path.baseName()), row.base) << row.path;
    }
    EXPECT_TRUE(Pathname().dirName().empty());
    EXPECT_TRUE(Pathname().baseName().empty());

    if (hasDrives()) {
        const Row driveRows[] = {
            {"C:\\dir\\f.txt", "C:\\dir", "f.txt"},
            {"C:\\dir", "C:\\", "dir"},
            {"C:\\", "C:\\", ""},
            {"C:", "C:\\", ""},
        };
        for (const Row& row : driveRows) {
            Pathname path(row.path);
            EXPECT_EQ(str(path.dirName()), row.dir) << row.path;
            EXPECT_EQ(str(path.baseName()), row.base) << row.path;
        }
    }
}

TEST(PathnameTest, AbsoluteCleanResolvesDotsAndSeparators) {
    auto clean = [](const std::string& text) {
        return str(Pathname::absoluteClean(Str::toWide(StrSegment(text.data(), text.size()))));
    };
    std::string root = hasDrives() ? "C:" : "";
    EXPECT_EQ(clean(root + native("/a/./b//c/../d/")), root + native("/a/b/d"));
    EXPECT_EQ(clean(root + native("/a/../../x")), root + native("/x"));
    EXPECT_EQ(clean(root + native("/..")), root + native("/"));
    EXPECT_EQ(clean(root + "/a/b"), root + native("/a/b"));
    EXPECT_EQ(clean(""), "");
    if (hasDrives()) {
        EXPECT_EQ(clean("\\\\server\\share\\..\\x\\"), "\\\\server\\share\\x");
    }
    // A relative path is taken against the current directory, not rooted by the append rule.
    Pathname current = Pathname::absoluteClean(fs::current_path().u16string());
    EXPECT_EQ(clean(native("rel/./x/..")), str(Pathname::join(current, "rel")));
}

TEST(PathnameTest, LongPathIsReportedOnceAboveTheLimit) {
    CapturedLog log;
    std::string exact = native("/") + std::string(Pathname::MAX_PATH_UNITS - 1, 'a');
    EXPECT_EQ(fromText(exact).length(), Pathname::MAX_PATH_UNITS);
    EXPECT_TRUE(log.lines().empty());

    std::string longer = exact + "b";
    Pathname built = fromText(longer);
    EXPECT_EQ(built.length(), Pathname::MAX_PATH_UNITS + 1);
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, LOG_WARN);
    const std::string head =
        "Pathname '" + longer + "' larger than MAX_PATH, callers:  call_sites=[";
    EXPECT_EQ(lines[0].text.substr(0, head.size()), head);
    EXPECT_EQ(lines[0].text.back(), ']');

    // Settings pass through paths too: an '=' before the first separator marks one.
    Pathname setting = fromText("key=" + std::string(300, 'v'));
    Pathname settingWithSlash = fromText("key=" + native("/") + std::string(300, 'v'));
    EXPECT_EQ(log.lines().size(), 1u);
    Pathname equalsLater = fromText(native("/dir/key=") + std::string(300, 'v'));
    EXPECT_EQ(log.lines().size(), 2u);
}

// A writer that builds a long path itself must not start a second report.
TEST(PathnameTest, LongPathReportDoesNotRecurse) {
    int count = 0;
    Pathname built;
    {
        test::DiagnosticsCapture capture([&](const test::Diagnostic& report) {
            ++count;
            Pathname again = fromText(native("/") + report.text);
            (void)again;
        });
        built = fromText(native("/") + std::string(400, 'x'));
    }
    EXPECT_EQ(count, 1);
    EXPECT_EQ(built.length(), 401u);
}

TEST_F(PathnameFsTest, ExistsRemoveFileAndOpen) {
    Pathname file = at("f.txt");
    EXPECT_EQ(file.exists(), Pathname::NOT_FOUND);
    EXPECT_FALSE(file.openForRead());

    ASSERT_TRUE(writeFile(file, "one"));
    EXPECT_EQ(file.exists(), Pathname::REGULAR_FILE);
    EXPECT_EQ(root_.exists(), Pathname::DIRECTORY);
    {
        FileHandle append = file.openForAppend();
        ASSERT_TRUE(append);
        EXPECT_TRUE(append.write(StrSegment("two")));
    }
    EXPECT_EQ(readAll(file), "onetwo");
    ASSERT_TRUE(writeFile(file, "3"));
    EXPECT_EQ(readAll(file), "3");

    EXPECT_TRUE(file.removeFile());
    EXPECT_EQ(file.exists(), Pathname::NOT_FOUND);
    EXPECT_FALSE(file.removeFile());
    // ENOENT and ERROR_FILE_NOT_FOUND are both 2.
    EXPECT_EQ(LastError::get(), 2u);

    if (!hasDrives()) {
        EXPECT_EQ(Pathname("/dev/null").exists(), Pathname::DEVICE);
    }
}

TEST_F(PathnameFsTest, MakeDirectoriesCreatesMissingLevels) {
    Pathname deep = at("a/b/c");
    EXPECT_TRUE(deep.makeDirectories());
    EXPECT_TRUE(deep.isDirectory());
    EXPECT_TRUE(deep.makeDirectories());

    // With "a" present, the two levels below it are created; trailing separators are fine.
    Pathname sibling = at("a/x/y/");
    EXPECT_TRUE(sibling.makeDirectories());
    EXPECT_TRUE(at("a/x/y").isDirectory());

    EXPECT_TRUE(fromText(native("/")).makeDirectories());
    EXPECT_TRUE(Pathname().makeDirectories());
    if (hasDrives()) {
        EXPECT_TRUE(Pathname("C:\\").makeDirectories());
    }

    // A file in the way fails, with the platform's error left for the caller.
    ASSERT_TRUE(writeFile(at("plain"), "x"));
    LastError::set(0);
    EXPECT_FALSE(at("plain/sub/dir").makeDirectories());
    EXPECT_NE(LastError::get(), 0u);
    EXPECT_FALSE(at("plain").makeDirectories());

    if (!hasDrives()) {
        Pathname restricted = at("private/inner");
        ASSERT_TRUE(restricted.makeDirectories(0700));
        auto permissions = fs::status(dir_ / "private" / "inner").permissions();
        EXPECT_EQ(permissions & (fs::perms::group_all | fs::perms::others_all), fs::perms::none);
    }
}

TEST_F(PathnameFsTest, ConcurrentCreatorsOfTheSameTreeBothSucceed) {
    for (int round = 0; round < 20; ++round) {
        Pathname deep = at(("r" + std::to_string(round) + "/1/2/3/4/5/6/7/8").c_str());
        std::atomic<int> ready{0};
        bool results[2] = {false, false};
        std::vector<std::thread> threads;
        for (int t = 0; t < 2; ++t) {
            threads.emplace_back([&, t] {
                ready.fetch_add(1);
                while (ready.load() < 2) {
                    std::this_thread::yield();
                }
                results[t] = deep.makeDirectories();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(results[0]) << round;
        EXPECT_TRUE(results[1]) << round;
        EXPECT_TRUE(deep.isDirectory());
    }
}

TEST_F(PathnameFsTest, ListDirectory) {
    ASSERT_TRUE(writeFile(at("one"), ""));
    ASSERT_TRUE(at("two").makeDirectories());
    std::vector<WStr> names;
    ASSERT_TRUE(root_.listDirectory(names));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<WStr>{u"one", u"two"}));

    names.clear();
    EXPECT_FALSE(at("missing").listDirectory(names));
    EXPECT_TRUE(names.empty());

    CapturedLog log;
    EXPECT_FALSE(Pathname().listDirectory(names));
    EXPECT_EQ(LastError::get(), hasDrives() ? 3u : 2u);
    EXPECT_TRUE(names.empty());
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, LOG_WARN);
    EXPECT_EQ(
        lines[0].text.rfind("Pathname empty being opened for listing, callers:  call_sites=[", 0),
        0u);
}

TEST_F(PathnameFsTest, RenameReplacesTheTarget) {
    Pathname source = at("source");
    Pathname target = at("target");
    ASSERT_TRUE(writeFile(source, "new"));
    ASSERT_TRUE(writeFile(target, "old"));
    EXPECT_EQ(source.rename(target), 0);
    EXPECT_EQ(readAll(target), "new");
    EXPECT_EQ(source.exists(), Pathname::NOT_FOUND);

    EXPECT_EQ(source.rename(target), -1);
    EXPECT_EQ(readAll(target), "new");

    // Directories move too.
    ASSERT_TRUE(at("d1/inner").makeDirectories());
    EXPECT_EQ(at("d1").rename(at("d2")), 0);
    EXPECT_TRUE(at("d2/inner").isDirectory());
}

// A reader that allows deletion does not stop the replacement, and keeps reading the old file.
TEST_F(PathnameFsTest, RenameReplacesATargetHeldOpenWithDeleteSharing) {
    Pathname source = at("source");
    Pathname target = at("target");
    ASSERT_TRUE(writeFile(source, "new"));
    ASSERT_TRUE(writeFile(target, "old"));
    FileHandle reader =
        target.openForRead(Pathname::SHARE_READ | Pathname::SHARE_WRITE | Pathname::SHARE_DELETE);
    ASSERT_TRUE(reader);
    int renamed = source.rename(target);
    if (renamed != 0 && hasDrives() && LastError::get() == 5) {
        // Systems without the POSIX-semantics rename (Wine 8, Windows before 10) deny this.
        GTEST_SKIP() << "rename over an open file is not supported here";
    }
    EXPECT_EQ(renamed, 0) << LastError::get();
    char buffer[8];
    EXPECT_EQ(reader.read(buffer, sizeof buffer), 3);
    EXPECT_EQ(std::string(buffer, 3), "old");
    reader.close();
    EXPECT_EQ(readAll(target), "new");
}

TEST_F(PathnameFsTest, RenameWithRetry) {
    Pathname source = at("source");
    Pathname target = at("target");
    ASSERT_TRUE(writeFile(source, "data"));
    RenameResult done = source.renameWithRetry(target, 5, 1, false);
    EXPECT_EQ(done.operation, "Rename");
    EXPECT_EQ(done.succeeded, 1);
    EXPECT_EQ(done.attempts, 1u);
    EXPECT_FALSE(done.firstAttempt.isZero());
    EXPECT_TRUE(done.firstAttempt.isNotAfter(done.lastAttempt));
    EXPECT_EQ(readAll(target), "data");

    // "Not found" is final: one attempt only.
    RenameResult missing = source.renameWithRetry(target, 5, 1, true);
    EXPECT_EQ(missing.succeeded, 0);
    EXPECT_EQ(missing.attempts, 1u);
    EXPECT_EQ(missing.lastError, 2u);
    RenameResult noDirectory = at("nodir/source").renameWithRetry(target, 5, 1, true);
    EXPECT_EQ(noDirectory.succeeded, 0);
    EXPECT_EQ(noDirectory.attempts, 1u);

    if (hasDrives()) {
        // A source held without delete sharing is a sharing violation, which is retried.
        ASSERT_TRUE(writeFile(source, "held"));
        FileHandle holder = source.openForRead(Pathname::SHARE_READ);
        ASSERT_TRUE(holder);
        RenameResult busy = source.renameWithRetry(target, 3, 1, false);
        EXPECT_EQ(busy.succeeded, 0);
        EXPECT_EQ(busy.attempts, 3u);
        EXPECT_EQ(busy.lastError, 32u);
        EXPECT_TRUE(busy.firstAttempt.isBefore(busy.lastAttempt));
    }
}

// Moving between file systems needs a second one; /dev/shm is one on Linux and, through the
// drive that maps the host's root, under Wine.
TEST_F(PathnameFsTest, RenameAcrossFileSystemsCopiesWhenAllowed) {
    Pathname other;
    for (const char* candidate : {"/dev/shm", "Z:\\dev\\shm"}) {
        Pathname path(candidate);
        if (path.isDirectory() && !path.inSameFilesystemAs(root_)) {
            other = path;
            break;
        }
    }
    if (other.empty()) {
        GTEST_SKIP() << "no second file system";
    }
    EXPECT_TRUE(at("").inSameFilesystemAs(root_));

    std::random_device random;
    Pathname source = Pathname::join(other, ("pathname-test-" + std::to_string(random())).c_str());
    Pathname target = at("target");
    ASSERT_TRUE(writeFile(source, "moved"));
    ASSERT_TRUE(writeFile(target, "old"));

    RenameResult refused = source.renameWithRetry(target, 5, 1, false);
    EXPECT_EQ(refused.succeeded, 0);
    EXPECT_EQ(refused.attempts, 1u);

    RenameResult copied = source.renameWithRetry(target, 5, 1, true);
    EXPECT_EQ(copied.succeeded, 1);
    EXPECT_EQ(readAll(target), "moved");
    EXPECT_EQ(source.exists(), Pathname::NOT_FOUND);
    source.removeFile();

    std::vector<WStr> names;
    ASSERT_TRUE(root_.listDirectory(names));
    EXPECT_EQ(names, std::vector<WStr>{u"target"});
}

TEST_F(PathnameFsTest, MakeTempSiblingCreatesAnEmptyFileBesideThePath) {
    Pathname conf = at("wmi.ini");
    Pathname first;
    Pathname second;
    ASSERT_EQ(conf.makeTempSibling(first), 1);
    ASSERT_EQ(conf.makeTempSibling(second), 1);
    EXPECT_FALSE(first == second);
    for (const Pathname& temp : {first, second}) {
        EXPECT_TRUE(temp.dirName() == root_);
        std::string name = str(temp.baseName());
        ASSERT_EQ(name.size(), 16u + 11u) << name;
        EXPECT_EQ(name.find_first_not_of("0123456789abcdef"), 16u) << name;
        EXPECT_EQ(name.substr(16), ".rename_tmp");
        EXPECT_EQ(temp.exists(), Pathname::REGULAR_FILE);
        EXPECT_EQ(readAll(temp), "");
    }
    EXPECT_EQ(at("missing/wmi.ini").makeTempSibling(first), 0);
}

TEST_F(PathnameFsTest, ResolveSymlink) {
    Pathname file = at("real");
    ASSERT_TRUE(writeFile(file, "x"));
    Pathname target;
    EXPECT_FALSE(file.resolveSymlink(target));

    CapturedLog log;
    EXPECT_FALSE(at("missing").resolveSymlink(target));
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(
        lines[0].text.rfind("Failed in open the symlink=" + str(at("missing")) + " error=", 0), 0u);

    std::error_code error;
    fs::create_symlink(dir_ / "real", dir_ / "link", error);
    if (error) {
        GTEST_SKIP() << "no symbolic links here: " << error.message();
    }
    ASSERT_TRUE(at("link").resolveSymlink(target));
    EXPECT_TRUE(target == Pathname(fs::canonical(dir_ / "real").u16string())) << str(target);
}

}  // namespace
}  // namespace morvax
