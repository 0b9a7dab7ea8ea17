#pragma once

#include <atomic>
#include <cstdint>

namespace morvax {

// Which regex engines this process uses: whether PCRE2's JIT is trusted, from
// MORVAX_JIT_REGEXES and a one-time self-test, and the RE2 switch from MORVAX_RE2_REGEXES.
// The process's settings are decided once, at the first compile.
class RegexSettings {
  public:
    enum JitState : uint8_t {
        JIT_UNDECIDED = 0,      // the variable did not say; the self-test decides
        JIT_NOT_AVAILABLE = 2,  // the library was built without JIT
        JIT_DISABLED = 3,       // the variable says no; the self-test does not run
        JIT_BROKEN = 4,         // the self-test failed
        JIT_DISABLED_NOW = 5,   // turned off after it had been on
        JIT_ENABLED = 6,
        JIT_FORCED = 7,  // the variable says yes and the self-test passed
    };

    // Runs the JIT self-test: JIT_NOT_AVAILABLE, JIT_BROKEN, or JIT_ENABLED when JIT works.
    using SelfTest = JitState (*)();

    // Decides from the variables' texts (null when unset) and, unless JIT is disabled, the
    // self-test. A text that is no boolean is reported here.
    RegexSettings(const char* jitSetting, const char* re2Setting,
                  SelfTest selfTest = &runJitSelfTest);
    static RegexSettings fromEnvironment(SelfTest selfTest = &runJitSelfTest);
    // The process's settings; the first call decides and logs them.
    static RegexSettings& process();

    RegexSettings(const RegexSettings&) = delete;
    RegexSettings& operator=(const RegexSettings&) = delete;

    uint8_t jitState() const { return jitState_.load(std::memory_order_acquire); }
    bool jitEnabled() const { return jitState() >= JIT_ENABLED; }
    bool re2Enabled() const { return re2Enabled_; }
    bool selfTestRan() const { return selfTestRan_; }

    // Later compiles go without JIT; records compiled before keep theirs.
    void disableJit();
    // Logs the JIT state and the RE2 switch, each at the level that fits it.
    void logStates() const;

    // The text of a JIT state, or null for the states that are never final.
    static const char* jitStateText(uint8_t state);
    static int32_t jitStateLevel(uint8_t state);
    // Reads a boolean by its first character: "0FNfn" false, "1TYty" true. False when the
    // text is neither.
    static bool parseBoolean(const char* text, bool& value);
    // Compiles a small pattern, JIT-compiles it and matches it, under a crash-log notation.
    static JitState runJitSelfTest();

  private:
    std::atomic<uint8_t> jitState_{JIT_UNDECIDED};
    bool re2Enabled_ = true;
    bool selfTestRan_ = false;
};

}  // namespace morvax
