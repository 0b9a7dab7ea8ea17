#include "util/crash/CrashLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TextSink.h"
#include "util/crash/CrashLogSink.h"
#include "util/log/Logger.h"

namespace morvax {
namespace {

namespace fs = std::filesystem;

// Records what reaches the file, with a clock the test moves.
class FakeTarget : public CrashLogSink::Target {
  public:
    void write(const char* bytes, size_t length) override { text.append(bytes, length); }
    uint64_t nowMs() override { return clockMs; }
    void exitProcess(int status) override { exitStatus = status; }

    std::string text;
    uint64_t clockMs = 1000;
    int exitStatus = -1;
};

std::string nativePath(std::string text) {
    std::replace(text.begin(), text.end(), '/', static_cast<char>(Pathname::SEPARATOR));
    return text;
}

Pathname pathOf(const std::string& text) {
    return Pathname(StrSegment(text.data(), text.size()));
}

std::string utf8(const fs::path& path) {
    std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

fs::path fromUtf8(const std::string& text) {
    return fs::path(std::u8string(text.begin(), text.end()));
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(CrashLogSinkTest, SingleWriteLimit) {
    FakeTarget target;
    CrashLogSink sink(target);
    std::string exact(CrashLogSink::MAX_SINGLE_WRITE, 'a');
    sink.write(exact.data(), exact.size());
    EXPECT_EQ(target.text.size(), exact.size());
    std::string over(CrashLogSink::MAX_SINGLE_WRITE + 1, 'b');
    sink.write(over.data(), over.size());
    EXPECT_EQ(target.text.substr(exact.size()),
              "Crash log write attempted over the limit of (50kB), skipping.\r\n");
}

TEST(CrashLogSinkTest, TotalLimitTruncatesOnce) {
    FakeTarget target;
    CrashLogSink sink(target);
    std::string block(40000, 'x');
    // 13 blocks are 520000 bytes, below 0x80000 = 524288; the 14th would pass it.
    for (int i = 0; i < 13; ++i) {
        sink.write(block.data(), block.size());
    }
    EXPECT_FALSE(sink.overflowed());
    std::string last(0x80000 - 520000, 'y');
    sink.write(last.data(), last.size());
    EXPECT_TRUE(sink.overflowed());
    sink.write("more", 4);
    EXPECT_EQ(target.text.size(),
              520000 + std::string("Crash log has overflowed the allowed limit (512kB), "
                                   "truncated.\r\n")
                           .size());
    EXPECT_EQ(target.text.substr(520000),
              "Crash log has overflowed the allowed limit (512kB), truncated.\r\n");
    EXPECT_EQ(target.exitStatus, -1);
}

TEST(CrashLogSinkTest, WritesAfterTheCutEndTheProcessWhenTheyGoOnTooLong) {
    const std::string looping =
        "Crash log writes still attempted after 3 seconds, maybe something is looping?\r\n";
    std::string block(CrashLogSink::MAX_SINGLE_WRITE, 'z');
    // Within 3 seconds of the cut, passing 2 MiB of discarded writes is tolerated; later than
    // that, or on a clock that went back, the next multiple of 2 MiB ends it.
    const int64_t limit = static_cast<int64_t>(CrashLogSink::LOOP_LIMIT_MS);
    const std::pair<int64_t, bool> cases[] = {{limit, false}, {limit + 1, true}, {-1, true}};
    for (const auto& [elapsedMs, ends] : cases) {
        SCOPED_TRACE(elapsedMs);
        FakeTarget target;
        CrashLogSink sink(target);
        while (!sink.overflowed()) {
            sink.write(block.data(), block.size());
        }
        target.text.clear();
        target.clockMs = static_cast<uint64_t>(static_cast<int64_t>(target.clockMs) + elapsedMs);
        uint64_t sent = 0;
        while (target.exitStatus == -1 && sent < 3 * CrashLogSink::LOOP_CHECK_BYTES) {
            sink.write(block.data(), block.size());
            sent += block.size();
        }
        EXPECT_EQ(target.text, ends ? looping : "");
        EXPECT_EQ(target.exitStatus, ends ? 87 : -1);
        if (ends) {
            EXPECT_GE(sent, CrashLogSink::LOOP_CHECK_BYTES);
            EXPECT_LT(sent, CrashLogSink::LOOP_CHECK_BYTES + block.size());
        }
    }
}

TEST(CrashLogTest, ExceptionLines) {
    struct Case {
        uint32_t code;
        std::vector<uint64_t> parameters;
        uint32_t flags;
        const char* expected;
    };
    const Case cases[] = {
        {0xC0000005,
         {1, 0},
         0,
         " Access violation, cannot write at address [0x0000000000000000]\r\n"},
        {0xC0000005,
         {0, 0xDEADBEEF},
         0,
         " Access violation, cannot read at address [0x00000000DEADBEEF]\r\n"},
        {0xC0000005,
         {8, 0x10},
         0,
         " Access violation, cannot execute at address [0x0000000000000010]\r\n"},
        {0xC0000005,
         {3, 0x10},
         0,
         " Access violation, cannot ??? at address [0x0000000000000010]\r\n"},
        {0xC0000006,
         {0, 0x2000, 0xC000000E},
         0,
         " Cannot page in memory for read at address [0x0000000000002000], "
         "NTSTATUS=-1073741810\r\n"},
        {0xC0000094, {}, 0, " Integer Divide by Zero\r\n"},
        {0xC0000025,
         {},
         1,
         " Attempt to Contintue from a Non-continuable Exception\r\n Exception is "
         "Non-continuable\r\n"},
        {0xC0000096, {}, 0, " Invalid use of Privledged Instruction\r\n"},
        {0xEEAB5254, {}, 0, " SIGABRT\r\n"},
        {0x12345678, {}, 0, " Exception Cause Code: 0x12345678\r\n"},
        {0xE06D7363,
         {0x19930520, 0x1000, 0x2000},
         0,
         " C++ exception: object [0x0000000000001000], type [0x0000000000002000]\r\n"},
        {0xE06D7363,
         {7, 0x1000, 0x2000},
         0,
         " C++ exception: object [0x0000000000001000], type [0x0000000000002000]\r\n"
         " NOTE: exception had unexpected frame magic ([0x0000000000000007])\r\n"},
    };
    for (const Case& c : cases) {
        CrashException e;
        e.code = c.code;
        e.flags = c.flags;
        e.address = 0x401000;
        e.parameterCount = static_cast<uint32_t>(c.parameters.size());
        std::copy(c.parameters.begin(), c.parameters.end(), e.parameters);
        test::TextSink sink;
        CrashLog::writeException(sink, e);
        EXPECT_EQ(sink.text,
                  std::string(c.expected) + " Exception address: [0x0000000000401000]\r\n")
            << std::hex << c.code;
    }

    CrashException inner;
    inner.code = 0xC00000FD;
    inner.address = 2;
    CrashException outer;
    outer.code = 0x80000003;
    outer.address = 1;
    outer.next = &inner;
    test::TextSink sink;
    CrashLog::writeException(sink, outer);
    EXPECT_EQ(sink.text,
              " Breakpoint\r\n Exception address: [0x0000000000000001]\r\n"
              " Next chained exception:\r\n"
              " Stack Overflow\r\n Exception address: [0x0000000000000002]\r\n");
}

TEST(CrashLogTest, QuotedData) {
    test::TextSink escaped;
    const char data[] = "a\"b\\c\n\r\t\x01\x7f\xff~ ";
    CrashLog::writeQuoted(escaped, data, sizeof data - 1);
    EXPECT_EQ(escaped.text, "\"a\\\"b\\\\c\\n\\r\\t\\x01\\x7F\\xFF~ \"");

    std::string whole(240, 'w');
    test::TextSink exact;
    CrashLog::writeQuoted(exact, whole.data(), whole.size());
    EXPECT_EQ(exact.text, "\"" + whole + "\"");

    std::string longer(241, 'l');
    test::TextSink cut;
    CrashLog::writeQuoted(cut, longer.data(), longer.size());
    EXPECT_EQ(cut.text, "\"" + std::string(75, 'l') + "\"...[166 more bytes]");
}

TEST(CrashLogTest, BytesOfInterest) {
    unsigned char bytes[18];
    for (unsigned i = 0; i < sizeof bytes; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 15);
    }
    test::TextSink sink;
    CrashLog::writeBytesOfInterest(sink, "buffer", bytes, sizeof bytes);
    char address[32];
    std::snprintf(address, sizeof address, "%llx",
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(bytes)));
    EXPECT_EQ(sink.text, std::string("First 18 bytes of buffer @0x") + address +
                             ":\r\n"
                             "  00000000: 00 0F 1E 2D 3C 4B 5A 69 78 87 96 A5 B4 C3 D2 E1\r\n"
                             "  00000010: F0 FF\r\n");
}

TEST(CrashLogTest, FilesOfInterest) {
    fs::path dir = fs::temp_directory_path() / "morvax-crashlog-files";
    fs::remove_all(dir);
    fs::create_directories(dir);
    fs::path file = dir / "notes.txt";
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += "line " + std::to_string(i) + "\n";
    }
    std::ofstream(file, std::ios::binary) << lines;
    WStr path = file.u16string();

