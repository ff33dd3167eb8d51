// Owning pointers for the GLib objects the platform layer reads with: each
// releases its object the way GLib requires (g_key_file_unref, g_error_free,
// g_free), so no early return can leak one.
#pragma once

#include <glib.h>

#include <memory>

namespace lumvane {

struct GKeyFileUnref {
  void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
using GKeyFilePtr = std::unique_ptr<GKeyFile, GKeyFileUnref>;

struct GErrorFree {
  void operator()(GError* error) const { g_error_free(error); }
};
using GErrorPtr = std::unique_ptr<GError, GErrorFree>;

struct GFree {
  void operator()(gchar* text) const { g_free(text); }
};
using GCharPtr = std::unique_ptr<gchar, GFree>;

}  // namespace lumvane
