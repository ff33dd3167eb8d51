// Private views of machine-wide paths for tests: a new user and mount
// namespace in which a directory is an empty tmpfs, so that a test can take
// and drop the run's guard file, fill a tiny file system or listen on
// /dev/log without seeing or disturbing anything else on the machine. Child
// processes inherit the namespace. Needs no privilege where unprivileged user
// namespaces are allowed.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

namespace lumvane::testing {

// Enters a new namespace with a tmpfs mounted on `dir` with mount(8)
// `options`. Must be called while the process has a single thread (the
// kernel refuses a new user namespace otherwise). nullopt on success,
// otherwise why it failed.
[[nodiscard]] std::optional<std::string> EnterPrivateTmpfs(const std::string& dir,
                                                           const std::string& options);

// The serial tests' namespace: /var/tmp, and /etc/lumvane when present.
[[nodiscard]] std::optional<std::string> EnterPrivateVarTmp();

// Runs `body` in a forked child inside EnterPrivateTmpfs(dir, options) and
// returns the text it answered; nullopt, with the reason in *whyNot, when the
// namespace could not be made or the child failed. *child gets its pid. The
// child is killed after ten seconds.
std::optional<std::string> RunInPrivateTmpfs(const std::string& dir, const std::string& options,
                                             const std::function<std::string()>& body,
                                             std::string* whyNot, pid_t* child = nullptr);

}  // namespace lumvane::testing
