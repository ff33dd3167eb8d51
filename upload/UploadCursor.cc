#include "upload/UploadCursor.h"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "fleet/KeyFile.h"

namespace lumvane::upload {
namespace {

constexpr const char* kGroup = "Cursor";

struct Field {
  const char* key;
  uint64_t UploadCursor::*value;
};

constexpr Field kFields[] = {
    {"Generation", &UploadCursor::generation},         {"Offset", &UploadCursor::offset},
    {"DroppedEvents", &UploadCursor::droppedEvents},   {"DroppedBytes", &UploadCursor::droppedBytes},
    {"MalformedLines", &UploadCursor::malformedLines}, {"TornBytes", &UploadCursor::tornBytes},
};

}  // namespace

std::optional<Error> SyncDirectory(const std::string& directory) {
  int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return Error::fromErrno("cannot open " + directory, errno);
  std::optional<Error> error;
  if (::fsync(fd) != 0) error = Error::fromErrno("cannot sync " + directory, errno);
  ::close(fd);
  return error;
}

SpoolPaths::SpoolPaths(std::string dir)
    : directory(std::move(dir)),
      events(directory + "/events.ndjson"),
      cursor(directory + "/upload.cursor"),
      lock(directory + "/upload.lock") {}

std::string SpoolPaths::rotated(uint64_t generation) const {
  return events + "." + std::to_string(generation);
}

std::optional<Error> ReadUploadCursor(const SpoolPaths& paths, UploadCursor* cursor) {
  std::unique_ptr<fleet::KeyFile> file;
  if (auto error = fleet::KeyFile::Load(paths.cursor, &file)) return error;
  *cursor = UploadCursor{};
  for (const Field& f : kFields) {
    int64_t v = static_cast<int64_t>(cursor->*f.value);
    if (auto error = file->getInt64(kGroup, f.key, &v)) return error;
    if (v < 0) return Error(paths.cursor + ": [Cursor] " + f.key + " cannot be negative");
    cursor->*f.value = static_cast<uint64_t>(v);
  }
  if (auto error = file->getString(kGroup, "Connection", &cursor->connection)) return error;
  if (auto error = file->getString(kGroup, "Server", &cursor->server)) return error;
  return std::nullopt;
}

std::optional<Error> WriteUploadCursor(const SpoolPaths& paths, const UploadCursor& cursor) {
  GKeyFile* file = g_key_file_new();
  for (const Field& f : kFields) {
    g_key_file_set_uint64(file, kGroup, f.key, cursor.*f.value);
  }
  g_key_file_set_string(file, kGroup, "Connection", cursor.connection.c_str());
  g_key_file_set_string(file, kGroup, "Server", cursor.server.c_str());
  gsize length = 0;
  gchar* data = g_key_file_to_data(file, &length, nullptr);
  g_key_file_free(file);
  const std::string text(data, length);
  g_free(data);

  const std::string temporary = paths.cursor + ".tmp";
  int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return Error::fromErrno("cannot create " + temporary, errno);
  std::optional<Error> error;
  if (::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    error = Error::fromErrno("cannot write " + temporary, errno);
  } else if (::fsync(fd) != 0) {
    error = Error::fromErrno("cannot sync " + temporary, errno);
  }
  ::close(fd);
  if (!error && ::rename(temporary.c_str(), paths.cursor.c_str()) != 0) {
    error = Error::fromErrno("cannot replace " + paths.cursor, errno);
  }
  if (error) {
    ::unlink(temporary.c_str());
    return error;
  }
  return SyncDirectory(paths.directory);
}

}  // namespace lumvane::upload
