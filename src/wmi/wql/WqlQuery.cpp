#include "wmi/wql/WqlQuery.h"

namespace morvax::wmi {

void WqlQuery::analysis(QueryAnalysis& out) const {
    out.selectList = selectList_;
    out.fromList.assign(1, className_);
    out.whereList.clear();
    if (where_) {
        where_->appendRpn(out.whereList);
    }
}

}  // namespace morvax::wmi
