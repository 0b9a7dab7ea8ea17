#include "input/RowPlan.h"

#include <algorithm>
#include <cstring>

#include "input/EventBuffer.h"
#include "wmi/wql/WqlText.h"

namespace morvax {

namespace {

const WStr MESSAGE(u"Message");
const WStr EVENT_CLASS(u"EventClass");

// The bytes the line writer gives a name.
std::string prefixOf(const WStr& name) {
    std::string prefix = EventBuffer::utf8(name);
    prefix.resize(std::min(prefix.find('\0'), prefix.size()));
    prefix += '=';
    return prefix;
}

}  // namespace

RowPlan::RowPlan(const std::vector<WStr>& names, bool eventClass, const Options& options)
    : names_(names), eventClass_(eventClass) {
    const auto excluded = [&options](const WStr& name) {
        return std::find(options.excluded.begin(), options.excluded.end(), name) !=
               options.excluded.end();
    };
    // As a record keeps them: the first of equal names, in name order.
    for (size_t i = 0; i < names.size(); ++i) {
        const WStr& name = names[i];
        if (excluded(name) || std::find(names.begin(), names.begin() + static_cast<ptrdiff_t>(i),
                                        name) != names.begin() + static_cast<ptrdiff_t>(i)) {
            continue;
        }
        bool byName = false;
        for (size_t j = 0; j < names.size() && !byName; ++j) {
            byName = j != i && names[j] != name && wmi::WqlText::equalNoCase(names[j], name);
        }
        columns_.push_back(Column{name, static_cast<uint32_t>(i), byName});
    }
    if (eventClass && !excluded(EVENT_CLASS) &&
        std::find(names.begin(), names.end(), EVENT_CLASS) == names.end()) {
        columns_.push_back(Column{EVENT_CLASS, kEventClass, false});
    }
    std::sort(columns_.begin(), columns_.end(),
              [](const Column& a, const Column& b) { return a.name < b.name; });

    std::vector<uint32_t> fixedOrder;
    for (uint32_t f = 0; f < options.fixedNames.size() && f < kMaxFixed; ++f) {
        fixedOrder.push_back(f);
    }
    std::sort(fixedOrder.begin(), fixedOrder.end(), [&options](uint32_t a, uint32_t b) {
        return options.fixedNames[a] < options.fixedNames[b];
    });
    uint32_t message = kNoColumn;
    for (uint32_t c = 0; c < columns_.size(); ++c) {
        const WStr& name = columns_[c].name;
        if (name == MESSAGE) {
            message = c;
            continue;
        }
        uint32_t hiddenBy = 0;
        for (uint32_t f : fixedOrder) {
            if (options.fixedNames[f] == name) {
                hiddenBy |= 1u << f;
            }
        }
        lines_.push_back(
            Line{false, c, hiddenBy, columns_[c].index, columns_[c].byName, prefixOf(name), {}});
    }
    firstFixed_ = lines_.size();
    for (uint32_t f : fixedOrder) {
        lines_.push_back(Line{true, f, 0, kNoColumn, false, prefixOf(options.fixedNames[f]), {}});
    }
    endFixed_ = lines_.size();
    if (message != kNoColumn) {
        lines_.push_back(Line{false,
                              message,
                              0,
                              columns_[message].index,
                              columns_[message].byName,
                              prefixOf(MESSAGE),
                              {}});
    }
    for (uint32_t l = 0; l < lines_.size(); ++l) {
        Line& line = lines_[l];
        if (line.hiddenBy != 0) {
            hidingFixed_ |= line.hiddenBy;
            hidableLines_.push_back(l);
        }
        lineBytes_ += line.prefix.size() + 1;
        if (line.prefix.size() <= kHead) {
            std::memcpy(line.head, line.prefix.data(), line.prefix.size());
        }
    }
}

uint32_t RowPlan::find(std::u16string_view name) const {
    const auto found = std::lower_bound(
        columns_.begin(), columns_.end(), name,
        [](const Column& column, std::u16string_view n) { return column.name < n; });
    if (found == columns_.end() || found->name != name) {
        return kNoColumn;
    }
    return static_cast<uint32_t>(found - columns_.begin());
}

}  // namespace morvax
