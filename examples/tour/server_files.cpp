#include "server_files.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace {

/// 0, or the error number.
int write_text(const std::filesystem::path& file, const std::string& text) {
  std::FILE* out = std::fopen(file.c_str(), "w");
  if (!out) return errno;
  const int failed = std::fputs(text.c_str(), out) < 0 ? errno : 0;
  const int not_flushed = std::fclose(out) != 0 ? errno : 0;
  return failed ? failed : not_flushed;
}

}  // namespace

void write_reference(const std::filesystem::path& dir, const std::string& name, const std::string& text) {
  const std::filesystem::path file = dir / (name + ".ior");
  const std::filesystem::path unfinished = dir / (name + ".ior.new");
  int error = write_text(unfinished, text + '\n');
  if (error == 0 && std::rename(unfinished.c_str(), file.c_str()) != 0) error = errno;
  if (error == 0) return;
  std::remove(unfinished.c_str());
  throw std::system_error(error, std::generic_category(), "cannot write " + file.string());
}
