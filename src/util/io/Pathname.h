#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/FileHandle.h"
#include "util/io/RenameResult.h"

namespace morvax {

class DiagnosticsChannel;

// The one way to name a file: the path as wide text with the native separator, converted from
// UTF-8 once so that the wide file APIs serve throughout.
//
// Building a Pathname (from text, by join or append) follows the append rule: a path built from
// components is rooted. A drive ("C:") counts only where the platform has drives; elsewhere
// "C:" is an ordinary name and the path is rooted by the separator.
//
// File-system operations report failure through their result and the platform's last-error
// value, which the caller prints with %m.
class Pathname {
  public:
    // Chooses paths for tree operations.
    class predicate {
      public:
        virtual ~predicate() = default;
        virtual bool test(const Pathname& path) const = 0;
    };

    class always_true : public predicate {
      public:
        bool test(const Pathname&) const override { return true; }
    };

    // Results of exists().
    enum Kind : int { NOT_FOUND = 0, REGULAR_FILE = 1, DIRECTORY = 2, DEVICE = 3 };

    // Sharing for the open operations, where the platform knows it.
    enum Share : uint32_t { SHARE_READ = 1, SHARE_WRITE = 2, SHARE_DELETE = 4 };

    // `\` on Windows, `/` elsewhere.
    static const char16_t SEPARATOR;
    // Also accepted as a separator by makeDirectories: `/` on Windows; the same as SEPARATOR
    // elsewhere.
    static const char16_t ALT_SEPARATOR;
    // Whether a leading letter and `:` is a drive.
    static const bool HAS_DRIVES;
    // Longer paths are reported, since many platform calls refuse them.
    static constexpr size_t MAX_PATH_UNITS = 260;

    Pathname() = default;
    Pathname(const char* utf8) { append(StrSegment(utf8)); }
    Pathname(StrSegment utf8) { append(utf8); }
    Pathname(const Str& utf8) { append(utf8.segment()); }
    Pathname(const char16_t* wide) { appendWide(wide); }
    Pathname(const WStr& wide) { append(wide.data(), wide.size()); }

    Pathname& operator=(const char* utf8) { return assign(StrSegment(utf8)); }
    Pathname& operator=(StrSegment utf8) { return assign(utf8); }
    Pathname& operator=(const Str& utf8) { return assign(utf8.segment()); }
    Pathname& operator=(const char16_t* wide);
    Pathname& operator=(const WStr& wide);

    static Pathname join(const Pathname& base, StrSegment name);
    static Pathname join(const Pathname& base, const char* name) {
        return join(base, StrSegment(name));
    }
    static Pathname join(const Pathname& base, const Str& name) {
        return join(base, name.segment());
    }
    static Pathname join(const Pathname& base, const char16_t* name, size_t length);
    static Pathname join(const Pathname& base, const WStr& name) {
        return join(base, name.data(), name.size());
    }

    // The append rule, in place.
    Pathname& append(StrSegment utf8);
    Pathname& append(const char16_t* wide, size_t length);
    Pathname& appendWide(const char16_t* wide);

    const WStr& wide() const { return path_; }
    const char16_t* c_str() const { return path_.c_str(); }
    size_t length() const { return path_.size(); }
    bool empty() const { return path_.empty(); }
    Str toStr() const { return Str::fromWide(path_); }

    // The absolute form of path text as the user wrote it (a relative one is taken against the
    // current directory, not rooted by the append rule), with "." and ".." resolved and no
    // doubled or trailing separators. Empty stays empty.
    static Pathname absoluteClean(const WStr& text);

    // Without the last component; a path with nothing above it gives its root.
    Pathname dirName() const;
    // The last component, trailing separators ignored.
    WStr baseName() const;

    // One of Kind.
    int exists() const;
    bool isDirectory() const { return exists() == DIRECTORY; }
    bool removeFile() const;
    // Creates the missing directories of the path; safe when another process creates the same
    // ones at the same time. `mode` 0 gives the default security, any other a directory for the
    // owner only (on Windows the default security too).
    bool makeDirectories(uint32_t mode = 0) const;
    // The names in the directory, without "." and "..".
    bool listDirectory(std::vector<WStr>& names) const;

    // Replaces the target atomically, even a file held open elsewhere with delete sharing.
    // 0 on success, -1 on failure.
    int rename(const Pathname& to) const;
    RenameResult renameWithRetry(const Pathname& to, uint32_t attempts, uint32_t pauseMs,
                                 bool replaceFiles) const;

    // `share` 0 means SHARE_READ | SHARE_DELETE. The result may be the invalid handle.
    FileHandle openForWrite(uint32_t share = 0) const;
    // Creates the file if needed and writes at its end.
    FileHandle openForAppend(uint32_t share = 0) const;
    FileHandle openForRead(uint32_t share = 0) const;

    // Creates an empty file with a random name in the path's directory: 1 and its name in
    // `result`, or 0.
    int makeTempSibling(Pathname& result) const;

    // The final target of a symbolic link.
    bool resolveSymlink(Pathname& target) const;

    bool inSameFilesystemAs(const Pathname& other) const;

    friend bool operator==(const Pathname& a, const Pathname& b) { return a.path_ == b.path_; }

  private:
    Pathname& assign(StrSegment utf8);

    static bool isSeparator(char16_t c) { return c == SEPARATOR; }
    static bool isAnySeparator(char16_t c) { return c == SEPARATOR || c == ALT_SEPARATOR; }
    // 2 when the text begins with a drive, else 0.
    static size_t driveLength(const char16_t* text, size_t length);
    // Reports a path longer than MAX_PATH_UNITS.
    void checkLength() const;
    bool makeDirectoriesFrom(size_t rootLength, uint32_t mode) const;
    // Removes ".", ".." and empty components; the root stays.
    static WStr cleanText(const WStr& text);
    bool copyThroughTemporary(const Pathname& to) const;

    // The diagnostics channel "Pathname", shared by the portable and the platform parts.
    static DiagnosticsChannel& diagnostics();

    // Platform parts.
    // " call_sites=[...]" for the reports.
    static void appendCallSites(Str& target);
    // The error value as the retry rules know it: the platform's own code on Windows, the
    // nearest Windows code elsewhere.
    static uint32_t portableErrorCode(uint32_t lastError);
    static bool isAlreadyExistsError(uint32_t lastError);
    static void setPathNotFoundError();
    bool createDirectory(uint32_t mode) const;
    bool readDirectory(std::vector<WStr>& names) const;
    bool createExclusive() const;
    // Prefixes a relative path with the current directory (Windows: by the full-path rules).
    static void makeAbsoluteText(WStr& text);

    WStr path_;
};

}  // namespace morvax
