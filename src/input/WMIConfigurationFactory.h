#pragma once

#include <memory>

#include "input/CommandLineOptions.h"
#include "input/IWMIConfiguration.h"
#include "util/base/Str.h"

namespace morvax {

// The target index of the options: -index in UTF-8, or "default" without it, with one pair of
// enclosing double quotes removed.
Str indexFromOptions(const CommandLineOptions& options);

// The configuration that the options ask for: the -loglist entries, or the configuration file.
std::unique_ptr<IWMIConfiguration> createWMIConfiguration(const CommandLineOptions& options);
// The same for the process's options.
std::unique_ptr<IWMIConfiguration> createWMIConfiguration();

}  // namespace morvax
