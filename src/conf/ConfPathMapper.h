#pragma once

#include <map>

#include "conf/ConfUserContext.h"
#include "conf/IConfPathMapper.h"
#include "util/thread/Mutex.h"

namespace morvax {

// A directory of .conf files ("default" or "local" of a layer), owned by one user and
// application. Construction lists the directory; a type's file is read the first time a search
// asks for it, and never again. Searches may come from any thread.
class ConfPathMapper : public IConfPathMapper {
  public:
    // `rootDirectory` replaces "." in stanza names that hold "://.\".
    ConfPathMapper(Pathname directory, Pathname rootDirectory, ConfUserContext owner, Str app);

    void fillSearch(const ConfSearch& search, ConfPathTrie& out) override;
    const Pathname& directory() const override { return directory_; }
    Str describe() const override;

    bool isLocal() const { return isLocal_; }
    // How many conf files were opened: the types read, successfully or not.
    size_t filesOpened() const;

  private:
    struct TypeState {
        bool loaded = false;
        bool failed = false;
    };
    void loadType(const Str& type, TypeState& state);
    SharedStr expandStanza(StrSegment name) const;

    mutable Mutex mutex_;
    Pathname directory_;
    Pathname rootDirectory_;
    ConfUserContext owner_;
    Str app_;
    bool isLocal_ = false;
    bool isDefault_ = true;
    std::map<Str, TypeState> types_;
    ConfPathTrie tree_;
    size_t filesOpened_ = 0;
};

}  // namespace morvax
