#include "wmi/sim/SimServices.h"

#include <algorithm>

#include "wmi/sim/SimBuiltins.h"
#include "wmi/sim/SimEventEnumerator.h"
#include "wmi/sim/SimHostWorld.h"
#include "wmi/sim/SimListEnumerator.h"
#include "wmi/wql/WqlParser.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

bool knownName(const SimClass& cls, const QualifiedName& name) {
    if (name.names.empty()) {
        return true;
    }
    const std::u16string& first = name.names.front();
    return (first.size() > 2 && first[0] == u'_' && first[1] == u'_') || cls.find(first) >= 0;
}

// Every property the condition names exists in the class (the first step of a dotted one).
bool knownNames(const SimClass& cls, const WqlExpr* e) {
    if (!e) {
        return true;
    }
    if (e->kind != WqlExpr::Kind::COMPARE) {
        for (const auto& child : e->children) {
            if (!knownNames(cls, child.get())) {
                return false;
            }
        }
        return true;
    }
    const bool self = (e->op == WMIQ_RPN_OP_ISA || e->op == WMIQ_RPN_OP_ISNOTA) &&
                      e->left.names.size() == 1 && WqlText::isWord(e->left.names[0], "__this");
    return (self || knownName(cls, e->left)) && knownName(cls, e->right);
}

// What the top-level conditions say of an event-log query, so that a query for a few records
// does not walk a whole generated log. WHERE is still tested on every candidate.
struct RecordHints {
    bool hasLog = false;
    std::u16string log;
    int64_t low = INT64_MIN;  // record numbers, both ends included
    int64_t high = INT64_MAX;

    void take(const WqlExpr* e) {
        if (!e) {
            return;
        }
        if (e->kind == WqlExpr::Kind::AND) {
            for (const auto& child : e->children) {
                take(child.get());
            }
            return;
        }
        if (e->kind != WqlExpr::Kind::COMPARE || e->left.names.size() != 1 ||
            !e->right.names.empty()) {
            return;
        }
        const std::u16string& name = e->left.names[0];
        if (WqlText::isWord(name, "logfile") && e->op == WMIQ_RPN_OP_EQ &&
            e->constant.vt == VT_BSTR && !hasLog) {
            hasLog = true;
            log = e->constant.str;
            return;
        }
        if (!WqlText::isWord(name, "recordnumber")) {
            return;
        }
        int64_t v;
        if (e->constant.vt == VT_I4 || e->constant.vt == VT_I8) {
            v = e->constant.i;
        } else if (e->constant.vt == VT_UI8) {
            v = e->constant.u > static_cast<uint64_t>(INT64_MAX)
                    ? INT64_MAX
                    : static_cast<int64_t>(e->constant.u);
        } else {
            return;
        }
        switch (e->op) {
            case WMIQ_RPN_OP_EQ:
                low = std::max(low, v);
                high = std::min(high, v);
                break;
            case WMIQ_RPN_OP_GT:
                low = std::max(low, v == INT64_MAX ? v : v + 1);
                break;
            case WMIQ_RPN_OP_GE:
                low = std::max(low, v);
                break;
            case WMIQ_RPN_OP_LT:
                high = std::min(high, v == INT64_MIN ? v : v - 1);
                break;
            case WMIQ_RPN_OP_LE:
                high = std::min(high, v);
                break;
            default:
                break;
        }
    }
};

}  // namespace

SimServices::SimServices(std::shared_ptr<SimWorldLoader> loader, std::u16string server,
                         std::u16string nameSpace)
    : loader_(std::move(loader)), server_(std::move(server)), nameSpace_(std::move(nameSpace)) {}

HRESULT SimServices::locate(Prepared& p) {
    loader_->refresh();
    p.world = loader_->world();
    p.host = p.world->findHost(server_);
    if (!p.host) {
        return RPC_E_SERVER_UNAVAILABLE;
    }
    p.nameSpace = p.host->findNamespace(nameSpace_);
    return p.nameSpace ? WBEM_S_NO_ERROR : WBEM_E_INVALID_NAMESPACE;
}

HRESULT SimServices::prepare(const std::u16string& wql, Prepared& p) {
    HRESULT hr = locate(p);
    if (p.host && failed(p.host->faults().execQuery)) {
        return p.host->faults().execQuery;
    }
    if (failed(hr)) {
        return hr;
    }
    std::unique_ptr<WqlQuery> query;
    if (failed(WqlParser::parse(wql, WqlParser::Mode::PROVIDER, query)) ||
        query->isAssociatorsOrReferences()) {
        return WBEM_E_INVALID_QUERY;
    }
    p.query = std::move(query);
    p.cls = p.nameSpace->find(p.query->className());
    if (!p.cls) {
        return WBEM_E_INVALID_CLASS;
    }
    if (p.cls->source() == SimClass::Source::ABSTRACT) {
        return WBEM_S_NO_ERROR;  // its properties are not known here
    }
    for (const QualifiedName& name : p.query->selectList()) {
        if (!knownName(*p.cls, name)) {
            return WBEM_E_INVALID_QUERY;
        }
    }
    if (!knownNames(*p.cls, p.query->where())) {
        return WBEM_E_INVALID_QUERY;
    }
    return WBEM_S_NO_ERROR;
}

