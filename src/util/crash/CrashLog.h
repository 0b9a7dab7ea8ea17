#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "util/base/LogFormatter.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

// One exception as the platform reports it: a structured exception on Windows; elsewhere a
// signal, described by the nearest exception code so that both platforms write the same lines.
struct CrashException {
    static constexpr uint32_t MAX_PARAMETERS = 15;
    // Flag of a record that cannot be continued.
    static constexpr uint32_t NON_CONTINUABLE = 1;

    uint32_t code = 0;
    uint32_t flags = 0;
    // Where it happened: the instruction address.
    uint64_t address = 0;
    uint32_t parameterCount = 0;
    uint64_t parameters[MAX_PARAMETERS] = {};
    // The chained record, or null.
    const CrashException* next = nullptr;
};

// The processor state of the crashing thread, as far as the platform gives it.
struct CrashRegisters {
    static constexpr uint32_t MAX = 48;
    struct Entry {
        const char* name;
        uint64_t value;
    };

    void add(const char* name, uint64_t value) {
        if (count < MAX) {
            entries[count++] = Entry{name, value};
        }
    }

    uint32_t count = 0;
    Entry entries[MAX];
};

// The crash report: when the process dies, what every thread was doing goes into a file below
// the installation (or to standard error). The writer uses no heap and runs once per process;
// its sink bounds the report's size (CrashLogSink).
class CrashLog {
  public:
    enum Mode : uint32_t { MODE_NONE = 0, MODE_FILE = 1, MODE_STDERR = 2 };

    // Exception codes that the report names.
    static constexpr uint32_t ACCESS_VIOLATION = 0xC0000005;
    static constexpr uint32_t IN_PAGE_ERROR = 0xC0000006;
    static constexpr uint32_t ILLEGAL_INSTRUCTION = 0xC000001D;
    static constexpr uint32_t PRIVILEGED_INSTRUCTION = 0xC0000096;
    static constexpr uint32_t ARRAY_BOUNDS_EXCEEDED = 0xC000008C;
    static constexpr uint32_t FLOAT_DIVIDE_BY_ZERO = 0xC000008E;
    static constexpr uint32_t FLOAT_INEXACT_RESULT = 0xC000008F;
    static constexpr uint32_t FLOAT_INVALID_OPERATION = 0xC0000090;
    static constexpr uint32_t FLOAT_OVERFLOW = 0xC0000091;
    static constexpr uint32_t FLOAT_UNDERFLOW = 0xC0000093;
    static constexpr uint32_t INTEGER_DIVIDE_BY_ZERO = 0xC0000094;
    static constexpr uint32_t INTEGER_OVERFLOW = 0xC0000095;
    static constexpr uint32_t STACK_OVERFLOW = 0xC00000FD;
    // Raised by the process's own handler of the abort signal, so that an abort is reported too.
    static constexpr uint32_t ABORT_SIGNAL = 0xEEAB5254;
    static constexpr uint32_t CPP_EXCEPTION = 0xE06D7363;
    static constexpr uint64_t CPP_EXCEPTION_MAGIC = 0x19930520;

    // The directory part of a report's name, with its separator, must fit this many units.
    static constexpr size_t PREFIX_UNITS = 260;
    // An executable path this long or longer is left out of the name.
    static constexpr size_t EXECUTABLE_UNITS = 258;
    // Room for a whole report name.
    static constexpr size_t NAME_UNITS = PREFIX_UNITS + EXECUTABLE_UNITS + 64;
    // Data longer than this are cut in quoted form, after CUT_QUOTED_AT bytes.
    static constexpr size_t MAX_WHOLE_QUOTED = 240;
    static constexpr size_t CUT_QUOTED_AT = 75;

    // Sets the target (reports go below `directory`, or to standard error when it is empty) and
    // installs the handlers: the fatal signals (an abort included), unhandled typed exceptions,
    // and on Windows the unhandled-exception filter and the runtime's invalid-parameter report.
    static void install(const Pathname& directory);
    // The target part of install() alone. A directory too long for a report's name is reported
    // as "Prefix too long" on standard error and leaves reports on standard error.
    static void configure(const Pathname& directory);
    static Mode mode();
    // The directory part of report names, ending in a separator; empty without one.
    static const char16_t* prefix();

    // Identifies the build in a report's first line.
    static void setBuildId(const char* id);
    // Whether a report in a file gets a full memory dump beside it, where the platform can
    // write one (the default). A dump can take many seconds and much space.
    static void enableMemoryDump(bool enabled);

