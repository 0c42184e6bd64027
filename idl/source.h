// Where text stands: files, lines and columns as the author of the IDL sees them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace idl {

/// A stretch of one line of a file. Lines and columns count from 1; a line of 0 is no place at all.
struct Location {
  std::uint32_t file = 0;
  std::uint32_t line = 0;
  std::uint32_t column = 0;
  std::uint32_t width = 1;

  bool operator==(const Location&) const = default;
};

/// The files that a compilation has read. Number 0 is the file that is compiled.
class Sources {
 public:
  /// The number of the file of that name, a new one if it was not known.
  std::uint32_t number(const std::string& name);
  const std::string& name(std::uint32_t file) const { return names_[file]; }
  std::uint32_t count() const { return static_cast<std::uint32_t>(names_.size()); }

  /// The text of a line without its end; empty where the file cannot be read or ends before.
  const std::string& line(std::uint32_t file, std::uint32_t line);
  /// Gives the text of a file that is not on disk.
  void supply(std::uint32_t file, const std::string& text);

 private:
  std::vector<std::string> names_;
  std::vector<std::vector<std::string>> lines_;  // by file, read when first asked for
};

}  // namespace idl
