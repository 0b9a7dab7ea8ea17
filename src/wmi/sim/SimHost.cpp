#include "wmi/sim/SimHost.h"

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

std::u16string SimHost::normalizeNamespace(const std::u16string& name) {
    std::u16string out;
    out.reserve(name.size());
    for (char16_t c : name) {
        c = c == u'/' ? u'\\' : c;
        if (c == u'\\' && (out.empty() || out.back() == u'\\')) {
            continue;
        }
        out.push_back(c);
    }
    if (!out.empty() && out.back() == u'\\') {
        out.pop_back();
    }
    return out;
}

const SimNamespace* SimHost::findNamespace(const std::u16string& name) const {
    const std::u16string wanted = normalizeNamespace(name);
    for (const auto& ns : namespaces_) {
        if (WqlText::equalNoCase(ns->name(), wanted)) {
            return ns.get();
        }
    }
    return nullptr;
}

SimNamespace* SimHost::findNamespace(const std::u16string& name) {
    return const_cast<SimNamespace*>(static_cast<const SimHost*>(this)->findNamespace(name));
}

SimNamespace& SimHost::addNamespace(const std::u16string& name) {
    if (SimNamespace* existing = findNamespace(name)) {
        return *existing;
    }
    namespaces_.push_back(std::make_unique<SimNamespace>(normalizeNamespace(name)));
    return *namespaces_.back();
}

const SimEventLog* SimHost::findEventLog(const std::u16string& name) const {
    for (const auto& log : eventLogs_) {
        if (WqlText::equalNoCase(log->name(), name)) {
            return log.get();
        }
    }
    return nullptr;
}

}  // namespace morvax::wmi
