#include "compile.h"

#include "check.h"
#include "parse.h"

namespace idl {

void compile_text(const std::string& text, Compilation& compilation) {
  Diagnostics& diagnostics = compilation.diagnostics;
  try {
    parse(text, compilation.sources, diagnostics, compilation.tree);
    check(compilation.tree, diagnostics);
  } catch (const GiveUp&) {  // which was reported
  }
}

void compile(const std::string& file, const PreprocessOptions& options, Compilation& compilation) {
  try {
    compilation.input = preprocess(file, options, compilation.sources, compilation.diagnostics);
  } catch (const GiveUp&) {
  }
  if (!compilation.diagnostics.errors()) compile_text(compilation.input.text, compilation);
}

std::string list(Compilation& compilation) {
  std::string text;
  walk(*compilation.tree.root, [&](const Declaration& one) {
    if (one.id.empty() || one.file() != 0 || one.scope == nullptr) return;
    if (one.kind == Kind::Member || one.kind == Kind::Parameter || one.kind == Kind::Enumerator) return;
    const auto* constant = as<Constant>(&one);
    text += std::string(kind_name(one.kind)) + ' ' + full_name(one) + ' ' + one.id +
            (constant ? " = " + describe(constant->value) : "") + '\n';
  });
  return text;
}

}  // namespace idl
