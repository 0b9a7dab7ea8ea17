#include "conf/ConfPathMapperManager.h"
#include "util/thread/ScopedLock.h"

#include <algorithm>
#include <cstring>

#include "conf/ConfLoggers.h"
#include "conf/ConfPathMapper.h"

namespace morvax {

namespace {

const StrSegment kUsersBase("$users-base$");

// What a handler makes of a directory. Only "conf" maps .conf files; the others serve kinds of
// content the collector never reads, and so add nothing to a .conf type.
enum class Handler { CONF, DEFAULT_ITERATOR, IGNORE, META_ONLY, NOT_CONF, UNKNOWN };

struct HandlerName {
    const char* name;
    Handler handler;
};
constexpr HandlerName kHandlers[] = {
    {"conf", Handler::CONF},        {"default", Handler::DEFAULT_ITERATOR},
    {"ignore", Handler::IGNORE},    {"confdb", Handler::META_ONLY},
    {"xml", Handler::NOT_CONF},     {"models", Handler::NOT_CONF},
    {"lookups", Handler::NOT_CONF}, {"searchscripts", Handler::NOT_CONF},
    {"history", Handler::NOT_CONF},
};

Handler handlerNamed(const Str& name) {
    for (const HandlerName& entry : kHandlers) {
        if (name.view() == entry.name) {
            return entry.handler;
        }
    }
    return Handler::UNKNOWN;
}

void splitComponents(const Str& text, std::vector<Str>& out) {
    size_t start = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || text[i] == '/' || text[i] == '\\') {
            if (i > start) {
                out.emplace_back(StrSegment(text.data() + start, i - start));
            }
            start = i + 1;
        }
    }
}

bool isAbsolute(const Str& text) {
    return !text.empty() &&
           (text[0] == '/' || text[0] == '\\' || (text.size() > 1 && text[1] == ':'));
}

}  // namespace

ConfPathMapperManager::ConfPathMapperManager(const Directories& directories,
                                             const ConfSettings& settings, Mode mode)
    : directories_(directories), mode_(mode) {
    for (const auto& [pathTemplate, handler] : settings.bootstrapEntries()) {
        const bool userEntry = pathTemplate.view().starts_with(kUsersBase.view());
        if ((mode_ == NO_USER_ENTRIES && userEntry) || (mode_ == USER_ENTRIES_ONLY && !userEntry)) {
            continue;
        }
        Group group;
        runEntry(pathTemplate, handler, group);
        groups_.push_back(std::move(group));
    }
}

std::vector<std::shared_ptr<IConfPathMapper>> ConfPathMapperManager::mappers() const {
    ScopedLock hold(mutex_);
    std::vector<std::shared_ptr<IConfPathMapper>> out;
    for (const Group& group : groups_) {
        for (const auto& [path, mapper] : group) {
            out.push_back(mapper);
        }
    }
    return out;
}

Str ConfPathMapperManager::expandTemplate(const Str& pathTemplate) const {
    // The variables of a context with no user, app or type: the collector's.
    const std::pair<const char*, Str> variables[] = {
        {"$apps-base$", directories_.apps.toStr()},
        {"$apps-slave$", directories_.deployedApps.toStr()},
        {"$users-base$", Pathname::join(directories_.etc, "users").toStr()},
        {"$user-restriction$", Str()},
        {"$app$", Str()},
        {"$user$", Str()},
        {"$type$", Str()},
    };
    Str text = pathTemplate;
    for (const auto& [name, value] : variables) {
        text.replaceAll(name, std::strlen(name), value.data(), value.size());
    }
    // Either separator may stand in the file; the path operations split on the native one only,
    // and a layer's owner is found by comparing paths.
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '/' || text[i] == '\\') {
            text[i] = static_cast<char>(Pathname::SEPARATOR);
        }
    }
    if (!isAbsolute(text)) {
        text = Pathname::join(directories_.etc, text).toStr();
    }
    return text;
}

