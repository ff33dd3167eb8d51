// A read-only view of a key file (the freedesktop "[Group]\nKey=value" form)
// read with GLib's GKeyFile. A missing file is not an error: it reads as a
// file with no keys, so every setting keeps its default. Anything else that
// stops the file from loading (bad syntax, no permission, not UTF-8) is an
// error naming the path. A value of the wrong type is an error naming the
// path, the group and the key.
//
// Thread-safety: none; load, read, drop on one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lumvane/platform/Error.h"

typedef struct _GKeyFile GKeyFile;

namespace lumvane::fleet {

class KeyFile final {
 public:
  // Loads `path`; a missing file gives an empty KeyFile.
  [[nodiscard]] static std::optional<Error> Load(const std::string& path,
                                                 std::unique_ptr<KeyFile>* out);

  ~KeyFile();
  KeyFile(const KeyFile&) = delete;
  KeyFile& operator=(const KeyFile&) = delete;

  const std::string& path() const { return path_; }
  bool exists() const { return exists_; }

  // Each getter leaves `*value` untouched when the key is absent.
  [[nodiscard]] std::optional<Error> getString(const char* group, const char* key,
                                               std::string* value) const;
  // A list separated by ';' (trailing ';' allowed).
  [[nodiscard]] std::optional<Error> getStringList(const char* group, const char* key,
                                                   std::vector<std::string>* value) const;
  [[nodiscard]] std::optional<Error> getInt64(const char* group, const char* key,
                                              int64_t* value) const;
  [[nodiscard]] std::optional<Error> getDouble(const char* group, const char* key,
                                               double* value) const;
  [[nodiscard]] std::optional<Error> getBool(const char* group, const char* key,
                                             bool* value) const;

 private:
  KeyFile(std::string path, GKeyFile* file, bool exists);
  bool has(const char* group, const char* key) const;
  Error typeError(const char* group, const char* key, const char* what) const;

  std::string path_;
  GKeyFile* file_;  // owned; freed in the destructor
  bool exists_;
};

}  // namespace lumvane::fleet
