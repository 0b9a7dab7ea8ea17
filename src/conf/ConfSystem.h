#pragma once

#include <memory>
#include <set>
#include <vector>

#include "conf/ApplicationTable.h"
#include "conf/ConfPathMapperManager.h"
#include "conf/ConfSettings.h"

namespace morvax {

class ConfContext;

// What all reads of one configuration root share: the bootstrap file, the layers it names, the
// application table, and the field names kept encrypted. Set up once per root by the first
// context that asks, and kept for the life of the process.
class ConfSystem {
  public:
    static ConfSystem& forContext(const ConfContext& context);

    const Pathname& etc() const { return etc_; }
    const ApplicationTable& applications() const { return applications_; }
    std::vector<std::shared_ptr<IConfPathMapper>> mappers() const;
    // server.conf [general] encrypt_fields, and audit.conf [auditTrail] redact_fields: field
    // names a writer would treat specially. A read returns text as stored.
    const std::set<Str>& encryptFields() const { return encryptFields_; }
    const std::set<Str>& redactFields() const { return redactFields_; }

  private:
    explicit ConfSystem(const ConfContext& context);
    void readFieldSets(const ConfContext& context);

    Pathname etc_;
    std::unique_ptr<ConfSettings> settings_;
    std::unique_ptr<ConfPathMapperManager> manager_;
    ApplicationTable applications_;
    std::set<Str> encryptFields_;
    std::set<Str> redactFields_;
};

}  // namespace morvax
