// One file, from text to a checked tree.
#pragma once

#include <string>

#include "diagnostics.h"
#include "preprocess.h"
#include "tree.h"

namespace idl {

struct Compilation {
  explicit Compilation(bool warnings_are_errors = false) : diagnostics(sources, warnings_are_errors) {}

  Sources sources;
  Diagnostics diagnostics;
  Preprocessed input;
  Tree tree;
};

/// Preprocesses, parses and checks a file. What is wrong stands in the diagnostics; with errors there the tree is
/// good for nothing.
void compile(const std::string& file, const PreprocessOptions& options, Compilation& compilation);

/// The same for text that is preprocessed already.
void compile_text(const std::string& text, Compilation& compilation);

/// A line for each declaration of the file itself: kind, name, repository id, the value of a constant. Not of members, parameters
/// and enumerators.
std::string list(Compilation& compilation);

}  // namespace idl
