#pragma once

namespace morvax {

// Character classes of the ASCII range, for narrow and wide code units alike; no locale.
template <typename C>
constexpr bool isDigit(C c) {
    return c >= C('0') && c <= C('9');
}

template <typename C>
constexpr bool isUpper(C c) {
    return c >= C('A') && c <= C('Z');
}

template <typename C>
constexpr bool isLower(C c) {
    return c >= C('a') && c <= C('z');
}

template <typename C>
constexpr bool isLetter(C c) {
    return isUpper(c) || isLower(c);
}

template <typename C>
constexpr bool isAlnum(C c) {
    return isDigit(c) || isLetter(c);
}

template <typename C>
constexpr bool isHexDigit(C c) {
    return isDigit(c) || (c >= C('a') && c <= C('f')) || (c >= C('A') && c <= C('F'));
}

// The value of a hexadecimal digit.
template <typename C>
constexpr int hexValue(C c) {
    return isDigit(c) ? static_cast<int>(c - C('0')) : static_cast<int>((c | 0x20) - C('a') + 10);
}

// A space or a tab.
template <typename C>
constexpr bool isBlank(C c) {
    return c == C(' ') || c == C('\t');
}

// What isspace() takes in the C locale: a space, a tab, a line end, a vertical tab, a form feed.
template <typename C>
constexpr bool isSpace(C c) {
    return c == C(' ') || (c >= C('\t') && c <= C('\r'));
}

template <typename C>
constexpr C toLowerAscii(C c) {
    return isUpper(c) ? static_cast<C>(c - C('A') + C('a')) : c;
}

}  // namespace morvax
