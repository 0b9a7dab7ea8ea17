#include "input/WMIConfigurationFactory.h"

#include <optional>

#include "input/CommandLineWMIConfiguration.h"
#include "input/MorvaxWMIConfiguration.h"

namespace morvax {

Str indexFromOptions(const CommandLineOptions& options) {
    Str index = options.index != nullptr ? Str::fromWide(WStr(options.index)) : Str("default");
    index.removeMatchingQuotes('"');
    return index;
}

std::unique_ptr<IWMIConfiguration> createWMIConfiguration(const CommandLineOptions& options) {
    if (options.loglist != nullptr) {
        // -index has no effect here: these entries carry an empty index.
        std::optional<Str> servers;
        if (options.servers) {
            servers = Str::fromWide(*options.servers);
        }
        return std::make_unique<CommandLineWMIConfiguration>(Str::fromWide(WStr(options.loglist)),
                                                             servers, options.watch);
    }
    return std::make_unique<MorvaxWMIConfiguration>(indexFromOptions(options));
}

std::unique_ptr<IWMIConfiguration> createWMIConfiguration() {
    return createWMIConfiguration(CommandLineOptions::process());
}

}  // namespace morvax
