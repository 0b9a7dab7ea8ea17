#include "util/regex/RegexSettings.h"

#include <cstdlib>

#include "util/log/Logger.h"
#include "util/regex/Regex.h"
#include "util/thread/ScopedPerThreadCrashLogConstantStringNotation.h"

#include <pcre2.h>

namespace morvax {

namespace {

const char JIT_VARIABLE[] = "MORVAX_JIT_REGEXES";
const char RE2_VARIABLE[] = "MORVAX_RE2_REGEXES";

bool isEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

}  // namespace

RegexSettings::RegexSettings(const char* jitSetting, const char* re2Setting, SelfTest selfTest) {
    uint8_t state = JIT_UNDECIDED;
    bool value = false;
    // An empty variable counts as unset: Windows cannot even hold one.
    if (isEmpty(jitSetting)) {
        state = JIT_UNDECIDED;
    } else if (parseBoolean(jitSetting, value)) {
        state = value ? JIT_FORCED : JIT_DISABLED;
    } else {
        Regex::logger().warn("Can't parse %s setting of \"%s\", ignoring", JIT_VARIABLE,
                             jitSetting);
    }
    if (state != JIT_DISABLED) {
        selfTestRan_ = true;
        JitState result = selfTest();
        if (result != JIT_ENABLED) {
            state = result;
        } else if (state != JIT_FORCED) {
            state = JIT_ENABLED;
        }
    }
    jitState_.store(state, std::memory_order_release);

    if (isEmpty(re2Setting)) {
        re2Enabled_ = true;
    } else if (parseBoolean(re2Setting, value)) {
        re2Enabled_ = value;
    } else {
        Regex::logger().error("Can't parse %s setting of \"%s\", disabling re2", RE2_VARIABLE,
                              re2Setting);
        re2Enabled_ = false;
    }
}

RegexSettings RegexSettings::fromEnvironment(SelfTest selfTest) {
    return RegexSettings(std::getenv(JIT_VARIABLE), std::getenv(RE2_VARIABLE), selfTest);
}

RegexSettings& RegexSettings::process() {
    static RegexSettings settings = fromEnvironment();
    static const bool logged = (settings.logStates(), true);
    (void)logged;
    return settings;
}

void RegexSettings::disableJit() {
    uint8_t state = jitState();
    while (state >= JIT_ENABLED &&
           !jitState_.compare_exchange_weak(state, JIT_DISABLED_NOW, std::memory_order_acq_rel)) {
    }
}

void RegexSettings::logStates() const {
    uint8_t state = jitState();
    if (const char* text = jitStateText(state)) {
        Regex::logger().log(jitStateLevel(state), text);
    }
    Regex::logger().info("RE2 library %s", re2Enabled_ ? "enabled" : "disabled");
}

const char* RegexSettings::jitStateText(uint8_t state) {
    switch (state) {
        case JIT_NOT_AVAILABLE:
            return "JIT not available in regex library";
        case JIT_DISABLED:
            return "Regex JIT explicitly disabled";
        case JIT_BROKEN:
            return "Regex JIT did not seem to work";
        case JIT_DISABLED_NOW:
            return "Regex JIT disabled in this process now, but was enabled earlier";
        case JIT_ENABLED:
            return "Regex JIT enabled";
        case JIT_FORCED:
            return "Regex JIT explicitly enabled";
        default:
            return nullptr;
    }
}

int32_t RegexSettings::jitStateLevel(uint8_t state) {
    switch (state) {
        case JIT_NOT_AVAILABLE:
        case JIT_BROKEN:
            return LOG_WARN;
        case JIT_DISABLED_NOW:
            return LOG_DEBUG;
        default:
            return LOG_INFO;
    }
}

bool RegexSettings::parseBoolean(const char* text, bool& value) {
    switch (text ? *text : '\0') {
        case '0':
        case 'F':
        case 'N':
        case 'f':
        case 'n':
            value = false;
            return true;
        case '1':
        case 'T':
        case 'Y':
        case 't':
        case 'y':
            value = true;
            return true;
        default:
            return false;
    }
}

RegexSettings::JitState RegexSettings::runJitSelfTest() {
    ScopedPerThreadCrashLogConstantStringNotation notation(
        "Crashed while determining whether Regex JIT works; it can be explicitly disabled by "
        "setting MORVAX_JIT_REGEXES=n in morvax-launch.conf");
    uint32_t available = 0;
    if (pcre2_config(PCRE2_CONFIG_JIT, &available) < 0 || available == 0) {
        return JIT_NOT_AVAILABLE;
    }
    static const char pattern[] = "^a[bcd]e$";
    static const char subject[] = "ace";
    int errorCode = 0;
    PCRE2_SIZE errorOffset = 0;
    pcre2_code* code =
        pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), sizeof(pattern) - 1,
                      PCRE2_UTF | PCRE2_AUTO_CALLOUT, &errorCode, &errorOffset, nullptr);
    if (code == nullptr) {
        return JIT_BROKEN;
    }
    bool works = false;
    if (pcre2_jit_compile(code, PCRE2_JIT_COMPLETE | PCRE2_JIT_PARTIAL_HARD) == 0) {
        if (pcre2_match_data* data = pcre2_match_data_create_from_pattern(code, nullptr)) {
            int rc = pcre2_jit_match(code, reinterpret_cast<PCRE2_SPTR>(subject),
                                     sizeof(subject) - 1, 0, 0, data, nullptr);
            const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data);
            works = rc == 1 && ovector[0] == 0 && ovector[1] == sizeof(subject) - 1;
            pcre2_match_data_free(data);
        }
    }
    pcre2_code_free(code);
    return works ? JIT_ENABLED : JIT_BROKEN;
}

}  // namespace morvax
