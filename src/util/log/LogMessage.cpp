#include "util/log/LogMessage.h"

namespace morvax {

namespace {

bool needsEscape(unsigned char c, bool escape) {
    if (c == '\n' || c == '\r') {
        return true;
    }
    return escape && c < 128 && c != '\t' && (c < 0x20 || c == 0x7F);
}

}  // namespace

StrSegment LogMessage::text(bool escape) {
    if (!computed_) {
        computed_ = true;
        text_ = raw_;
        if (!rawFlag_ && !raw_.empty() && escapeText(raw_, escape, escaped_)) {
            text_ = escaped_.segment();
        }
    }
    return text_;
}

bool LogMessage::escapeText(StrSegment text, bool escape, Str& target) {
    size_t i = 0;
    while (i < text.size() && !needsEscape(static_cast<unsigned char>(text[i]), escape)) {
        ++i;
    }
    if (i == text.size()) {
        return false;
    }
    static const char hex[] = "0123456789ABCDEF";
    target.reserve(target.size() + text.size() + 16);
    size_t start = 0;
    for (; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (!needsEscape(c, escape)) {
            continue;
        }
        target.append(text.data() + start, i - start);
        if (c == '\n') {
            target.append("\\n", 2);
        } else if (c == '\r') {
            target.append("\\r", 2);
        } else {
            char code[4] = {'\\', 'x', hex[c >> 4], hex[c & 15]};
            target.append(code, 4);
        }
        start = i + 1;
    }
    target.append(text.data() + start, text.size() - start);
    return true;
}

}  // namespace morvax
