#include "wmi/wql/WqlLikePattern.h"

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

WqlLikePattern::WqlLikePattern(const std::u16string& pattern) {
    std::u32string p;
    for (size_t pos = 0; pos < pattern.size();) {
        p.push_back(WqlText::nextCodePoint(pattern, pos));
    }
    for (size_t i = 0; i < p.size(); ++i) {
        char32_t c = p[i];
        if (c == U'%') {
            if (elements_.empty() || elements_.back().kind != Kind::ANY_RUN) {
                elements_.push_back(Element{Kind::ANY_RUN});
            }
            continue;
        }
        if (c == U'_') {
            elements_.push_back(Element{Kind::ANY_ONE});
            continue;
        }
        if (c == U'[') {
            Element set{Kind::SET};
            size_t j = i + 1;
            if (j < p.size() && p[j] == U'^') {
                set.negated = true;
                ++j;
            }
            bool first = true;
            bool closed = false;
            while (j < p.size()) {
                if (p[j] == U']' && !first) {
                    closed = true;
                    break;
                }
                first = false;
                char32_t lo = p[j], hi = p[j];
                if (j + 2 < p.size() && p[j + 1] == U'-' && p[j + 2] != U']') {
                    hi = p[j + 2];
                    j += 3;
                } else {
                    ++j;
                }
                set.ranges.emplace_back(lo, hi);
                set.ranges.emplace_back(WqlText::fold(lo), WqlText::fold(hi));
            }
            if (closed) {
                elements_.push_back(std::move(set));
                i = j;
                continue;
            }
        }
        Element literal{Kind::LITERAL};
        literal.ch = WqlText::fold(c);
        elements_.push_back(std::move(literal));
    }
}

bool WqlLikePattern::matchesOne(const Element& element, char32_t folded) {
    switch (element.kind) {
        case Kind::ANY_ONE:
            return true;
        case Kind::LITERAL:
            return element.ch == folded;
        case Kind::SET: {
            bool in = false;
            for (const auto& [lo, hi] : element.ranges) {
                if (folded >= lo && folded <= hi) {
                    in = true;
                    break;
                }
            }
            return in != element.negated;
        }
        default:
            return false;
    }
}

bool WqlLikePattern::matches(const std::u16string& value) const {
    const std::u32string text = WqlText::fold(value);
    // Every element but `%` takes exactly one character, so backtracking to the last `%`
    // alone is enough, which keeps the match linear in practice and quadratic at worst.
    const size_t n = text.size(), m = elements_.size();
    size_t t = 0, p = 0;
    size_t starP = m, starT = 0;
    while (t < n) {
        if (p < m && elements_[p].kind == Kind::ANY_RUN) {
            starP = p++;
            starT = t;
        } else if (p < m && matchesOne(elements_[p], text[t])) {
            ++p, ++t;
        } else if (starP != m) {
            p = starP + 1;
            t = ++starT;
        } else {
            return false;
        }
    }
    while (p < m && elements_[p].kind == Kind::ANY_RUN) {
        ++p;
    }
    return p == m;
}

}  // namespace morvax::wmi
