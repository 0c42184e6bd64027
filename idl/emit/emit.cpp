#include "emit/emit.h"

#include <algorithm>

namespace idl {
namespace {

// Goes through the file, a part of the output after the other.
class File {
 public:
  File(Compilation& compilation, const std::string& name, const EmitOptions& options)
      : compilation_(compilation), spell_(compilation), name_(name), options_(options) {
    collect(*compilation.tree.root);
  }

  std::string header() {
    out_ = Writer();
    first_line();
    out_.line("#pragma once");
    out_.blank();
    out_.line("#include \"poa/mapping.h\"");
    for (const std::string& one : extra_headers(compilation_)) out_.line("#include \"" + one + "\"");
    if (options_.async) out_.line("#include \"poa/async.h\"");
    includes();
    out_.blank();
    declarations(*compilation_.tree.root);
    skeletons();
    const Spelling in_library(compilation_, Spelling::Within::Library);
    walk(*compilation_.tree.root, [&](const Declaration& one) {
      if (spell_.is_own(one)) describe_type(out_, in_library, one);
    });
    return trimmed();
  }

  std::string source() {
    out_ = Writer();
    first_line();
    out_.line("#include \"" + name_ + ".h\"");
    out_.blank();
    for (const Interface* one : interfaces_) define_interface(out_, spell_, *one, options_);
    announcement();
    return trimmed();
  }

 private:
  void collect(const Module& module);
  void first_line() { out_.line("// Generated from " + name_ + ".idl. Do not edit."); }
  void includes();
  void declarations(const Module& module);
  void declare(const Declaration& declaration);
  void skeletons();
  void announcement();
  std::string trimmed() const;

  Compilation& compilation_;
  const Spelling spell_;
  const std::string name_;
  const EmitOptions options_;
  Writer out_;
  std::vector<const Interface*> interfaces_;  // defined in the file, in its order
  std::set<const Declaration*> announced_;
};

void File::collect(const Module& module) {
  for (const Declaration* one : module.body) {
    if (const auto* inner = as<Module>(one)) collect(*inner);
    const auto* interface = as<Interface>(one);
    if (interface && !interface->forward && spell_.is_own(*interface)) interfaces_.push_back(interface);
  }
}

void File::includes() {
  for (const Include& one : compilation_.input.includes) {
    if (one.file == orb_idl_name) continue;
    const std::size_t dot = one.written.rfind('.');
    const std::string header = one.written.substr(0, dot) + ".h";
    out_.line("#include " + (one.angled ? "<" + header + ">" : "\"" + header + "\""));
  }
}

void File::declarations(const Module& module) {
  for (const Declaration* one : module.body) {
    const auto* inner = as<Module>(one);
    if (!inner) {
      declare(*one);
      continue;
    }
    const auto own = [&](const Declaration* declaration) { return spell_.is_own(*declaration); };
    if (std::none_of(inner->body.begin(), inner->body.end(), own)) continue;
    out_.blank();
    out_.line("namespace " + cpp_name(inner->name.text) + " {");
    out_.blank();
    declarations(*inner);
    out_.blank();
    out_.line("}  // namespace " + cpp_name(inner->name.text));
    out_.blank();
  }
}

void File::declare(const Declaration& declaration) {
  if (!spell_.is_own(declaration)) return;
  const auto* interface = as<Interface>(&declaration);
  if (!interface) return TypeEmitter(out_, spell_).declare(declaration, Inside::Namespace);
  if (announced_.insert(defined(interface)).second) announce_interface(out_, *interface);
  const Interface* const handler = interface->handler;
  if (handler && announced_.insert(handler).second) announce_interface(out_, *handler);
  if (!interface->forward) declare_interface(out_, spell_, *interface, options_);
}

// Skeletons of one module after the other stand in one namespace.
void File::skeletons() {
  std::string open;
  const auto close = [&] {
    if (!open.empty()) out_.line("}  // namespace " + open);
    out_.blank();
  };
  for (const Interface* one : interfaces_) {
    if (one->flavour == Flavour::Local) continue;
    const std::string scope = spell_.skeleton_scope(*one->scope);
    if (scope != open) {
      close();
      if (!scope.empty()) out_.line("namespace " + scope + " {");
      out_.blank();
      open = scope;
    }
    declare_skeleton(out_, spell_, *one, options_);
  }
  close();
}

void File::announcement() {
  std::vector<std::string> all;
  for (const Interface* one : interfaces_)
    if (one->flavour != Flavour::Local) all.push_back("&" + spell_.skeleton(*one) + "::_info");
  if (all.empty()) return;
  out_.line("namespace {");
  out_.line("[[maybe_unused]] const bool announced =");
  out_.line("    CORBA::idl::announce({" +
            joined_by(", ", all, [](const std::string& text) { return text; }) + "});");
  out_.line("}");
}

std::string File::trimmed() const {
  std::string text = out_.text();
  while (text.ends_with("\n\n")) text.pop_back();
  return text;
}

}  // namespace

std::vector<std::string> extra_headers(Compilation& compilation) {
  std::set<std::string> headers;
  walk(*compilation.tree.root, [&](const Declaration& one) {
    if (one.file() != 0) return;
    const auto is_abstract = [](const Declaration* declared) {
      const auto* interface = as<Interface>(declared);
      return interface && interface->flavour == Flavour::Abstract;
    };
    bool abstract = is_abstract(&one);
    for (const Type* type : types_of(one)) {
      while (type->element) type = type->element;
      abstract = abstract || is_abstract(meaning(*type));
    }
    if (abstract) headers.insert("corba/abstract_base.h");
    const auto* operation = as<Operation>(&one);
    if (operation && !operation->contexts.empty()) headers.insert("corba/detail/context_row.h");
  });
  return {headers.begin(), headers.end()};
}

Emitted emit(Compilation& compilation, const std::string& name, const EmitOptions& options) {
  refuse_what_has_no_mapping(compilation);
  if (options.async && !compilation.diagnostics.errors()) add_reply_handlers(compilation);
  if (compilation.diagnostics.errors()) return {};
  File file(compilation, name, options);
  return {file.header(), file.source()};
}

}  // namespace idl
