#include "upload/MachineKey.h"

#include <systemd/sd-id128.h>

#include <cstring>

namespace lumvane::upload {
namespace {

// lumvane's application ID; changing it changes every machine's key.
constexpr sd_id128_t kLumvaneApplicationId = SD_ID128_MAKE(59, 0b, 14, 1a, af, d3, 46, 19, 86, 0c, 06, d1, ab, 75, 4f, 10);

}  // namespace

std::optional<Error> MachineKey(std::string* key) {
  sd_id128_t id;
  const int rc = sd_id128_get_machine_app_specific(kLumvaneApplicationId, &id);
  if (rc < 0) {
    const char* why = rc == -ENOENT     ? "it does not exist"
                      : rc == -ENOMEDIUM ? "it is empty"
                                         : std::strerror(-rc);
    return Error(std::string("cannot derive the machine key from /etc/machine-id: ") + why +
                 " (or give --machine-key)");
  }
  char text[SD_ID128_STRING_MAX];
  *key = sd_id128_to_string(id, text);
  return std::nullopt;
}

}  // namespace lumvane::upload
