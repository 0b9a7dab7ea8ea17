#pragma once

namespace morvax {

// Simple (one-to-one) Unicode case mapping, for text the platform cannot lower-case for us.
class UnicodeCase {
  public:
    // The simple lowercase mapping of `cp`, or `cp` itself when it has none. Values that are not
    // code points (above U+10FFFF) come back unchanged.
    static char32_t toLower(char32_t cp);
};

}  // namespace morvax
