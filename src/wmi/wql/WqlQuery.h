#pragma once

#include <memory>
#include <string>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/wql/WqlExpr.h"

namespace morvax::wmi {

// A parsed query. Names keep the spelling of the text; compare them with WqlText.
class WqlQuery {
  public:
    enum class Kind { SELECT, ASSOCIATORS, REFERENCES };

    Kind kind() const { return kind_; }
    // ASSOCIATORS OF and REFERENCES OF parse but are not run or analysed.
    bool isAssociatorsOrReferences() const { return kind_ != Kind::SELECT; }
    // The object path between the braces of ASSOCIATORS OF and REFERENCES OF.
    const std::u16string& objectPath() const { return objectPath_; }

    const std::u16string& className() const { return className_; }
    // SELECT *; else selectList() names the properties.
    bool selectsAll() const { return selectList_.empty(); }
    const std::vector<QualifiedName>& selectList() const { return selectList_; }
    // Null without a WHERE clause.
    const WqlExpr* where() const { return where_.get(); }

    // The query has an event clause (WITHIN or GROUP WITHIN).
    bool isEventQuery() const { return hasWithin_ || hasGroup_; }
    bool hasWithin() const { return hasWithin_; }
    double withinSeconds() const { return withinSeconds_; }
    bool hasGroup() const { return hasGroup_; }
    double groupWithinSeconds() const { return groupWithinSeconds_; }
    const std::vector<QualifiedName>& groupBy() const { return groupBy_; }
    // Null without a HAVING clause.
    const WqlExpr* having() const { return having_.get(); }

    // The select, from and where lists, the where list in reverse-Polish order. Only for a
    // SELECT query.
    void analysis(QueryAnalysis& out) const;

  private:
    friend class WqlParser;

    Kind kind_ = Kind::SELECT;
    std::u16string objectPath_;
    std::u16string className_;
    std::vector<QualifiedName> selectList_;
    std::unique_ptr<WqlExpr> where_;
    bool hasWithin_ = false;
    double withinSeconds_ = 0;
    bool hasGroup_ = false;
    double groupWithinSeconds_ = 0;
    std::vector<QualifiedName> groupBy_;
    std::unique_ptr<WqlExpr> having_;
};

}  // namespace morvax::wmi