    test::TextSink whole;
    CrashLog::writeFileOfInterest(whole, path.c_str(), false);
    EXPECT_EQ(whole.text, "-------------------- FILE CONTENTS OF \"" + utf8(file) + "\"\r\n" +
                              lines + "--------------------\r\n\r\n");

    test::TextSink tail;
    CrashLog::writeFileOfInterest(tail, path.c_str(), true);
    std::string heading = "-------------------- LAST FEW LINE OF FILE \"" + utf8(file) + "\"\r\n";
    ASSERT_EQ(tail.text.rfind(heading, 0), 0u);
    std::string body = tail.text.substr(heading.size());
    std::string closing = "--------------------\r\n\r\n";
    ASSERT_GE(body.size(), closing.size());
    EXPECT_EQ(body.substr(body.size() - closing.size()), closing);
    body.resize(body.size() - closing.size());
    // Whole lines from the end, no more than the tail's size.
    EXPECT_LE(body.size(), 4096u);
    EXPECT_GT(body.size(), 4000u);
    EXPECT_EQ(lines.substr(lines.size() - body.size()), body);
    EXPECT_EQ(lines[lines.size() - body.size() - 1], '\n');

    test::TextSink missing;
    WStr missingPath = (dir / "missing.txt").u16string();
    CrashLog::writeFileOfInterest(missing, missingPath.c_str(), false);
    EXPECT_EQ(missing.text.rfind("-------------------- FILE CONTENTS OF \"", 0), 0u);
    EXPECT_NE(missing.text.find("\"\r\n*** ERROR OPENING FILE: [windows error #"),
              std::string::npos)
        << missing.text;
    EXPECT_EQ(missing.text.substr(missing.text.size() - closing.size()), closing);
    fs::remove_all(dir);
}

TEST(CrashLogTest, ReportName) {
    std::tm local = {};
    local.tm_year = 2024 - 1900;
    local.tm_mon = 2;
    local.tm_mday = 7;
    local.tm_hour = 9;
    local.tm_min = 5;
    local.tm_sec = 3;
    char16_t out[CrashLog::NAME_UNITS];
    size_t length =
        CrashLog::formatReportName(out, CrashLog::NAME_UNITS, u"D/", u"C:\\a.b/x", local);
    EXPECT_EQ(WStr(out), u"D/C__a_b_x_crash-2024-03-07-09-05-03.log");
    EXPECT_EQ(length, WStr(out).size());

    // An executable path that does not fit is left out, its '_' with it.
    WStr tooLong(CrashLog::EXECUTABLE_UNITS, u'e');
    CrashLog::formatReportName(out, CrashLog::NAME_UNITS, u"D/", tooLong.c_str(), local);
    EXPECT_EQ(WStr(out), u"D/crash-2024-03-07-09-05-03.log");
    WStr fits(CrashLog::EXECUTABLE_UNITS - 1, u'e');
    CrashLog::formatReportName(out, CrashLog::NAME_UNITS, u"", fits.c_str(), local);
    EXPECT_EQ(WStr(out), fits + u"_crash-2024-03-07-09-05-03.log");

    // A name that does not fit the buffer is no name.
    char16_t small[20];
    EXPECT_EQ(CrashLog::formatReportName(small, 20, u"D/", u"x", local), 0u);
}

TEST(CrashLogTest, ConfigureChoosesTheTarget) {
    CrashLog::configure(Pathname());
    EXPECT_EQ(CrashLog::mode(), CrashLog::MODE_STDERR);

    Pathname directory = pathOf(nativePath("/var/log/morvax"));
    CrashLog::configure(directory);
    EXPECT_EQ(CrashLog::mode(), CrashLog::MODE_FILE);
    EXPECT_EQ(WStr(CrashLog::prefix()), directory.wide() + Pathname::SEPARATOR);

    // The long path's own report is not what this test is about.
    class Quiet : public LogWriter {
      public:
        void write(const Logger&, int32_t, StrSegment) override {}
    } quiet;
    LogWriter* previous = Logger::setWriter(&quiet);
    std::string longName(CrashLog::PREFIX_UNITS, 'p');
    Pathname tooLong = pathOf(nativePath("/") + longName);
    ::testing::internal::CaptureStderr();
    CrashLog::configure(tooLong);
    std::string error = ::testing::internal::GetCapturedStderr();
    Logger::setWriter(previous);
    EXPECT_EQ(error, "Prefix too long: \"" + tooLong.toStr().toStdString() + "\"\n");
    EXPECT_EQ(CrashLog::mode(), CrashLog::MODE_STDERR);
    EXPECT_EQ(WStr(CrashLog::prefix()), u"");
}

TEST(CrashLogTest, InvalidParameterText) {
    EXPECT_EQ(CrashLog::invalidParameterText(u"p != 0", u"fwrite", u"file.c", 42),
              "Expression='p != 0' Function='fwrite' File='file.c'  Line='42'");
    EXPECT_EQ(CrashLog::invalidParameterText(nullptr, u"fwrite", nullptr, 0),
              "Function='fwrite'  Line='0'");
    EXPECT_EQ(CrashLog::invalidParameterText(nullptr, nullptr, nullptr, 7), " Line='7'");
}

// A child process crashes on purpose and the test reads its report.
class CrashLogChildTest : public ::testing::TestWithParam<const char*> {};

size_t findInOrder(const std::string& text, const std::string& needle, size_t from) {
    size_t at = text.find(needle, from);
    EXPECT_NE(at, std::string::npos) << "missing after " << from << ": " << needle;
    return at == std::string::npos ? from : at;
}

TEST_P(CrashLogChildTest, WritesTheReport) {
    std::string how = GetParam();
    fs::path dir = fs::temp_directory_path() / ("morvax-crash-child-" + how);
    fs::remove_all(dir);
    fs::create_directories(dir);
    std::string program = test::testProgramPath("crash_child");
    ASSERT_TRUE(fs::exists(fromUtf8(program))) << program;

    // One case is enough for the memory dump, which takes long where it exists.
    bool dump = how == "segv";
    std::vector<std::string> arguments = {utf8(dir), how};
    if (!dump) {
        arguments.push_back("nodump");
    }
    int status = test::runProgram(program, arguments);
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 3) << "the child did not crash";

