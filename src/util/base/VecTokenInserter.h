#pragma once

#include <vector>

#include "util/base/ITokenHandler.h"

namespace morvax {

// Adds each token to a vector of Str.
class VecTokenInserter : public ITokenHandler {
  public:
    VecTokenInserter(std::vector<Str>& tokens, bool keepEmpty)
        : tokens_(tokens), keepEmpty_(keepEmpty) {}

    // An empty token that is not quoted is dropped; a quoted empty one ("") is kept.
    void onToken(Str& token, bool quoted) override;
    // An empty token is dropped unless keepEmpty is set.
    void onTokenText(Str& token, int flag) override;

  private:
    void add(Str& token);

    std::vector<Str>& tokens_;
    bool keepEmpty_;
};

}  // namespace morvax
