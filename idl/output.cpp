#include "output.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "preprocess.h"

namespace idl {
namespace {

namespace fs = std::filesystem;

bool holds(const std::string& path, const std::string& text) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream there;
  return in && there << in.rdbuf() && there.str() == text;
}

// By way of a second name, so that nobody sees half a file.
void write_file(const std::string& path, const std::string& text) {
  if (holds(path, text)) return;
  const std::string part = path + ".part";
  std::ofstream out(part, std::ios::binary);
  out << text;
  out.close();
  std::error_code failed;
  if (out) fs::rename(part, path, failed);
  if (!out || failed) throw std::runtime_error("cannot write " + path);
}

// A name as make reads it.
std::string escaped(const std::string& name) {
  std::string text;
  for (const char c : name) {
    if (c == ' ' || c == '#' || c == '\\') text += '\\';
    if (c == '$') text += '$';
    text += c;
  }
  return text;
}

}  // namespace

std::string Outputs::path(const std::string& idl_file, const std::string& ending) const {
  return (fs::path(directory_) / fs::path(idl_file).stem()).lexically_normal().string() + ending;
}

std::string Outputs::rule() const {
  std::string text;
  std::set<std::string> included;
  for (const auto& [idl_file, files] : read_) {
    text += escaped(path(idl_file, ".h")) + ' ' + escaped(path(idl_file, ".cpp")) + ':';
    for (const std::string& file : files) {
      if (file == orb_idl_name) continue;
      text += " \\\n  " + escaped(file);
      if (file != idl_file) included.insert(file);
    }
    text += '\n';
  }
  for (const std::string& file : included)
    text += escaped(file) + ":\n";  // which may go without breaking the rule
  return text;
}

void Outputs::write(const std::string& deps) const {
  std::error_code failed;
  fs::create_directories(directory_, failed);
  for (const auto& [path, text] : files_) write_file(path, text);
  if (!deps.empty()) write_file(deps, rule());
}

}  // namespace idl
