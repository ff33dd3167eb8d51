// Gives the calling process a private view of the machine-wide paths the
// reporting run touches: a new user and mount namespace in which /var/tmp is
// an empty tmpfs (and /etc/lumvane, when present, too), so that a test can
// take and drop the run's guard file without seeing or disturbing a daemon
// that runs on the same machine. Child processes inherit the namespace.
//
// Must be called while the process has a single thread (the kernel refuses
// a new user namespace otherwise), i.e. first thing in main. Needs no
// privilege where unprivileged user namespaces are allowed.
#pragma once

#include <optional>
#include <string>

namespace lumvane::testing {

// nullopt on success, otherwise why the namespace could not be set up.
[[nodiscard]] std::optional<std::string> EnterPrivateVarTmp();

}  // namespace lumvane::testing
