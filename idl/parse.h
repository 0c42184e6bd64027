// Text to tree.
#pragma once

#include <string>

#include "diagnostics.h"
#include "tree.h"

namespace idl {

/// Parses preprocessed text into the tree. What is wrong is reported, and what can be understood around it is there.
void parse(const std::string& text, Sources& sources, Diagnostics& diagnostics, Tree& tree);

/// Whether the word in lower or its own case is a keyword of IDL: the keyword, or null.
const char* keyword_in_any_case(const std::string& word);

}  // namespace idl
