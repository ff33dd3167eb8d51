// Turns an arbitrary byte string (an event name, a machine key) into one
// subject token. Bytes outside [A-Za-z0-9_-] become "%XX" with upper-case
// hex, so dots, spaces, wildcards and '%' itself never reach the server and
// two different names never share a token. The empty string, which would
// leave an empty token, becomes the lone "%" that no escaped name can equal.
#pragma once

#include <string>
#include <string_view>

namespace lumvane::fleet {

std::string EscapeSubjectToken(std::string_view text);

// The inverse, for readers of subjects. An ill-formed escape is kept as it
// stands.
std::string UnescapeSubjectToken(std::string_view token);

}  // namespace lumvane::fleet
