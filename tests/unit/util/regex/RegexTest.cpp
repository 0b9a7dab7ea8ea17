#include "util/regex/Regex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/LogCapture.h"
#include "support/TextSink.h"
#include "util/log/Logger.h"
#include "util/regex/CrashlogAnnotateRegexCompile.h"
#include "util/regex/RegexCache.h"
#include "util/regex/RegexException.h"
#include "util/regex/RegexSettings.h"

namespace morvax {
namespace {

// The process's first compile logs the JIT state; keep that out of every capture.
struct JitSettled {
    JitSettled() { RegexSettings::process(); }
};
struct LogCapture : JitSettled, test::LogCapture {};

std::string str(StrSegment segment) {
    return std::string(segment.view());
}

// Every test of matching runs with the process's JIT choice and without JIT.
class RegexMatchTest : public ::testing::TestWithParam<uint64_t> {
  protected:
    Regex make(const char* pattern) const { return Regex(pattern, GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(RegexEngines, RegexMatchTest, ::testing::Values(0, Regex::OPTION_NO_JIT),
                         [](const ::testing::TestParamInfo<uint64_t>& info) {
                             return info.param == 0 ? "ProcessJit" : "NoJit";
                         });

TEST_P(RegexMatchTest, FullMatchBacktracksIntoAlternativesAndSearchDoesNot) {
    Regex regex = make("a|ab");
    RegexMatch result;
    ASSERT_TRUE(regex.search("ab", &result));
    EXPECT_EQ(str(result.group(0)), "a");
    ASSERT_TRUE(regex.fullMatch("ab", &result));
    EXPECT_EQ(str(result.group(0)), "ab");
    EXPECT_FALSE(regex.fullMatch("abc"));
    EXPECT_FALSE(regex.fullMatch("b"));

    // From a resume position, the full match covers the rest of the subject.
    size_t resume = 1;
    EXPECT_TRUE(make("b|bc").search("abc", 3, &resume, nullptr, nullptr, Regex::MODE_FULL));
    EXPECT_EQ(resume, 3u);

    // A pattern that cannot be wrapped (a start-of-pattern setting) falls back on anchoring the
    // search form, with the same result.
    Regex unwrapped = make("(*LIMIT_MATCH=1000)a|ab");
    EXPECT_FALSE(unwrapped.record().hasFullForm());
    EXPECT_TRUE(unwrapped.fullMatch("ab", &result));
    EXPECT_EQ(str(result.group(0)), "ab");
    EXPECT_FALSE(unwrapped.fullMatch("abab"));
    EXPECT_FALSE(unwrapped.fullMatch("xab"));
}

TEST_P(RegexMatchTest, GroupsOffsetsAndNames) {
    Regex regex = make(".+ (within [0-9]+).*");
    RegexMatch result;
    ASSERT_TRUE(regex.search("select x within 30 seconds", &result));
    EXPECT_EQ(result.groupCount(), 2u);
    EXPECT_EQ(str(result.group(1)), "within 30");
    EXPECT_EQ(Regex::groupStart(result, 1), 9u);
    EXPECT_EQ(Regex::groupEnd(result, 1), 18u);
    EXPECT_EQ(Regex::groupEnd(result, 0), 26u);

    ASSERT_TRUE(make("(a)|(b)").search("xb", &result));
    EXPECT_FALSE(result.matched(1));
    EXPECT_EQ(result.group(1).data(), nullptr);
    EXPECT_EQ(Regex::groupStart(result, 1), Str::npos);
    EXPECT_EQ(Regex::groupStart(result, 2), 1u);
    EXPECT_EQ(Regex::groupStart(result, 7), Str::npos);

    Regex named = make("(?<year>\\d{4})-(?<month>\\d\\d)");
    EXPECT_EQ(named.groupNumber("year"), 1);
    EXPECT_EQ(named.groupNumber("month"), 2);
    EXPECT_EQ(named.groupNumber("day"), -1);
    EXPECT_FALSE(named.record().dupNames());

    // Where a name repeats, the group that took part wins.
    Regex repeated = make("(?J)(?<v>a+)|(?<v>b+)");
    EXPECT_TRUE(repeated.record().dupNames());
    ASSERT_TRUE(repeated.search("bb", &result));
    EXPECT_EQ(repeated.groupNumber("v", &result), 2);
    EXPECT_EQ(repeated.groupNumber("v"), 1);
}

TEST_P(RegexMatchTest, WalkingByResumePositionAndModes) {
    Regex digits = make("\\d+");
    const std::string subject = "a1b22c333d";
    std::vector<std::string> found;
    size_t resume = 0;
    StrSegment rest;
    RegexMatch result;
    while (digits.search(subject.data(), subject.size(), &resume, &result, &rest)) {
        found.push_back(str(result.group(0)));
    }
    EXPECT_EQ(found, (std::vector<std::string>{"1", "22", "333"}));
    EXPECT_EQ(resume, 9u);
    EXPECT_EQ(str(rest), "d");

    Regex start = make("^a");
    EXPECT_TRUE(start.search("abc", 3, nullptr, nullptr, nullptr, Regex::MODE_SEARCH));
    EXPECT_FALSE(start.search("abc", 3, nullptr, nullptr, nullptr, Regex::MODE_NOT_BOL));

    // A hard partial match: the subject ends where the pattern could still go on.
    Regex word = make("abc");
    EXPECT_FALSE(word.search("xab", 3, nullptr, nullptr, nullptr, Regex::MODE_SEARCH));
    ASSERT_TRUE(word.search("xab", 3, nullptr, &result, nullptr, Regex::MODE_PARTIAL));
    EXPECT_EQ(str(result.group(0)), "ab");
}

TEST_P(RegexMatchTest, SubjectsAreUtf8) {
    Regex accented = make("\xC3\xA9+");
    RegexMatch result;
    ASSERT_TRUE(accented.search("x\xC3\xA9\xC3\xA9y", &result));
    EXPECT_EQ(Regex::groupStart(result, 0), 1u);
    EXPECT_EQ(Regex::groupEnd(result, 0), 5u);
    // A dot is one character, not one byte.
    EXPECT_TRUE(make("^.$").fullMatch("\xE2\x82\xAC"));

    // Bytes that are not UTF-8 never match, wherever they are.
    EXPECT_FALSE(make("a").search("a\xFF"));
    EXPECT_FALSE(make("a").search("a\xC3"));
    EXPECT_FALSE(make("a").search("\xED\xA0\x80 a"));
    // A resume position inside a character finds nothing.
    size_t resume = 2;
    EXPECT_FALSE(make(".").search("x\xC3\xA9", 3, &resume, nullptr, nullptr));
    // Nor does a resumed search of a subject that is not UTF-8, on either side of the start.
    for (const char* subject : {"ab\xFF"
                                "cd",
                                "\xC3"
                                "abcd"}) {
        resume = 1;
        EXPECT_FALSE(make("[a-d]+").search(subject, 5, &resume, nullptr, nullptr)) << subject;
        EXPECT_EQ(resume, 1u);
    }
}

TEST_P(RegexMatchTest, RunawayPatternsAreReportedNotHungOn) {
    LogCapture log;
    // Catastrophic backtracking: the library's match limit stops it at the first start.
    std::string subject(5000, 'a');
    subject += 'b';
    Regex runaway = make("(a+)+$");
    RegexMatch result;
    EXPECT_FALSE(runaway.search(StrSegment(subject), &result));
    EXPECT_EQ(result.failure, RegexMatch::FAILURE_MATCH_LIMIT);
    EXPECT_EQ(
        log.count(LOG_ERROR, "Failed in pcre_exec: Error PCRE_ERROR_MATCHLIMIT for regex: (a+)+$"),
        1u);

    // Deep backtracking: too deep for the JIT stack as well, so the interpreter reports it.
    Regex deep = make("(*LIMIT_DEPTH=1000)(?:a|b)*(?:c|\\d)");
    EXPECT_FALSE(deep.search(StrSegment(std::string(100000, 'a')), &result));
    EXPECT_EQ(result.failure, RegexMatch::FAILURE_DEPTH_LIMIT);
    EXPECT_EQ(log.count(LOG_ERROR,
                        "Failed in pcre_exec: Error PCRE_ERROR_DEPTHLIMIT for regex: "
                        "(*LIMIT_DEPTH=1000)(?:a|b)*(?:c|\\d)"),
              1u);

    // A failure is not remembered by the next search.
    EXPECT_TRUE(deep.search("aab1", &result));
    EXPECT_EQ(result.failure, RegexMatch::FAILURE_NONE);
}

TEST_P(RegexMatchTest, ReplaceAll) {
    Str out;
    EXPECT_EQ(make("(\\w+)@(\\w+)").replaceAll("mail bob@host, amy@net.", "\\2 for \\1", out), 2u);
    EXPECT_EQ(out, "mail host for bob, net for amy.");

    // References side by side, at the start and at the end; \\ is a backslash, so \\1 is text.
    out.clear();
    make("(a)(b)").replaceAll("xaby", "\\2\\1", out);
    EXPECT_EQ(out, "xbay");
    out.clear();
    make("(a)(b)").replaceAll("ab", "\\\\1[\\2]\\n\\\\", out);
    EXPECT_EQ(out, "\\1[b]\\n\\");

    // A group that did not take part, or does not exist, inserts nothing.
    out.clear();
    make("(x)|(y)").replaceAll("xy", "<\\1\\2\\9>", out);
    EXPECT_EQ(out, "<x><y>");

    // Empty matches step over one character, a whole UTF-8 one; the end of the subject takes
    // one too, even behind a match.
    out.clear();
    EXPECT_EQ(make("x*").replaceAll("a\xC3\xA9x", "-", out), 4u);
    EXPECT_EQ(out, "-a-\xC3\xA9--");

    // No match copies the subject; appending keeps what the target held.
    out = "keep:";
    EXPECT_EQ(make("q").replaceAll("abc", "z", out), 0u);
    EXPECT_EQ(out, "keep:abc");
}

TEST(RegexTest, BadPatternThrowsWithTheLibraryText) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            Regex regex("a(b");
            FAIL() << "compiled";
        } catch (const RegexException& e) {
            EXPECT_STREQ(e.what(), "Regex: missing closing parenthesis");
        }
    }
    EXPECT_THROW(Regex("\xFF"), RegexException);
}

TEST(RegexTest, SameKeySharesOneRecord) {
    RegexCache::Counters before = RegexCache::process().counters();
    Regex first("shared (record)");
    Regex second("shared (record)");
    Regex copy = first;
    EXPECT_TRUE(first.sharesRecordWith(second));
    EXPECT_TRUE(copy.sharesRecordWith(second));
    EXPECT_FALSE(first.sharesRecordWith(Regex("shared (record)", Regex::OPTION_NO_JIT)));
    EXPECT_FALSE(first.sharesRecordWith(Regex::caseless("shared (record)")));
    RegexCache::Counters after = RegexCache::process().counters();
    EXPECT_GE(after.hits, before.hits + 1);

    EXPECT_TRUE(Regex::caseless("ab").fullMatch("aB"));
    EXPECT_FALSE(Regex("ab").fullMatch("aB"));
    EXPECT_EQ(Regex::caseless("ab").pattern(), "(?i)ab");
}

TEST(RegexTest, ProcessJitWorksAndIsUsedForBothForms) {
    // Both builds link a PCRE2 with JIT, and it must work on each of them.
    EXPECT_EQ(RegexSettings::runJitSelfTest(), RegexSettings::JIT_ENABLED);
    if (RegexSettings::process().jitEnabled()) {
        Regex regex("jit (form)s?");
        EXPECT_TRUE(regex.record().searchJit());
        EXPECT_TRUE(regex.record().fullJit());
    }
    Regex plain("jit (form)s?", Regex::OPTION_NO_JIT);
    EXPECT_FALSE(plain.record().searchJit());
    EXPECT_FALSE(plain.record().fullJit());
}

// A compiler that counts its calls.
struct CountingCompiler {
    std::atomic<int>* calls;
    std::unique_ptr<const RegexRecord> operator()(StrSegment pattern, uint64_t options) const {
        ++*calls;
        return RegexRecord::compile(pattern, options, false);
    }
};

TEST(RegexCacheTest, IdleRecordsSurviveForAWhileThenGo) {
    std::atomic<int> calls{0};
    RegexCache cache(2, CountingCompiler{&calls});
    const RegexRecord* kept = cache.get("p0", 0).get();
    EXPECT_EQ(cache.counters().newIdleRecords, 1u);
    EXPECT_EQ(cache.get("p0", 0).get(), kept);
    EXPECT_EQ(calls, 1);

    // Two more idle patterns fill the new map past its limit: p0 moves to the old map, alive.
    cache.get("p1", 0);
    cache.get("p2", 0);
    RegexCache::Counters counters = cache.counters();
    EXPECT_EQ(counters.newIdleRecords, 0u);
    EXPECT_EQ(counters.oldIdleRecords, 3u);
    EXPECT_EQ(cache.get("p0", 0).get(), kept);
    EXPECT_EQ(calls, 3);

    // After p0 went idle again, the new map fills twice and p0 is gone.
    for (const char* pattern : {"p3", "p4", "p5", "p6", "p7"}) {
        cache.get(pattern, 0);
    }
    cache.get("p0", 0);
    EXPECT_EQ(calls, 9);
    counters = cache.counters();
    EXPECT_EQ(counters.misses, 9u);
    EXPECT_EQ(counters.hits, 2u);
    EXPECT_EQ(counters.races, 0u);

    // Records in use stay live and are found without compiling.
    std::shared_ptr<const RegexRecord> held = cache.get("held", 0);
    EXPECT_EQ(cache.get("held", 0), held);
    EXPECT_EQ(cache.counters().liveRecords, 1u);
    EXPECT_EQ(calls, 10);

    // A record may outlive its cache.
    std::unique_ptr<RegexCache> shortLived = std::make_unique<RegexCache>(2);
    std::shared_ptr<const RegexRecord> survivor = shortLived->get("survivor", 0);
    shortLived.reset();
    EXPECT_EQ(survivor->pattern(), "survivor");
}

TEST(RegexCacheTest, ACompileThatLosesARaceGivesWayToTheWinner) {
    // The lock is not held while compiling, so the compiler can play the other thread: it gets
    // the same key from the cache before its own result comes back.
    RegexCache* cache = nullptr;
    std::shared_ptr<const RegexRecord> winner;
    int calls = 0;
    RegexCache racy(10, [&](StrSegment pattern, uint64_t options) {
        if (++calls == 1) {
            winner = cache->get(pattern, options);
        }
        return RegexRecord::compile(pattern, options, false);
    });
    cache = &racy;
    std::shared_ptr<const RegexRecord> loser = racy.get("race", 0);
    EXPECT_EQ(loser, winner);
    EXPECT_EQ(calls, 2);
    RegexCache::Counters counters = racy.counters();
    EXPECT_EQ(counters.races, 1u);
    EXPECT_EQ(counters.misses, 2u);
    EXPECT_EQ(counters.liveRecords, 1u);
}

TEST(RegexCacheTest, ThreadsShareOneRecord) {
    std::atomic<int> calls{0};
    RegexCache cache(4, CountingCompiler{&calls});
    std::vector<std::shared_ptr<const RegexRecord>> records(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < records.size(); ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 200; ++round) {
                records[i] = cache.get("(contended)+", 0);
                EXPECT_FALSE(records[i]->match("x", 1, 0, Regex::MODE_SEARCH, nullptr));
                records[i] = cache.get(round % 2 ? "odd" : "even", 0);
            }
            records[i] = cache.get("(contended)+", 0);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& record : records) {
        EXPECT_EQ(record, records[0]);
    }
    RegexCache::Counters counters = cache.counters();
    EXPECT_EQ(counters.hits + counters.misses, 8u * 401u);
    EXPECT_EQ(static_cast<uint64_t>(calls.load()), counters.misses);
}

// A self-test that counts its runs and answers as told.
struct SelfTestScript {
    static inline int runs = 0;
    static inline RegexSettings::JitState answer = RegexSettings::JIT_ENABLED;
    static RegexSettings::JitState run() {
        ++runs;
        return answer;
    }
    explicit SelfTestScript(RegexSettings::JitState result) {
        runs = 0;
        answer = result;
    }
};

TEST(RegexSettingsTest, JitStateFromTheVariableAndTheSelfTest) {
    struct Case {
        const char* setting;
        RegexSettings::JitState selfTest;
        uint8_t state;
        int runs;
    };
    const Case cases[] = {
        {nullptr, RegexSettings::JIT_ENABLED, RegexSettings::JIT_ENABLED, 1},
        {"", RegexSettings::JIT_ENABLED, RegexSettings::JIT_ENABLED, 1},
        {"yes", RegexSettings::JIT_ENABLED, RegexSettings::JIT_FORCED, 1},
        {"True", RegexSettings::JIT_BROKEN, RegexSettings::JIT_BROKEN, 1},
        {"t", RegexSettings::JIT_NOT_AVAILABLE, RegexSettings::JIT_NOT_AVAILABLE, 1},
        {"n", RegexSettings::JIT_ENABLED, RegexSettings::JIT_DISABLED, 0},
        {"False", RegexSettings::JIT_ENABLED, RegexSettings::JIT_DISABLED, 0},
        {"maybe", RegexSettings::JIT_ENABLED, RegexSettings::JIT_ENABLED, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.setting ? c.setting : "(unset)");
        LogCapture log;
        SelfTestScript script(c.selfTest);
        RegexSettings settings(c.setting, nullptr, &SelfTestScript::run);
        EXPECT_EQ(settings.jitState(), c.state);
        EXPECT_EQ(SelfTestScript::runs, c.runs);
        EXPECT_EQ(settings.selfTestRan(), c.runs == 1);
        EXPECT_EQ(settings.jitEnabled(), c.state >= RegexSettings::JIT_ENABLED);
        size_t warnings =
            log.count(LOG_WARN, "Can't parse MORVAX_JIT_REGEXES setting of \"maybe\", ignoring");
        EXPECT_EQ(warnings, std::string(c.setting ? c.setting : "") == "maybe" ? 1u : 0u);
    }
}

TEST(RegexSettingsTest, StatesAreLoggedWithTheirTextsAndLevels) {
    const std::pair<RegexSettings::JitState, std::pair<int32_t, const char*>> expected[] = {
        {RegexSettings::JIT_NOT_AVAILABLE, {LOG_WARN, "JIT not available in regex library"}},
        {RegexSettings::JIT_DISABLED, {LOG_INFO, "Regex JIT explicitly disabled"}},
        {RegexSettings::JIT_BROKEN, {LOG_WARN, "Regex JIT did not seem to work"}},
        {RegexSettings::JIT_DISABLED_NOW,
         {LOG_DEBUG, "Regex JIT disabled in this process now, but was enabled earlier"}},
        {RegexSettings::JIT_ENABLED, {LOG_INFO, "Regex JIT enabled"}},
        {RegexSettings::JIT_FORCED, {LOG_INFO, "Regex JIT explicitly enabled"}},
    };
    for (const auto& [state, line] : expected) {
        EXPECT_STREQ(RegexSettings::jitStateText(state), line.second);
        EXPECT_EQ(RegexSettings::jitStateLevel(state), line.first);
    }
    EXPECT_EQ(RegexSettings::jitStateText(RegexSettings::JIT_UNDECIDED), nullptr);

    LogCapture log;
    SelfTestScript script(RegexSettings::JIT_ENABLED);
    RegexSettings settings("y", nullptr, &SelfTestScript::run);
    settings.logStates();
    EXPECT_EQ(log.texts(),
              (std::vector<std::string>{"Regex JIT explicitly enabled", "RE2 library enabled"}));
    EXPECT_EQ(log.count(LOG_INFO, "Regex JIT explicitly enabled"), 1u);
    settings.disableJit();
    EXPECT_EQ(settings.jitState(), RegexSettings::JIT_DISABLED_NOW);
    EXPECT_FALSE(settings.jitEnabled());

    // Disabling what never ran changes nothing.
    RegexSettings off("n", nullptr, &SelfTestScript::run);
    off.disableJit();
    EXPECT_EQ(off.jitState(), RegexSettings::JIT_DISABLED);
}

TEST(RegexSettingsTest, Re2Switch) {
    SelfTestScript script(RegexSettings::JIT_ENABLED);
    EXPECT_TRUE(RegexSettings(nullptr, nullptr, &SelfTestScript::run).re2Enabled());
    EXPECT_TRUE(RegexSettings(nullptr, "Y", &SelfTestScript::run).re2Enabled());
    EXPECT_FALSE(RegexSettings(nullptr, "no", &SelfTestScript::run).re2Enabled());

    LogCapture log;
    RegexSettings bad(nullptr, "sometimes", &SelfTestScript::run);
    EXPECT_FALSE(bad.re2Enabled());
    bad.logStates();
    EXPECT_EQ(log.count(LOG_ERROR,
                        "Can't parse MORVAX_RE2_REGEXES setting of \"sometimes\", disabling re2"),
              1u);
    EXPECT_EQ(log.count(LOG_INFO, "RE2 library disabled"), 1u);
}

TEST(RegexSettingsTest, EnvironmentDecidesOncePerProcess) {
    {
        test::ScopedEnvironment jit("MORVAX_JIT_REGEXES", "n");
        test::ScopedEnvironment re2("MORVAX_RE2_REGEXES", "0");
        SelfTestScript script(RegexSettings::JIT_ENABLED);
        RegexSettings settings = RegexSettings::fromEnvironment(&SelfTestScript::run);
        EXPECT_EQ(settings.jitState(), RegexSettings::JIT_DISABLED);
        EXPECT_EQ(SelfTestScript::runs, 0);
        EXPECT_FALSE(settings.re2Enabled());

        // A whole process: no self-test, no JIT code.
        EXPECT_EQ(test::runProgram(test::testProgramPath("regex_jit"), {}),
                  RegexSettings::JIT_DISABLED * 10);
    }
    {
        test::ScopedEnvironment jit("MORVAX_JIT_REGEXES", nullptr);
        EXPECT_EQ(test::runProgram(test::testProgramPath("regex_jit"), {}),
                  RegexSettings::JIT_ENABLED * 10 + 2 + 1);
        test::ScopedEnvironment forced("MORVAX_JIT_REGEXES", "Yes");
        EXPECT_EQ(test::runProgram(test::testProgramPath("regex_jit"), {}),
                  RegexSettings::JIT_FORCED * 10 + 2 + 1);
    }
}

TEST(CrashlogAnnotateRegexCompileTest, WritesThePatternAndPhaseWhileAlive) {
    test::TextSink before;
    ScopedPerThreadCrashLogNotation::writeCurrentThreadNotations(before);
    {
        CrashlogAnnotateRegexCompile notation(StrSegment("a(b|c)*", 7));
        test::TextSink sink;
        notation.write(sink);
        EXPECT_EQ(sink.text, "WHILE COMPILING REGEX: /a(b|c)*/\r\n");
        notation.setPhase("during JIT compile");
        test::TextSink current;
        ScopedPerThreadCrashLogNotation::writeCurrentThreadNotations(current);
        EXPECT_EQ(current.text,
                  "WHILE COMPILING REGEX: /a(b|c)*/ (during JIT compile)\r\n" + before.text);
    }
    test::TextSink after;
    ScopedPerThreadCrashLogNotation::writeCurrentThreadNotations(after);
    EXPECT_EQ(after.text, before.text);
}

}  // namespace
}  // namespace morvax
