#include "lumvane/filter/LVLog.h"

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {

SystemLog& LVLog() {
  static NoDestructor<SystemLog> handle("com.orvel.Vantrel", "lumvane",
                                        NewLogBackendFromEnvironment());
  return *handle;
}

}  // namespace lumvane
