#pragma once

#include <cstdint>
#include <map>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/Pathname.h"
#include "util/log/LogConfOptions.h"

namespace morvax {

class LogAppender;
class LogChannel;

// Loads log configurations into the process's log system: channels with their levels and
// appenders, appenders with their files and layouts. A fault in one entry is reported with its
// file and line and leaves the rest in force.
class LogConfiguration {
  public:
    // Resets the log system if it was configured, reads the file of `options` and then its
    // local companion, and applies them. True when no error was found.
    static bool load(const LogConfOptions& options);
    // The same with the text in memory instead of the file (no companion is read); errors are
    // reported under the file name of `options`.
    static bool load(const LogConfOptions& options, StrSegment text);

    // Back to the state before any configuration: standard error, "%m%n", INFO and up.
    static void reset();

    // The appender of a name, or the root appender for "rootAppender", or null.
    static LogAppender* findAppender(StrSegment name, bool create);
    // Applies one appender key; false when the key or its value is refused.
    static bool setAppenderKey(LogAppender& appender, StrSegment key, StrSegment value,
                               const LogConfOptions& options);
    // Applies a list of level, "buffered" and appender names; false, changing nothing, when it
    // names an unknown appender.
    static bool setChannelFromList(LogChannel& channel, StrSegment list);
    // A configuration line at run time. A null name applies the key to every appender and stops
    // at the first refusal.
    static bool setAppenderByName(const LogConfOptions& options, const char* appenderName,
                                  StrSegment key, StrSegment value);

    // "name-local.ext" beside "name.ext": "-local" goes before the first `.` of the last
    // component, or at the end when there is none or it is the first character.
    static Pathname localCompanionName(const Pathname& fileName);
    // Every key of `substitutions` replaced by the UTF-8 form of its value.
    static Str substitute(StrSegment value, const std::map<Str, WStr>& substitutions);
    // Digits without a leading zero (but "0"), trailing blanks allowed, at most `limit`.
    static bool parseSize(StrSegment text, uint64_t limit, uint64_t& value);
    // Digits with blanks or tabs allowed around them.
    static bool parseBufferSize(StrSegment text, uint64_t& value);
    // 0, 1, t, f, true, false, yes, no, in any case.
    static bool parseBoolean(StrSegment text, bool& value);
    // The level of an exact level name, or -1.
    static int32_t levelFromName(StrSegment name);
};

inline bool loadLogConfiguration(const LogConfOptions& options, const char* text) {
    return text == nullptr ? LogConfiguration::load(options)
                           : LogConfiguration::load(options, StrSegment(text));
}

}  // namespace morvax
