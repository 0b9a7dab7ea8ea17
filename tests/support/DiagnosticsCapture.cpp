#include "support/DiagnosticsCapture.h"

#include <atomic>

#include "util/base/LastError.h"
#include "util/base/LogLevel.h"
#include "util/base/Str.h"

namespace morvax::test {

namespace {

// The innermost capture: the hook is a plain function pointer.
std::atomic<DiagnosticsCapture*> current{nullptr};

}  // namespace

std::string Diagnostic::line() const {
    return channel + " " + logLevelName(level) + " " + text;
}

DiagnosticsCapture::DiagnosticsCapture(Observer observer)
    : observer_(std::move(observer)),
      previous_(setDiagnosticsHook(&DiagnosticsCapture::record)),
      outer_(current.exchange(this)) {}

DiagnosticsCapture::~DiagnosticsCapture() {
    current.store(outer_);
    setDiagnosticsHook(previous_);
}

void DiagnosticsCapture::record(DiagnosticsChannel& channel, int32_t level, const char* fmt,
                                va_list args) {
    DiagnosticsCapture* self = current.load();
    if (self == nullptr) {
        return;
    }
    LastErrorPreserver keep;
    Str text;
    text.appendFormatErrorV(keep.saved(), fmt, args);
    Diagnostic entry{channel.name(), level, text.toStdString()};
    {
        std::lock_guard<std::mutex> hold(self->lock_);
        self->entries_.push_back(entry);
    }
    if (self->observer_) {
        self->observer_(entry);
    }
}

std::vector<Diagnostic> DiagnosticsCapture::entries() const {
    std::lock_guard<std::mutex> hold(lock_);
    return entries_;
}

std::vector<Diagnostic> DiagnosticsCapture::entriesOf(const std::string& channel) const {
    std::vector<Diagnostic> result;
    for (const Diagnostic& entry : entries()) {
        if (entry.channel == channel) {
            result.push_back(entry);
        }
    }
    return result;
}

std::vector<std::string> DiagnosticsCapture::lines() const {
    std::vector<std::string> result;
    for (const Diagnostic& entry : entries()) {
        result.push_back(entry.line());
    }
    return result;
}

bool DiagnosticsCapture::has(int32_t level, const std::string& text) const {
    for (const Diagnostic& entry : entries()) {
        if (entry.level == level && entry.text == text) {
            return true;
        }
    }
    return false;
}

}  // namespace morvax::test
