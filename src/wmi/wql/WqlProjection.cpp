#include "wmi/wql/WqlProjection.h"

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

WqlProjection::WqlProjection(const std::vector<QualifiedName>& selectList)
    : all_(selectList.empty()), list_(selectList) {}

bool WqlProjection::selects(const std::u16string& name) const {
    if (all_) {
        return true;
    }
    for (const QualifiedName& entry : list_) {
        if (!entry.names.empty() && WqlText::equalNoCase(entry.names.front(), name)) {
            return true;
        }
    }
    return false;
}

std::vector<std::u16string> WqlProjection::filter(const std::vector<std::u16string>& names) const {
    if (all_) {
        return names;
    }
    std::vector<std::u16string> out;
    for (const std::u16string& name : names) {
        if (selects(name)) {
            out.push_back(name);
        }
    }
    return out;
}

std::vector<std::u16string> WqlProjection::missing(const std::vector<std::u16string>& names) const {
    std::vector<std::u16string> out;
    if (all_) {
        return out;
    }
    for (const QualifiedName& entry : list_) {
        if (entry.names.empty()) {
            continue;
        }
        bool found = false;
        for (const std::u16string& name : names) {
            found = found || WqlText::equalNoCase(entry.names.front(), name);
        }
        bool listed = false;
        for (const std::u16string& seen : out) {
            listed = listed || WqlText::equalNoCase(seen, entry.names.front());
        }
        if (!found && !listed) {
            out.push_back(entry.names.front());
        }
    }
    return out;
}

WqlProjection WqlProjection::nested(const std::u16string& name) const {
    if (all_) {
        return *this;
    }
    WqlProjection inner;
    inner.all_ = false;
    for (const QualifiedName& entry : list_) {
        if (entry.names.empty() || !WqlText::equalNoCase(entry.names.front(), name)) {
            continue;
        }
        if (entry.names.size() == 1) {
            return WqlProjection();
        }
        QualifiedName tail;
        tail.names.assign(entry.names.begin() + 1, entry.names.end());
        inner.list_.push_back(std::move(tail));
    }
    return inner;
}

}  // namespace morvax::wmi
