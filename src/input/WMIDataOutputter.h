#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include "input/EventBuffer.h"
#include "input/EventRecord.h"
#include "input/RowBatch.h"
#include "input/RowPlan.h"
#include "util/base/Str.h"
#include "util/io/FileHandle.h"

namespace morvax {

// Writes records as events on a stream (standard output unless told otherwise): header, the
// record's own properties in name order, the fixed properties, Message last, footer, one flush
// per event. A value that could forge the start of another event is dropped and logged.
class WMIDataOutputter {
  public:
    WMIDataOutputter() = default;
    virtual ~WMIDataOutputter();
    WMIDataOutputter(const WMIDataOutputter&) = delete;
    WMIDataOutputter& operator=(const WMIDataOutputter&) = delete;

    // While it lives, the thread that made it keeps standard output to itself, so that a run of
    // events takes the lock that keeps events of several threads whole once, not once per
    // event. Each event is still its own write and flush. On a thread that holds the output
    // already, it does nothing.
    class OutputHold {
      public:
        OutputHold();
        ~OutputHold();
        OutputHold(const OutputHold&) = delete;
        OutputHold& operator=(const OutputHold&) = delete;

      private:
        bool owns_ = false;
    };

    // writeEvent on this object for each record from `first` up to `last`.
    virtual void writeData(ResultBatch::iterator first, ResultBatch::iterator last);
    virtual void writeEvent(ResultBatch::iterator position);

    // The fixed properties of one row's event, by their position in the plan's options: the
    // values of those whose bit is in `set`, in UTF-8.
    struct FixedValues {
        uint32_t set = 0;
        // Values that their processor found plain (see plainFixedValue) once for many events:
        // they go out without a second look.
        uint32_t plain = 0;
        std::string_view values[RowPlan::kMaxFixed];
        void put(uint32_t slot, std::string_view value, bool isPlain = false) {
            set |= 1u << slot;
            plain = isPlain ? plain | 1u << slot : plain & ~(1u << slot);
            values[slot] = value;
        }
    };
    // Whether a fixed value holds neither a NUL, which would cut it, nor a header's start, which
    // might forge an event: such a value is written as it stands.
    static bool plainFixedValue(std::string_view value);
    // Whether this outputter writes events, so that rows may come to it instead of records.
    virtual bool writesRows() const { return true; }
    // Writes row `row` of `batch` as writeEvent writes its record: `header` (UTF-8, the time line
    // included), the lines of the row's plan, the end-of-event marker, one flush.
    void writeRow(std::string_view header, const RowBatch& batch, size_t row,
                  const FixedValues& fixed);

    // Copied into the text kept from the last event, which is mostly long enough already.
    void setHeader(const WStr& header) { header_ = header; }
    void setFooter(const WStr& footer) { footer_ = footer; }
    const WStr& header() const { return header_; }
    const WStr& footer() const { return footer_; }

    // Replaces an older value of the same name.
    void setFixedProperty(const WStr& name, const WStr& value);
    void removeFixedProperty(const WStr& name);
    const EventRecord& fixedProperties() const { return fixedProperties_; }

    // The marker that ends the header's first line and, as footer, every event.
    static constexpr const char16_t* END_OF_EVENT = u"\n---morvax-wmi-end-of-event---\n";
    static constexpr std::string_view END_OF_EVENT_UTF8 = "\n---morvax-wmi-end-of-event---\n";
    // The header up to its time line: the index and source line, then the marker.
    static WStr headerStart(const WStr& index, const WStr& typeName);

    // Test hook: where events go. Not owned.
    void setStream(std::FILE* stream) {
        stream_ = stream;
        file_ = FileHandle::INVALID;
    }

  protected:
    WStr header_;
    WStr footer_;
    EventRecord fixedProperties_;
    std::FILE* stream_ = stdout;
    // The file under stream_, written directly once what the stream held was flushed.
    FileHandle::Native file_ = FileHandle::INVALID;

  private:
    // Adds "name=value" and LF to the event, unless the value could forge the start of an event.
    void appendGuardedLine(const WStr& name, const WStr& value);
    // Whether a value that holds the start of a header could forge an event; if so, logs that it
    // is dropped.
    static bool forgesEvent(std::string_view value);
    // The lines of the row before its fixed properties, less those that a fixed property in
    // `fixedSet` hides.
    static char* copyLinesBefore(char* out, const RowBatch& batch, size_t row, uint32_t fixedSet);
    static char* appendFixedLine(char* out, const RowPlan::Line& line, std::string_view value);
    static char* appendLine(char* out, const RowPlan::Line& line, std::string_view value);
    // Hands the event in the buffer to the system in one write, which is its flush.
    void writeBuffer();

    EventBuffer buffer_;
    // Entries of removed fixed properties, kept for the next event that sets the same name again,
    // so that setting and removing them around every event allocates nothing.
    std::vector<EventRecord::node_type> spareNodes_;
};

}  // namespace morvax