    // The crash writer. `threadName` names the crashing thread; `registers` and
    // `platformContext` (the platform's record of the processor state, for the stack walk and
    // the memory dump) may be null. The first caller writes the report; any later one returns
    // at once. Always returns 0, so the platform goes on looking for a handler.
    static int writeReport(const char* threadName, const CrashException& exception,
                           const CrashRegisters* registers, const void* platformContext);

    // True once the writer has finished, so that a second crashing thread can wait for it.
    static bool reportFinished();

    // Keeps the type and text of an unhandled typed exception for the report (what() may be
    // null). Copies: the exception may be gone when the report is written.
    static void noteUnhandledException(const char* typeName, const char* what);

    // While it lives, the thread that made it is in the entry function's frame: a thrown object
    // or a fault that reaches that frame is reported where it arose, nothing unwound and every
    // other thread still there, and then ends the process with status -1. The frame catches
    // nothing itself: an uncaught exception goes to the terminate handler, and from there with
    // the abort to the report, as on any other thread. It installs the handlers, which install()
    // then gives their directory.
    class EntryFrame {
      public:
        EntryFrame();
        ~EntryFrame();
        EntryFrame(const EntryFrame&) = delete;
        EntryFrame& operator=(const EntryFrame&) = delete;
    };
    // Called by the platform's handlers once the report is written: ends the process with -1 on
    // the thread of an EntryFrame, and returns on any other.
    static void endInEntryFrame();

    // Report pieces, heap-free.
    // The exception's lines, chained records included.
    static void writeException(FormatSink& sink, const CrashException& exception);
    // `"`, the bytes with escapes, `"`; long data are cut.
    static void writeQuoted(FormatSink& sink, const void* data, size_t length);
    // "First %u bytes of <name> @%p:" and a hexadecimal dump.
    static void writeBytesOfInterest(FormatSink& sink, const char* name, const void* data,
                                     uint32_t count);
    // The whole file, or its last lines, framed by headings; or the error of opening it.
    static void writeFileOfInterest(FormatSink& sink, const char16_t* path, bool tailOnly);

    // Writes the report name into `out`: `prefix`, the executable path with '.', ':', '\\' and
    // '/' made '_' plus one more '_' (left out when EXECUTABLE_UNITS or longer), then
    // "crash-%Y-%m-%d-%H-%M-%S.log" of `local`. Returns its length, or 0 when it does not fit
    // `capacity` units with the terminator.
    static size_t formatReportName(char16_t* out, size_t capacity, const char16_t* prefix,
                                   const char16_t* executable, const std::tm& local);

    // The text of an invalid parameter that the runtime caught: "Expression='...' ",
    // "Function='...' ", "File='...' " for the parts given, then " Line='<line>'". It is logged,
    // not treated as a crash.
    static Str invalidParameterText(const char16_t* expression, const char16_t* function,
                                    const char16_t* file, uint32_t line);
    static void reportInvalidParameter(const char16_t* expression, const char16_t* function,
                                       const char16_t* file, uint32_t line);

  private:
    static void writeBody(FormatSink& sink, const char* threadName, const CrashException& exception,
                          const CrashRegisters* registers, const void* platformContext,
                          const std::tm& local, const char16_t* reportName, uint32_t lastError,
                          uint64_t runtimeUs);
    static void writeUnhandledException(FormatSink& sink);
    static void writeCpuid(FormatSink& sink);
    // The name of the crashing thread for handlers that have no name of their own.
    static const char* crashingThreadName();
    static void installTerminateHandler();

    // Platform parts.
    static void installPlatformHandlers();
    // The executable's full path, kept at install for the report's name.
    static void rememberExecutable();
    static const char16_t* executablePath();
    static const void* executableBase();
    static void localNow(std::tm& out);
    static void breakIntoDebugger();
    // The report file, created only if it does not exist yet; the invalid handle on failure.
    static intptr_t createReportFile(const char16_t* name);
    static intptr_t standardError();
    static void writeHandle(intptr_t handle, const char* bytes, size_t length);
    static void closeHandle(intptr_t handle);
    [[noreturn]] static void exitNow(int status);
    static const char* operatingSystem();
    static void writeBacktrace(FormatSink& sink, const void* platformContext);
    static void writeMemoryDump(FormatSink& sink, const char16_t* reportName,
                                const void* platformContext);
    // "Morvax ran as ...", the computer and the system's name.
    static void writeUserAndSystem(FormatSink& sink);
    // Reading a file of interest: the invalid handle on failure; bytes read, 0 at the end, -1
    // on error; moving to `offset` from the start.
    static intptr_t openForRead(const char16_t* path);
    static int64_t readHandle(intptr_t handle, char* buffer, size_t size);
    static int64_t fileSize(intptr_t handle);
    static bool seekHandle(intptr_t handle, int64_t offset);
};

}  // namespace morvax
