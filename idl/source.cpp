#include "source.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace idl {
namespace {

std::vector<std::string> lines_of(std::istream& in) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (line.ends_with('\r')) line.pop_back();
    lines.push_back(std::move(line));
  }
  if (lines.empty()) lines.emplace_back();  // so that the file counts as read
  return lines;
}

}  // namespace

std::uint32_t Sources::number(const std::string& name) {
  const auto found = std::find(names_.begin(), names_.end(), name);
  if (found != names_.end()) return static_cast<std::uint32_t>(found - names_.begin());
  names_.push_back(name);
  lines_.emplace_back();
  return count() - 1;
}

const std::string& Sources::line(std::uint32_t file, std::uint32_t line) {
  static const std::string none;
  if (file >= count()) return none;
  if (lines_[file].empty()) {
    std::ifstream in(names_[file]);
    lines_[file] = lines_of(in);
  }
  return line >= 1 && line <= lines_[file].size() ? lines_[file][line - 1] : none;
}

void Sources::supply(std::uint32_t file, const std::string& text) {
  std::istringstream in(text);
  lines_[file] = lines_of(in);
}

}  // namespace idl
