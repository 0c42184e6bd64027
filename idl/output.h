// The files that a run makes. They are kept in memory until all is known to be good.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace idl {

class Outputs {
 public:
  explicit Outputs(std::string directory) : directory_(std::move(directory)) {}

  /// Where NAME.idl's file with that ending belongs.
  std::string path(const std::string& idl_file, const std::string& ending) const;
  void add(const std::string& path, std::string text) { files_[path] = std::move(text); }
  /// Notes what was read to make the files of an IDL file.
  void read(const std::string& idl_file, const std::vector<std::string>& files) { read_[idl_file] = files; }

  /// Writes all that differ from what is there, and the rule for make unless its name is empty. Throws
  /// std::runtime_error when a file cannot be written.
  void write(const std::string& deps) const;

 private:
  std::string rule() const;

  const std::string directory_;
  std::map<std::string, std::string> files_;
  std::map<std::string, std::vector<std::string>> read_;
};

}  // namespace idl
