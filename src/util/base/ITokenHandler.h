#pragma once

#include "util/base/Str.h"

namespace morvax {

// Receives the tokens of the tokenizer.
class ITokenHandler {
  public:
    // Forwards to onTokenText with flag 0; `quoted` tells that the token began with a quote.
    virtual void onToken(Str& token, bool quoted) {
        (void)quoted;
        onTokenText(token, 0);
    }
    virtual void onTokenText(Str& token, int flag) = 0;
    virtual ~ITokenHandler() = default;
};

}  // namespace morvax