void SimServices::eventLogSegments(const Prepared& p,
                                   std::vector<SimEnumerator::Segment>& out) const {
    RecordHints hints;
    hints.take(p.query->where());
    const WqlProjection projection(p.query->selectList());
    for (const auto& log : p.host->eventLogs()) {
        if (hints.hasLog && !WqlText::equalNoCase(hints.log, log->name())) {
            continue;
        }
        SimEnumerator::Segment s;
        log->refresh();
        size_t count = 0;
        log->records(s.records, count);
        // File records carry their own numbers: narrowed where they ascend.
        s.records->narrow(count, hints.low, hints.high, s.recordsBegin, s.recordsEnd);
        s.shape = std::make_shared<const SimObjectShape>(SimBuiltins::ntLogEvent(), projection,
                                                         p.nameSpace->name(), log->synthetic());
        const int64_t generated = static_cast<int64_t>(log->setup().synthetic);
        const int64_t first = std::max<int64_t>(hints.low, 1);
        const int64_t last = std::min<int64_t>(hints.high, generated);
        if (first <= last) {
            s.generatedBegin = static_cast<uint64_t>(first - 1);
            s.generatedEnd = static_cast<uint64_t>(last);
        }
        s.generatedFirst = true;
        s.reverse = log->descending();
        out.push_back(std::move(s));
    }
}

std::vector<SimEnumerator::Segment> SimServices::segments(const Prepared& p) const {
    std::vector<SimEnumerator::Segment> out;
    const WqlProjection projection(p.query->selectList());
    for (const auto& cls : p.nameSpace->withDerived(p.cls)) {
        switch (cls->source()) {
            case SimClass::Source::WORLD: {
                SimEnumerator::Segment s;
                std::shared_ptr<const SimSynthetic> synthetic;
                if (cls->synthetic() > 0) {
                    synthetic = std::make_shared<const SimSynthetic>(cls);
                }
                s.shape = std::make_shared<const SimObjectShape>(cls, projection,
                                                                 p.nameSpace->name(), synthetic);
                s.stored = p.nameSpace->instancesOf(*cls);
                s.generatedEnd = cls->synthetic();
                out.push_back(std::move(s));
                break;
            }
            case SimClass::Source::HOST: {
                SimEnumerator::Segment s;
                s.shape =
                    std::make_shared<const SimObjectShape>(cls, projection, p.nameSpace->name());
                SimHostWorld::fill(cls, s.stored);
                out.push_back(std::move(s));
                break;
            }
            case SimClass::Source::EVENT_LOG:
                eventLogSegments(p, out);
                break;
            case SimClass::Source::NONE:
            case SimClass::Source::ABSTRACT:
                break;
        }
    }
    return out;
}

HRESULT SimServices::execQuery(const std::u16string& wql, std::unique_ptr<Enumerator>& out) {
    out.reset();
    Prepared p;
    HRESULT hr = prepare(wql, p);
    if (failed(hr)) {
        return hr;
    }
    if (p.query->isEventQuery()) {
        return WBEM_E_INVALID_QUERY;
    }
    out = std::make_unique<SimEnumerator>(p.query, segments(p), p.host->faults());
    return WBEM_S_NO_ERROR;
}

HRESULT SimServices::execNotificationQuery(const std::u16string& wql,
                                           std::unique_ptr<Enumerator>& out) {
    out.reset();
    Prepared p;
    HRESULT hr = prepare(wql, p);
    if (failed(hr)) {
        return hr;
    }
    if (!p.cls->isA(u"__Event")) {
        return WBEM_E_NOT_EVENT_CLASS;
    }
    out = std::make_unique<SimEventEnumerator>(p.query, p.cls, p.world, *p.host, *p.nameSpace);
    return WBEM_S_NO_ERROR;
}

namespace {

std::shared_ptr<ClassObject> definition(const std::shared_ptr<const SimClass>& cls,
                                        const SimNamespace& ns) {
    auto instance = std::make_shared<const SimInstance>(
        cls, std::vector<Variant>(cls->properties().size(), Variant::null()));
    return SimClassObject::whole(std::move(instance), ns.name());
}

bool isSystemClass(const std::u16string& name) {
    return name.size() > 2 && name[0] == u'_' && name[1] == u'_';
}

}  // namespace

HRESULT SimServices::getObject(const std::u16string& path, std::shared_ptr<ClassObject>& out) {
    out.reset();
    Prepared p;
    HRESULT hr = locate(p);
    if (failed(hr)) {
        return hr;
    }
    // Only class paths: an instance path ("Class.Key=...") names no class of the world.
    std::shared_ptr<const SimClass> cls;
    if (WqlText::isName(path)) {
        cls = p.nameSpace->find(path);
    }
    if (!cls) {
        return WBEM_E_NOT_FOUND;
    }
    out = definition(cls, *p.nameSpace);
    return WBEM_S_NO_ERROR;
}

HRESULT SimServices::createClassEnum(std::unique_ptr<Enumerator>& out) {
    out.reset();
    Prepared p;
    HRESULT hr = locate(p);
    if (failed(hr)) {
        return hr;
    }
    std::vector<std::shared_ptr<ClassObject>> objects;
    std::vector<std::u16string> seen;
    auto add = [&](const std::shared_ptr<const SimClass>& cls) {
        for (const std::u16string& name : seen) {
            if (SimClass::sameName(name, cls->name())) {
                return;
            }
        }
        seen.push_back(cls->name());
        objects.push_back(definition(cls, *p.nameSpace));
    };
    for (const auto& cls : p.nameSpace->classes()) {
        if (!isSystemClass(cls->name())) {
            add(cls);
        }
    }
    for (const auto& cls : p.nameSpace->classes()) {
        const std::vector<std::u16string>& chain = cls->derivation();
        for (size_t i = 1; i < chain.size(); ++i) {
            auto superclass = isSystemClass(chain[i]) ? nullptr : p.nameSpace->find(chain[i]);
            if (superclass) {
                add(superclass);
            }
        }
    }
    out = std::make_unique<SimListEnumerator>(std::move(objects));
    return WBEM_S_NO_ERROR;
}

}  // namespace morvax::wmi
