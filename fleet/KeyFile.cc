#include "fleet/KeyFile.h"

#include <glib.h>

namespace lumvane::fleet {

std::optional<Error> KeyFile::Load(const std::string& path, std::unique_ptr<KeyFile>* out) {
  GKeyFile* file = g_key_file_new();
  GError* error = nullptr;
  bool exists = true;
  if (!g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, &error)) {
    const bool missing = g_error_matches(error, G_FILE_ERROR, G_FILE_ERROR_NOENT);
    std::string reason = error->message;
    g_error_free(error);
    if (!missing) {
      g_key_file_free(file);
      return Error("cannot read settings from " + path + ": " + reason);
    }
    exists = false;
  }
  out->reset(new KeyFile(path, file, exists));
  return std::nullopt;
}

KeyFile::KeyFile(std::string path, GKeyFile* file, bool exists)
    : path_(std::move(path)), file_(file), exists_(exists) {}

KeyFile::~KeyFile() { g_key_file_free(file_); }

bool KeyFile::has(const char* group, const char* key) const {
  return g_key_file_has_key(file_, group, key, nullptr);
}

Error KeyFile::typeError(const char* group, const char* key, const char* what) const {
  return Error(path_ + ": [" + group + "] " + key + " must be " + what);
}

std::optional<Error> KeyFile::getString(const char* group, const char* key,
                                        std::string* value) const {
  if (!has(group, key)) return std::nullopt;
  gchar* text = g_key_file_get_string(file_, group, key, nullptr);
  if (!text) return typeError(group, key, "a UTF-8 string");
  *value = text;
  g_free(text);
  return std::nullopt;
}

std::optional<Error> KeyFile::getStringList(const char* group, const char* key,
                                            std::vector<std::string>* value) const {
  if (!has(group, key)) return std::nullopt;
  gsize length = 0;
  gchar** list = g_key_file_get_string_list(file_, group, key, &length, nullptr);
  if (!list) return typeError(group, key, "a list of strings separated by ';'");
  value->clear();
  for (gsize i = 0; i < length; ++i) {
    if (*list[i]) value->emplace_back(list[i]);
  }
  g_strfreev(list);
  return std::nullopt;
}

std::optional<Error> KeyFile::getInt64(const char* group, const char* key, int64_t* value) const {
  if (!has(group, key)) return std::nullopt;
  GError* error = nullptr;
  gint64 number = g_key_file_get_int64(file_, group, key, &error);
  if (error) {
    g_error_free(error);
    return typeError(group, key, "an integer");
  }
  *value = number;
  return std::nullopt;
}

std::optional<Error> KeyFile::getDouble(const char* group, const char* key, double* value) const {
  if (!has(group, key)) return std::nullopt;
  GError* error = nullptr;
  double number = g_key_file_get_double(file_, group, key, &error);
  if (error) {
    g_error_free(error);
    return typeError(group, key, "a number");
  }
  *value = number;
  return std::nullopt;
}

std::optional<Error> KeyFile::getBool(const char* group, const char* key, bool* value) const {
  if (!has(group, key)) return std::nullopt;
  GError* error = nullptr;
  gboolean flag = g_key_file_get_boolean(file_, group, key, &error);
  if (error) {
    g_error_free(error);
    return typeError(group, key, "true or false");
  }
  *value = flag;
  return std::nullopt;
}

}  // namespace lumvane::fleet
