#include "input/WMIDataOutputter.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string_view>
#include <thread>

#include "input/WMILogger.h"
#include "util/regex/Regex.h"

namespace morvax {

namespace {

constexpr std::string_view HEADER_START("***MORVAX***");

// A line end, the end-of-event marker and a header line: what a value must not hold, or the
// reader would cut an event of its own out of it.
const Regex& forgedEventPattern() {
    static const Regex* pattern =
        new Regex("\\s-{3}morvax-wmi-end-of-event-{3}\\s+\\*{3}MORVAX\\*{3}.+");
    return *pattern;
}

const WStr MESSAGE(u"Message");

// Whole events from several threads' outputters: the system keeps one write whole only up to a
// pipe's atomic size, and events are larger.
struct OutputLock {
    std::mutex mutex;
    // The thread that holds `mutex` through an OutputHold. Only that thread can find its own
    // id here, so a relaxed read tells each thread whether it is the holder.
    std::atomic<std::thread::id> holder{};

    bool heldHere() const {
        return holder.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }
};

OutputLock& outputLock() {
    static OutputLock* lock = new OutputLock;
    return *lock;
}

// More than the processors ever set around one event.
constexpr size_t MAX_SPARE_NODES = 8;

}  // namespace

WMIDataOutputter::OutputHold::OutputHold() {
    OutputLock& lock = outputLock();
    if (lock.heldHere()) {
        return;
    }
    lock.mutex.lock();
    lock.holder.store(std::this_thread::get_id(), std::memory_order_relaxed);
    owns_ = true;
}

WMIDataOutputter::OutputHold::~OutputHold() {
    if (owns_) {
        OutputLock& lock = outputLock();
        lock.holder.store(std::thread::id(), std::memory_order_relaxed);
        lock.mutex.unlock();
    }
}

WMIDataOutputter::~WMIDataOutputter() = default;

WStr WMIDataOutputter::headerStart(const WStr& index, const WStr& typeName) {
    WStr text(u"***MORVAX*** index=");
    text += index;
    text += u" source=\"WMI:";
    text += typeName;
    text += u"\" sourcetype=\"WMI:";
    text += typeName;
    text += u"\"\n";
    text += END_OF_EVENT;
    return text;
}

void WMIDataOutputter::writeData(ResultBatch::iterator first, ResultBatch::iterator last) {
    const OutputHold hold;
    for (; first != last; ++first) {
        writeEvent(first);
    }
}

void WMIDataOutputter::writeEvent(ResultBatch::iterator position) {
    const EventRecord& record = *position;
    buffer_.clear();
    if (!header_.empty()) {
        buffer_.appendWide(header_);
    }
    // Message goes last, behind the fixed properties; a fixed property hides the record's own.
    // Both maps have one order, so one walk over both finds the hidden ones.
    auto message = record.end();
    auto fixed = fixedProperties_.begin();
    const auto fixedEnd = fixedProperties_.end();
    for (auto it = record.begin(); it != record.end(); ++it) {
        if (it->first.size() == MESSAGE.size() && it->first == MESSAGE) {
            message = it;
            continue;
        }
        while (fixed != fixedEnd && fixed->first < it->first) {
            ++fixed;
        }
        if (fixed != fixedEnd && fixed->first == it->first) {
            continue;
        }
        appendGuardedLine(it->first, it->second);
    }
    for (const auto& [name, value] : fixedProperties_) {
        appendGuardedLine(name, value);
    }
    if (message != record.end()) {
        appendGuardedLine(message->first, message->second);
    }
    if (!footer_.empty()) {
        buffer_.appendWide(footer_);
    }
    writeBuffer();
}

void WMIDataOutputter::writeRow(std::string_view header, const RowBatch& batch, size_t row,
                                const FixedValues& fixed) {
    const RowPlan& plan = batch.plan(row);
    const std::string_view rowText = batch.rowText(row);
    // Room for all of it at once: each line is then written in place, and a line's head is
    // copied whole, so there is room for one beyond the end.
    size_t most = header.size() + plan.lineBytes() + rowText.size() + END_OF_EVENT_UTF8.size() +
                  RowPlan::kHead;
    for (uint32_t set = fixed.set, slot = 0; set != 0; set >>= 1, ++slot) {
        if ((set & 1) != 0) {
            most += fixed.values[slot].size();
        }
    }
    buffer_.clear();
    char* out = buffer_.reserveTail(most);
    out = EventBuffer::copy(out, header.data(), header.size());
    // A value that forges a header holds its start, so a row whose lines hold none (nearly every
    // row) needs no value searched on its own; nor, when no value is cut at a NUL either, any
    // line of its own looked at again.
    if (rowText.find(HEADER_START) == std::string_view::npos && batch.whole(row)) {
        out = copyLinesBefore(out, batch, row, fixed.set);
        for (const RowPlan::Line& line : plan.fixedLines()) {
            const uint32_t bit = 1u << line.slot;
            if ((fixed.set & bit) != 0) {
                out = (fixed.plain & bit) != 0
                          ? appendLine(out, line, fixed.values[line.slot])
                          : appendFixedLine(out, line, fixed.values[line.slot]);
            }
        }
        const std::string_view behind = batch.linesBehind(row);
        out = EventBuffer::copy(out, behind.data(), behind.size());
    } else {
        for (const RowPlan::Line& line : plan.lines()) {
            if (line.fixed) {
                if ((fixed.set & (1u << line.slot)) != 0) {
                    out = appendFixedLine(out, line, fixed.values[line.slot]);
                }
                continue;
            }
            const RowBatch::Value& v = batch.value(row, line.slot);
            if (!v.present() || (line.hiddenBy & fixed.set) != 0) {
                continue;
            }
            const std::string_view value = batch.text(v);
            if (value.size() >= HEADER_START.size() && forgesEvent(value)) {
                continue;
            }
            out = appendLine(out, line, value.substr(0, std::min(value.find('\0'), value.size())));
        }
    }
    out = EventBuffer::copy(out, END_OF_EVENT_UTF8.data(), END_OF_EVENT_UTF8.size());
    buffer_.commitTail(out);
    writeBuffer();
}

char* WMIDataOutputter::copyLinesBefore(char* out, const RowBatch& batch, size_t row,
                                        uint32_t fixedSet) {
    const std::string_view before = batch.linesBefore(row);
    const RowPlan& plan = batch.plan(row);
    size_t from = 0;
    if ((plan.hidingFixed() & fixedSet) != 0) {
        // The lines of columns that a fixed property hides are left out.
        for (uint32_t l : plan.hidableLines()) {
            const RowPlan::Line& line = plan.lines()[l];
            const RowBatch::Value& v = batch.value(row, line.slot);
            if ((line.hiddenBy & fixedSet) == 0 || !v.present()) {
                continue;
            }
            const size_t at = batch.lineOffset(row, line, v);
            out = EventBuffer::copy(out, before.data() + from, at - from);
            from = at + RowBatch::lineLength(line, v);
        }
    }
    return EventBuffer::copy(out, before.data() + from, before.size() - from);
}

char* WMIDataOutputter::appendFixedLine(char* out, const RowPlan::Line& line,
                                        std::string_view value) {
    if (value.size() >= HEADER_START.size() && forgesEvent(value)) {
        return out;
    }
    return appendLine(out, line, value.substr(0, std::min(value.find('\0'), value.size())));
}

char* WMIDataOutputter::appendLine(char* out, const RowPlan::Line& line, std::string_view value) {
    if (line.prefix.size() <= RowPlan::kHead) {
        std::memcpy(out, line.head, RowPlan::kHead);
        out += line.prefix.size();
    } else {
        out = EventBuffer::copy(out, line.prefix.data(), line.prefix.size());
    }
    out = EventBuffer::copy(out, value.data(), value.size());
    *out++ = '\n';
    return out;
}

void WMIDataOutputter::writeBuffer() {
    // The event goes straight to the file, past the stream's own buffer and its locking: what
    // the stream held before goes first, and whoever writes to the stream later flushes it.
    if (file_ == FileHandle::INVALID) {
        std::fflush(stream_);
        file_ = FileHandle::ofStream(stream_);
    }
    if (buffer_.empty()) {
        return;
    }
    if (file_ == FileHandle::INVALID) {
        std::fwrite(buffer_.data(), 1, buffer_.size(), stream_);
        std::fflush(stream_);
        return;
    }
    OutputLock& lock = outputLock();
    if (lock.heldHere()) {
        FileHandle::writeTo(file_, buffer_.data(), buffer_.size());
        return;
    }
    const std::lock_guard<std::mutex> guard(lock.mutex);
    FileHandle::writeTo(file_, buffer_.data(), buffer_.size());
}

bool WMIDataOutputter::plainFixedValue(std::string_view value) {
    return value.find('\0') == std::string_view::npos &&
           value.find(HEADER_START) == std::string_view::npos;
}

bool WMIDataOutputter::forgesEvent(std::string_view value) {
    if (value.find(HEADER_START) == std::string_view::npos ||
        !forgedEventPattern().search(StrSegment(value))) {
        return false;
    }
    const Str copy(value);
    wmiLogger().error("Found pattern - \\n***MORVAX*** in data %s. This data will not be printed.",
                      copy.c_str());
    return true;
}

void WMIDataOutputter::appendGuardedLine(const WStr& name, const WStr& value) {
    const size_t lineStart = buffer_.size();
    // Lines are printed as C strings: a NUL ends the text there.
    const size_t nameNul = buffer_.appendWide(name);
    if (nameNul != EventBuffer::NO_NUL) {
        buffer_.truncate(nameNul);
    }
    buffer_.append('=');
    const size_t valueStart = buffer_.size();
    const size_t valueNul = buffer_.appendWide(value);
    const std::string_view text(buffer_.data() + valueStart, buffer_.size() - valueStart);
    if (text.size() >= HEADER_START.size() && forgesEvent(text)) {
        buffer_.truncate(lineStart);
        return;
    }
    if (valueNul != EventBuffer::NO_NUL) {
        buffer_.truncate(valueNul);
    }
    buffer_.append('\n');
}

void WMIDataOutputter::setFixedProperty(const WStr& name, const WStr& value) {
    const auto found = fixedProperties_.find(name);
    if (found != fixedProperties_.end()) {
        found->second = value;
        return;
    }
    for (auto& spare : spareNodes_) {
        if (spare.key() == name) {
            EventRecord::node_type node = std::move(spare);
            spare = std::move(spareNodes_.back());
            spareNodes_.pop_back();
            node.mapped() = value;
            fixedProperties_.insert(std::move(node));
            return;
        }
    }
    fixedProperties_.emplace(name, value);
}

void WMIDataOutputter::removeFixedProperty(const WStr& name) {
    EventRecord::node_type node = fixedProperties_.extract(name);
    if (!node.empty() && spareNodes_.size() < MAX_SPARE_NODES) {
        spareNodes_.push_back(std::move(node));
    }
}

}  // namespace morvax