void ConfPathMapperManager::expandWildcards(const Pathname& base,
                                            const std::vector<Str>& components, size_t next,
                                            std::vector<Pathname>& out) const {
    if (next == components.size()) {
        out.push_back(base);
        return;
    }
    if (components[next].view() != "*") {
        expandWildcards(Pathname::join(base, components[next]), components, next + 1, out);
        return;
    }
    std::vector<WStr> names;
    if (!base.listDirectory(names)) {
        return;
    }
    std::sort(names.begin(), names.end());
    for (const WStr& name : names) {
        const Pathname entry = Pathname::join(base, name);
        if (entry.isDirectory()) {
            expandWildcards(entry, components, next + 1, out);
        }
    }
}

ConfUserContext ConfPathMapperManager::ownerOf(const Pathname& directory, Str& app) const {
    // The layer's base is the directory above default/ or local/.
    const Pathname base = directory.dirName();
    const Pathname parent = base.dirName();
    const Str baseName = Str::fromWide(base.baseName());
    ConfUserContext owner;
    if (base == Pathname::join(directories_.etc, "system")) {
        app = "system";
    } else if (parent.dirName() == Pathname::join(directories_.etc, "users")) {
        owner.user = Str::fromWide(parent.baseName());
        app = baseName;
    } else {
        app = baseName;
    }
    owner.app = app;
    return owner;
}

void ConfPathMapperManager::runEntry(const Str& pathTemplate, const Str& handlerName,
                                     Group& group) {
    const Handler handler = handlerNamed(handlerName);
    // The text up to the first wildcard is one path, whatever its form on this platform; the
    // components from the wildcard on are matched against the directories.
    const Str expanded = expandTemplate(pathTemplate);
    std::vector<Pathname> directories;
    const size_t star = expanded.view().find('*');
    if (star == std::string_view::npos) {
        directories.push_back(Pathname(expanded));
    } else {
        const size_t separator = expanded.view().find_last_of("/\\", star);
        const Pathname base(
            Str(StrSegment(expanded.data(), separator == std::string_view::npos ? 0 : separator)));
        std::vector<Str> components;
        splitComponents(Str(StrSegment(expanded.data() + star, expanded.size() - star)),
                        components);
        expandWildcards(base, components, 0, directories);
    }

    for (const Pathname& directory : directories) {
        const Str text = directory.toStr();
        const Str last = Str::fromWide(directory.baseName());
        if (!last.empty() && last[0] == '.' && last.view() != ".") {
            confPathMapperManagerLogger().debug("Ignoring dot file: %s", text.c_str());
            continue;
        }
        Str app;
        const ConfUserContext owner = ownerOf(directory, app);
        switch (handler) {
            case Handler::CONF: {
                if (!directory.isDirectory()) {
                    continue;
                }
                auto mapper =
                    std::make_shared<ConfPathMapper>(directory, directory.dirName(), owner, app);
                confPathMapperManagerLogger().debug("Added IConfPathMapper: %s",
                                                    mapper->describe().c_str());
                group.emplace(directory.wide(), std::move(mapper));
                break;
            }
            case Handler::DEFAULT_ITERATOR:
                confPathMapperManagerLogger().debug(
                    "Registered iterator path with user=%s, app=%s: %s", owner.user.c_str(),
                    app.c_str(), text.c_str());
                break;
            case Handler::META_ONLY:
                if (last.view().ends_with(".meta")) {
                    break;
                }
                confPathMapperManagerLogger().debug("Skipping non-meta file: %s", text.c_str());
                break;
            case Handler::IGNORE:
            case Handler::NOT_CONF:
                break;
            case Handler::UNKNOWN:
                confPathMapperManagerLogger().error("Unrecognized handler name '%s' for path: %s",
                                                    handlerName.c_str(), text.c_str());
                succeeded_ = false;
                return;
        }
    }
}

}  // namespace morvax
