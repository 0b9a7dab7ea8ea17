#include "util/base/VecTokenInserter.h"

namespace morvax {

void VecTokenInserter::add(Str& token) {
    tokens_.emplace_back();
    tokens_.back().swap(token);
}

void VecTokenInserter::onToken(Str& token, bool quoted) {
    if (token.empty() && !quoted) {
        return;
    }
    add(token);
}

void VecTokenInserter::onTokenText(Str& token, int) {
    if (token.empty() && !keepEmpty_) {
        return;
    }
    add(token);
}

}  // namespace morvax
