#pragma once

namespace morvax {

// The program's entry function over a wide argument vector (argv[argc] is null). Returns the
// exit status.
int wmiMain(int argc, const char16_t* const* argv);

// COM for the whole process: the multithreaded apartment, then the process's security. Logs and
// returns false on failure.
bool initializeCOM();

}  // namespace morvax
