#include "util/io/Pathname.h"

#include <chrono>
#include <cstdio>
#include <functional>
#include <random>
#include <thread>

#include "util/base/Diagnostics.h"
#include "util/base/LastError.h"

namespace morvax {

namespace {

// Errors worth another rename attempt: transient sharing, locking, memory and network
// conditions, as Windows codes.
constexpr uint32_t kRetriedErrors[] = {4,  5,  8,  14, 21, 29, 30, 31, 32, 33, 54,
                                       57, 58, 59, 60, 70, 71, 84, 88, 89, 113};
constexpr uint32_t kNotSameDevice = 17;

bool isRetried(uint32_t code) {
    for (uint32_t retried : kRetriedErrors) {
        if (retried == code) {
            return true;
        }
    }
    return false;
}

// Depth of long-path reports on this thread: logging may build paths of its own.
thread_local int longPathReportDepth = 0;

class ReportDepthGuard {
  public:
    ReportDepthGuard() { ++longPathReportDepth; }
    ~ReportDepthGuard() { --longPathReportDepth; }
    ReportDepthGuard(const ReportDepthGuard&) = delete;
    ReportDepthGuard& operator=(const ReportDepthGuard&) = delete;
};

std::mt19937_64& threadRandom() {
    thread_local std::mt19937_64 generator([] {
        uint64_t seed = static_cast<uint64_t>(
            std::chrono::high_resolution_clock::now().time_since_epoch().count());
        seed ^= static_cast<uint64_t>(std::hash<std::thread::id>()(std::this_thread::get_id()))
                << 1;
        try {
            std::random_device device;
            seed ^= (static_cast<uint64_t>(device()) << 32) | device();
        } catch (...) {
            // The clock and the thread id still make names differ between threads and runs.
        }
        return seed;
    }());
    return generator;
}

}  // namespace

DiagnosticsChannel& Pathname::diagnostics() {
    static DiagnosticsChannel instance("Pathname");
    return instance;
}

size_t Pathname::driveLength(const char16_t* text, size_t length) {
    if (!HAS_DRIVES || length < 2 || text[1] != u':') {
        return 0;
    }
    char16_t c = text[0];
    return ((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z')) ? 2 : 0;
}

Pathname& Pathname::operator=(const char16_t* wide) {
    Pathname built(wide);
    path_.swap(built.path_);
    return *this;
}

Pathname& Pathname::operator=(const WStr& wide) {
    Pathname built(wide);
    path_.swap(built.path_);
    return *this;
}

Pathname& Pathname::assign(StrSegment utf8) {
    Pathname built(utf8);
    path_.swap(built.path_);
    return *this;
}

Pathname Pathname::join(const Pathname& base, StrSegment name) {
    Pathname joined;
    // A UTF-8 name never has more UTF-16 units than bytes.
    joined.path_.reserve(base.length() + name.size() + 1);
    joined.path_.append(base.path_);
    joined.append(name);
    return joined;
}

Pathname Pathname::join(const Pathname& base, const char16_t* name, size_t length) {
    Pathname joined;
    joined.path_.reserve(base.length() + length + 1);
    joined.path_.append(base.path_);
    joined.append(name, length);
    return joined;
}

Pathname& Pathname::append(StrSegment utf8) {
    if (utf8.empty()) {
        return *this;
    }
    WStr wide;
    Str::appendToWide(wide, utf8.data(), utf8.size());
    return append(wide.data(), wide.size());
}

Pathname& Pathname::appendWide(const char16_t* wide) {
    if (wide == nullptr) {
        return *this;
    }
    return append(wide, std::char_traits<char16_t>::length(wide));
}

Pathname& Pathname::append(const char16_t* part, size_t length) {
    if (length == 0) {
        return *this;
    }
    bool wasEmpty = path_.empty();
    size_t drive = driveLength(part, length);
    if (!wasEmpty) {
        if (!isSeparator(path_.back())) {
            path_ += SEPARATOR;
        }
    } else if (drive == 0) {
        // A path built from components is rooted.
        path_ += SEPARATOR;
    }
    size_t skip = 0;
    if (!(wasEmpty && drive != 0)) {
        while (skip < length && isSeparator(part[skip])) {
            ++skip;
        }
    }
    path_.append(part + skip, length - skip);
    checkLength();
    return *this;
}

void Pathname::checkLength() const {
    if (path_.size() <= MAX_PATH_UNITS || longPathReportDepth > 0) {
        return;
    }
    // Text such as "key=value" is a setting that passes through here, not a path. The root that
    // the append rule put in front of it does not count as its first separator.
    size_t root = driveLength(path_.data(), path_.size());
    if (root < path_.size() && isSeparator(path_[root])) {
        ++root;
    }
    size_t equals = path_.find(u'=', root);
    if (equals != WStr::npos) {
        size_t separator = path_.find(SEPARATOR, root);
        if (separator == WStr::npos || equals < separator) {
            return;
        }
    }
    ReportDepthGuard guard;
    LastErrorPreserver keep;
    try {
        Str callers;
        appendCallSites(callers);
        Str text = toStr();
        diagnostics().warn("Pathname '%s' larger than MAX_PATH, callers: %s", text.c_str(),
                           callers.c_str());
    } catch (...) {
        // The report is advice; the operation goes on without it.
    }
}

Pathname Pathname::absoluteClean(const WStr& path) {
    Pathname result;
    if (path.empty()) {
        return result;
    }
    WStr text = path;
    makeAbsoluteText(text);
    result.path_ = cleanText(text);
    result.checkLength();
    return result;
}

WStr Pathname::cleanText(const WStr& text) {
    const char16_t* p = text.data();
    size_t n = text.size();
    // Device and long-path prefixes ("\\?\", "\\.\") mean exactly what they say.
    if (HAS_DRIVES && n >= 4 && isAnySeparator(p[0]) && isAnySeparator(p[1]) &&
        (p[2] == u'?' || p[2] == u'.') && isAnySeparator(p[3])) {
        return text;
    }
    WStr root(p, driveLength(p, n));
    size_t i = root.size();
    // Components that ".." may not take away: the server and share of a UNC path.
    size_t fixed = 0;
    if (i < n && isAnySeparator(p[i])) {
        if (HAS_DRIVES && i == 0 && n > 1 && isAnySeparator(p[1])) {
            root.append(2, SEPARATOR);
            fixed = 2;
        } else {
            root += SEPARATOR;
        }
    }
    bool rooted = !root.empty() && isSeparator(root.back());
    std::vector<WStr> parts;
    while (i < n) {
        while (i < n && isAnySeparator(p[i])) {
            ++i;
        }
        size_t start = i;
        while (i < n && !isAnySeparator(p[i])) {
            ++i;
        }
        WStr part(p + start, i - start);
        if (part.empty() || part == u".") {
            continue;
        }
        if (part == u".." && parts.size() > fixed && parts.back() != u"..") {
            parts.pop_back();
        } else if (part != u".." || !rooted) {
            // Above the root there is nothing; a relative path keeps its leading "..".
            parts.push_back(std::move(part));
        }
    }
    WStr result = root;
    for (size_t k = 0; k < parts.size(); ++k) {
        if (k > 0) {
            result += SEPARATOR;
        }
        result += parts[k];
    }
    return result;
}

Pathname Pathname::dirName() const {
    const char16_t* p = path_.data();
    size_t drive = driveLength(p, path_.size());
    bool rooted = path_.size() > drive && isSeparator(p[drive]);
    size_t end = path_.size();
    while (end > drive && isSeparator(p[end - 1])) {
        --end;
    }
    while (end > drive && !isSeparator(p[end - 1])) {
        --end;
    }
    while (end > drive && isSeparator(p[end - 1])) {
        --end;
    }
    Pathname result;
    if (end > drive) {
        result.path_.assign(p, end);
    } else if (drive != 0) {
        result.path_.assign(p, drive);
        result.path_ += SEPARATOR;
    } else if (rooted) {
        result.path_ += SEPARATOR;
    }
    return result;
}

WStr Pathname::baseName() const {
    const char16_t* p = path_.data();
    size_t drive = driveLength(p, path_.size());
    size_t end = path_.size();
    while (end > drive && isSeparator(p[end - 1])) {
        --end;
    }
    size_t start = end;
    while (start > drive && !isSeparator(p[start - 1])) {
        --start;
    }
    return WStr(p + start, end - start);
}

bool Pathname::makeDirectories(uint32_t mode) const {
    const char16_t* p = path_.data();
    size_t root = driveLength(p, path_.size());
    if (root < path_.size() && isAnySeparator(p[root])) {
        ++root;
    }
    return makeDirectoriesFrom(root, mode);
}

bool Pathname::makeDirectoriesFrom(size_t root, uint32_t mode) const {
    if (root >= path_.size()) {
        return true;
    }
    if (isDirectory()) {
        return true;
    }
    const char16_t* p = path_.data();
    size_t end = path_.size();
    while (end > root && isAnySeparator(p[end - 1])) {
        --end;
    }
    while (end > root && !isAnySeparator(p[end - 1])) {
        --end;
    }
    while (end > root && isAnySeparator(p[end - 1])) {
        --end;
    }
    if (end > root) {
        Pathname parent;
        parent.path_.assign(p, end);
        if (!parent.makeDirectoriesFrom(root, mode)) {
            return false;
        }
    }
    if (createDirectory(mode)) {
        return true;
    }
    uint32_t error = LastError::get();
    // Another creator may have won the race; only a directory there counts as success.
    if (isAlreadyExistsError(error) && isDirectory()) {
        return true;
    }
    LastError::set(error);
    return false;
}

bool Pathname::listDirectory(std::vector<WStr>& names) const {
    if (path_.empty()) {
        Str callers;
        appendCallSites(callers);
        diagnostics().warn("Pathname empty being opened for listing, callers: %s", callers.c_str());
        setPathNotFoundError();
        return false;
    }
    return readDirectory(names);
}

RenameResult Pathname::renameWithRetry(const Pathname& to, uint32_t attempts, uint32_t pauseMs,
                                       bool replaceFiles) const {
    RenameResult result;
    result.operation = "Rename";
    result.firstAttempt = Timeval::now();
    for (;;) {
        ++result.attempts;
        result.lastAttempt = Timeval::now();
        if (rename(to) == 0) {
            result.succeeded = 1;
            result.lastError = 0;
            return result;
        }
        result.lastError = LastError::get();
        uint32_t code = portableErrorCode(result.lastError);
        if (replaceFiles && code == kNotSameDevice) {
            if (copyThroughTemporary(to)) {
                result.succeeded = 1;
                result.lastError = 0;
                return result;
            }
            // The copy's own failure tells the caller more than "different device".
            result.lastError = LastError::get();
            return result;
        }
        if (!isRetried(code) || result.attempts >= attempts) {
            LastError::set(result.lastError);
            return result;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
    }
}

bool Pathname::copyThroughTemporary(const Pathname& to) const {
    Pathname temporary;
    if (!to.makeTempSibling(temporary)) {
        return false;
    }
    bool copied = false;
    {
        FileHandle source = openForRead();
        FileHandle target = source ? temporary.openForWrite() : FileHandle();
        if (target) {
            char buffer[64 * 1024];
            copied = true;
            for (;;) {
                int64_t got = source.read(buffer, sizeof buffer);
                if (got == 0) {
                    break;
                }
                if (got < 0 || !target.write(buffer, static_cast<size_t>(got))) {
                    copied = false;
                    break;
                }
            }
            copied = copied && target.sync() && target.close();
        }
    }
    if (copied && temporary.rename(to) == 0) {
        // A rename leaves no source behind; the target is in place even if this fails.
        LastErrorPreserver keep;
        removeFile();
        return true;
    }
    LastErrorPreserver keep;
    temporary.removeFile();
    return false;
}

int Pathname::makeTempSibling(Pathname& result) const {
    for (int attempt = 0; attempt < 5; ++attempt) {
        Pathname directory = dirName();
        uint64_t bits = threadRandom()();
        char name[32];
        int length = 0;
        for (int i = 0; i < 8; ++i) {
            length += std::snprintf(name + length, sizeof name - length, "%02x",
                                    static_cast<unsigned>((bits >> (8 * i)) & 0xFF));
        }
        std::snprintf(name + length, sizeof name - length, ".rename_tmp");
        Pathname candidate = join(directory, name);
        if (candidate.createExclusive()) {
            result = std::move(candidate);
            return 1;
        }
    }
    return 0;
}

}  // namespace morvax
