// The C preprocessor, as a library, over IDL.
#pragma once

#include <string>
#include <vector>

#include "diagnostics.h"

namespace idl {

struct PreprocessOptions {
  std::vector<std::string> include_dirs;
  /// Definitions and withdrawals in the order given: "DNAME", "DNAME=VALUE", "UNAME".
  std::vector<std::string> macros;
};

/// An #include line of the file itself.
struct Include {
  std::string written;  // the name between the quotes
  bool angled = false;
  std::string file;  // the name of the file that it led to
};

struct Preprocessed {
  std::string text;                // with line markers: #line N "file"
  std::vector<Include> includes;   // of the file itself, in order
  std::vector<std::string> files;  // all that were read, the file itself first
};

/// The text of orb.idl, which every compilation can include and which is on no disk.
extern const char* const orb_idl;
constexpr const char* orb_idl_name = "orb.idl";

/// Expands a file. What the preprocessor complains about becomes errors, and the text is then incomplete. The
/// preprocessor runs in a process of its own with bounds on time and memory, so that no input can harm more.
Preprocessed preprocess(const std::string& file, const PreprocessOptions& options, Sources& sources,
                        Diagnostics& diagnostics);

/// The parts of a line marker; false when the line is none.
bool parse_line_marker(const std::string& line, std::uint32_t& number, std::string& file);

}  // namespace idl
