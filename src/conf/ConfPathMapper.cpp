#include "conf/ConfPathMapper.h"
#include "util/thread/ScopedLock.h"

#include "conf/ConfLineParser.h"
#include "conf/ConfLoggers.h"
#include "conf/ConfPathBase.h"
#include "conf/InstallationInfo.h"
#include "conf/MatchSearchPruner.h"
#include "util/base/LastError.h"
#include "util/io/FileStarOpen.h"
#include "util/io/ReadableUnicodeFileStarLineReader.h"

namespace morvax {

namespace {

const StrSegment kRootMarker("://.\\");

bool isTypeName(const Str& name) {
    return !name.empty() && name.view().find_first_of("/\\") == std::string_view::npos;
}

}  // namespace

ConfPathMapper::ConfPathMapper(Pathname directory, Pathname rootDirectory, ConfUserContext owner,
                               Str app)
    : directory_(std::move(directory)),
      rootDirectory_(std::move(rootDirectory)),
      owner_(std::move(owner)),
      app_(std::move(app)) {
    isLocal_ = Pathname(directory_.baseName()) == Pathname("local");
    isDefault_ = !isLocal_;
    std::vector<WStr> names;
    if (!directory_.listDirectory(names)) {
        return;
    }
    for (const WStr& name : names) {
        const Str text = Str::fromWide(name);
        const size_t dot = text.view().rfind('.');
        if (dot == std::string_view::npos || text.view().substr(dot + 1) != "conf") {
            continue;
        }
        Str type(StrSegment(text.data(), dot));
        if (isTypeName(type)) {
            types_.emplace(std::move(type), TypeState());
        }
    }
}

Str ConfPathMapper::describe() const {
    return Str("ConfPathMapper ") + directory_.toStr();
}

size_t ConfPathMapper::filesOpened() const {
    ScopedLock hold(mutex_);
    return filesOpened_;
}

void ConfPathMapper::fillSearch(const ConfSearch& search, ConfPathTrie& out) {
    ScopedLock hold(mutex_);
    if (search.type.empty()) {
        return;
    }
    if (search.option == ConfSearch::DEFAULT_ONLY && isLocal_) {
        confPathMapperLogger().debug("Skipping local path=%s", directory_.toStr().c_str());
        return;
    }
    if (search.option == ConfSearch::LOCAL_ONLY && !isLocal_) {
        confPathMapperLogger().debug("Skipping default path=%s", directory_.toStr().c_str());
        return;
    }
    if ((!search.user.empty() && search.user != owner_.user) ||
        (!search.app.empty() && search.app != app_)) {
        return;
    }
    auto type = types_.find(search.type);
    if (type == types_.end()) {
        return;
    }
    if (!type->second.loaded && !type->second.failed) {
        loadType(type->first, type->second);
    }
    MatchSearchPruner pruner(search);
    tree_.copyInto(out, pruner);
}

void ConfPathMapper::loadType(const Str& type, TypeState& state) {
    const Pathname file = Pathname::join(directory_, type + ".conf");
    ++filesOpened_;
    FILE* handle = openFileStar(file.c_str(), "rb");
    if (handle == nullptr) {
        const LastErrorPreserver keep;
        if (file.exists() == Pathname::NOT_FOUND) {
            confPathMapperLogger().debug(
                "Tried to open missing file \"%s\", possibly app was deleted?",
                file.toStr().c_str());
        } else {
            LastError::set(keep.saved());
            confPathMapperLogger().warn("Failed to open: %s: %m", file.toStr().c_str());
        }
        state.failed = true;
        return;
    }
    ReadableUnicodeFileStarLineReader reader(handle, true);
    ConfLineParser parser(reader, file, ConfLineParser::MODE_CONF);

    ConfPathBase typePath(owner_, SharedStr(app_.segment()));
    typePath.addSegment(SharedStr(type.segment()));
    ConfPathTrie& typeNode = tree_.getOrCreate(typePath);
    typeNode.clearChildren();
    auto metadata = std::make_shared<ConfPathMetadata>();
    metadata->isLocal = isLocal_;
    metadata->originPath = file;

    ConfPathTrie* stanza = nullptr;
    auto openStanza = [&](const SharedStr& name) {
        stanza = &typeNode.child(name);
        if (stanza->expansion().empty()) {
            SharedStr expansion = expandStanza(name);
            if (expansion != name) {
                stanza->setExpansion(std::move(expansion));
            }
        }
        stanza->setValue(SharedStr());
        stanza->setMetadata(metadata);
    };
    Str line;
    Str key;
    Str value;
    for (;;) {
        const ConfLineKind kind = parser.next(line, key, value);
        if (kind == ConfLineKind::END_OF_FILE) {
            break;
        }
        if (kind == ConfLineKind::STANZA) {
            openStanza(SharedStr(key.segment()));
        } else if (kind == ConfLineKind::KEY_VALUE) {
            // Keys before the first header belong to [default]; a later key of the same name
            // replaces the earlier one.
            if (stanza == nullptr) {
                openStanza(SharedStr(StrSegment("default")));
            }
            ConfPathTrie& node = stanza->child(SharedStr(key.segment()));
            node.setValue(SharedStr(value.segment()));
            node.setMetadata(metadata);
        }
    }
    state.loaded = true;
}

SharedStr ConfPathMapper::expandStanza(StrSegment name) const {
    Str text(name);
    const size_t marker = text.view().find(kRootMarker.view());
    if (marker != std::string_view::npos) {
        Str replaced(StrSegment(text.data(), marker + 3));
        replaced += rootDirectory_.toStr();
        replaced += StrSegment(text.data() + marker + 4, text.size() - marker - 4);
        text = std::move(replaced);
    }
    const Str expanded = InstallationInfo::instance().expandVariables(text.segment());
    return SharedStr(expanded.segment());
}

}  // namespace morvax
