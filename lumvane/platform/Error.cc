#include "lumvane/platform/Error.h"

#include <cstring>

namespace lumvane {

Error Error::fromErrno(std::string_view what, int err) {
  std::string text(what);
  text += ": ";
  text += std::strerror(err);
  return Error(std::move(text));
}

}  // namespace lumvane
