#pragma once

#include <string>
#include <vector>

#include "wmi/Wmi.h"

namespace morvax::wmi {

// Which properties a SELECT list lets through: all for `*`; for `a, b.c` the top-level
// properties a and b, and inside b only c.
class WqlProjection {
  public:
    // Everything.
    WqlProjection() = default;
    // An empty list is `*`.
    explicit WqlProjection(const std::vector<QualifiedName>& selectList);

    bool all() const { return all_; }
    bool selects(const std::u16string& name) const;
    // The selected ones of `names`, in their order and spelling.
    std::vector<std::u16string> filter(const std::vector<std::u16string>& names) const;
    // The selected top-level names that `names` lacks, as the query spells them.
    std::vector<std::u16string> missing(const std::vector<std::u16string>& names) const;
    // What is selected inside the embedded object of property `name`: all of it when the
    // list names `name` itself, else the tails of the entries that start with it.
    WqlProjection nested(const std::u16string& name) const;

  private:
    bool all_ = true;
    std::vector<QualifiedName> list_;
};

}  // namespace morvax::wmi