    std::vector<fs::path> reports;
    std::vector<fs::path> dumps;
    for (const auto& entry : fs::directory_iterator(dir)) {
        if (entry.path().extension() == ".log") {
            reports.push_back(entry.path());
        } else if (entry.path().extension() == ".dmp") {
            dumps.push_back(entry.path());
        }
    }
    ASSERT_EQ(reports.size(), 1u) << "status " << status;

    // The name: the executable's path made one name, then the local time.
    std::string name = utf8(reports[0].filename());
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(
        name, parts,
        std::regex("(.+)_crash-(\\d{4})-(\\d\\d)-(\\d\\d)-(\\d\\d)-(\\d\\d)-(\\d\\d)\\.log")))
        << name;
    std::string mangledExecutable = parts[1];
    EXPECT_EQ(mangledExecutable.find_first_of(".:/\\"), std::string::npos) << name;
    std::string base = utf8(fromUtf8(program).filename());
    std::replace(base.begin(), base.end(), '.', '_');
    ASSERT_GT(mangledExecutable.size(), base.size());
    EXPECT_EQ(mangledExecutable.substr(mangledExecutable.size() - base.size() - 1), "_" + base);

    std::string report = readFile(reports[0]);
    std::string header = "[build test-build] " + parts[2].str() + "-" + parts[3].str() + "-" +
                         parts[4].str() + " " + parts[5].str() + ":" + parts[6].str() + ":" +
                         parts[7].str() + "\r\n";
    EXPECT_EQ(report.rfind(header, 0), 0u) << report.substr(0, 200);

    std::string exceptionLine;
    if (how == "segv" || how == "thread") {
        exceptionLine = " Access violation, cannot write at address [0x0000000000000000]\r\n";
    } else if (how == "divide") {
        exceptionLine = " Integer Divide by Zero\r\n";
    } else {
        exceptionLine = " SIGABRT\r\n";
    }
    size_t at = findInOrder(report, "\r\nExecutable module base address: 0x", 0);
    at = findInOrder(report, "\r\n" + exceptionLine + " Exception address: [0x", at);
    std::string crashing = how == "thread" ? "crashworker" : "Main Thread";
    at = findInOrder(report, " Crashing thread: " + crashing + "\r\n    ", at);
    at = findInOrder(report, "    Rip:  [0x", at);
    at = findInOrder(report, "\r\n OS: ", at);
    at = findInOrder(report, "\r\n Arch: x86-64\r\n\r\n Backtrace:\r\n", at);
    at = findInOrder(report, "\r\nMorvax ran as ", at);
    at = findInOrder(report, "\r\nGetLastError(): ", at);
    at = findInOrder(report, "\r\nThreads running: 1\r\nRuntime: ", at);
    if (how == "throw") {
        at = findInOrder(report,
                         "\r\nUnhandled exception: std::runtime_error\r\n"
                         " what(): thrown on purpose\r\n",
                         at);
    }
    size_t threads = findInOrder(report, "\r\nThread: \"", at);
    findInOrder(report, "crash_child is about to crash on purpose\r\n", threads);
    findInOrder(report, "Thread: \"crashworker\"", threads);
    findInOrder(report, "worker waits for the crash\r\n", threads);
    at = findInOrder(report, "\r\n\r\nx86 CPUID registers:\r\n         0: ", threads);
    EXPECT_EQ(report.find("this notation is gone before the crash"), std::string::npos);
    // Windows writes a dump beside the report and names it there; Linux has no dump function.
    bool windows = report.find("\r\n OS: Windows\r\n") != std::string::npos;
    if (dump && windows) {
        ASSERT_EQ(dumps.size(), 1u);
        fs::path expectedDump = reports[0];
        expectedDump.replace_extension(".dmp");
        EXPECT_EQ(dumps[0], expectedDump);
        EXPECT_NE(report.find(" Backtrace:\r\n"), std::string::npos);
        EXPECT_NE(
            report.find(" Crash dump written to: " + utf8(expectedDump) + "\r\nMorvax ran as "),
            std::string::npos);
    } else {
        EXPECT_TRUE(dumps.empty());
        EXPECT_EQ(report.find("Crash dump written to"), std::string::npos);
    }
    const std::string end = "terminating...\r\n";
    ASSERT_GE(report.size(), end.size());
    EXPECT_EQ(report.substr(report.size() - end.size()), end);

    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

TEST(CrashLogChildStderrTest, WithoutDirectoryTheReportGoesToStandardError) {
    fs::path dir = fs::temp_directory_path() / "morvax-crash-child-stderr";
    fs::remove_all(dir);
    fs::create_directories(dir);
    fs::path errors = dir / "stderr.txt";
    int status =
        test::runProgram(test::testProgramPath("crash_child"), {"", "abort"}, {"", utf8(errors)});
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 3) << "the child did not crash";
    std::string text = readFile(errors);
    size_t start = text.find("[build test-build] ");
    ASSERT_NE(start, std::string::npos) << text;
    size_t end = text.find("terminating...\r\n", start);
    ASSERT_NE(end, std::string::npos) << text;
    std::string report = text.substr(start, end - start);
    EXPECT_NE(report.find("\r\n SIGABRT\r\n"), std::string::npos);
    EXPECT_NE(report.find("crash_child is about to crash on purpose\r\n"), std::string::npos);
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

INSTANTIATE_TEST_SUITE_P(Crashes, CrashLogChildTest,
                         ::testing::Values("segv", "divide", "abort", "throw", "thread"));

// The report's time comes from the zone taken at install, not from the zone functions inside
// the crash handler (which may read files and allocate): a zone changed before the crash does
// not move it.
TEST(CrashLogZoneTest, TheReportKeepsTheZoneOfTheInstall) {
    fs::path dir = fs::temp_directory_path() / "morvax-crash-child-rezone";
    fs::remove_all(dir);
    fs::create_directories(dir);
    auto localStamp = [] {
        std::time_t now = std::time(nullptr);
        char text[32];
        std::strftime(text, sizeof text, "%Y-%m-%d-%H-%M-%S", std::localtime(&now));
        return std::string(text);
    };
    const std::string before = localStamp();
    EXPECT_NE(
        test::runProgram(test::testProgramPath("crash_child"), {utf8(dir), "rezone", "nodump"}), 0);
    const std::string after = localStamp();
    std::vector<std::string> stamps;
    for (const auto& entry : fs::directory_iterator(dir)) {
        std::string name = utf8(entry.path().filename());
        size_t at = name.find("_crash-");
        if (at != std::string::npos && entry.path().extension() == ".log") {
            stamps.push_back(name.substr(at + 7, 19));
        }
    }
    ASSERT_EQ(stamps.size(), 1u);
    EXPECT_LE(before, stamps[0]);
    EXPECT_LE(stamps[0], after);
    fs::remove_all(dir);
}

}  // namespace
}  // namespace morvax
