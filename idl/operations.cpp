#include <set>

#include "check.h"
#include "types.h"

namespace idl {
namespace {

class Operations {
 public:
  explicit Operations(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void visit(Declaration& declaration) {
    if (auto* operation = as<Operation>(&declaration)) {
      this->operation(*operation);
    } else if (auto* attribute = as<Attribute>(&declaration)) {
      raises(attribute->get_raises);
      raises(attribute->set_raises);
      stays_local(*attribute, *attribute->type);
    } else if (auto* factory = as<Factory>(&declaration)) {
      raises(factory->raises);
      only_in(*factory);
    } else if (as<Scope>(&declaration) && declaration.kind != Kind::Module) {
      local_.of(declaration);  // in the order of the file, so that no look into one goes deep
    }
  }

 private:
  void operation(const Operation& operation);
  void oneway(const Operation& operation);
  void only_in(const Factory& factory);
  void raises(const std::vector<Raised>& raises);
  void contexts(const Operation& operation);
  void stays_local(const Declaration& user, const Type& type);

  Diagnostics& diagnostics_;
  LocalParts local_;
};

void Operations::operation(const Operation& operation) {
  if (operation.oneway) oneway(operation);
  raises(operation.raises);
  contexts(operation);
  stays_local(operation, *operation.result);
  for (const Declaration* one : operation.body)
    stays_local(operation, *static_cast<const Parameter*>(one)->type);
}

void Operations::oneway(const Operation& operation) {
  if (operation.result->kind != TypeKind::Void)
    diagnostics_.error(operation.result->at, "a oneway operation has no result");
  for (const Declaration* one : operation.body)
    if (static_cast<const Parameter*>(one)->direction != Direction::In)
      diagnostics_.error(one->name.at, "a oneway operation has only in parameters");
  if (!operation.raises.empty())
    diagnostics_.error(operation.raises.front().name.at(), "a oneway operation raises no exceptions");
}

void Operations::only_in(const Factory& factory) {
  for (const Declaration* one : factory.body)
    if (static_cast<const Parameter*>(one)->direction != Direction::In)
      diagnostics_.error(one->name.at, "a factory has only in parameters");
}

void Operations::raises(const std::vector<Raised>& raises) {
  std::set<const Declaration*> seen;
  for (const Raised& one : raises) {
    if (!one.declared) continue;
    const std::string name = quoted(one.name.text());
    if (one.declared->kind == Kind::Exception) {
      if (!seen.insert(one.declared).second) diagnostics_.error(one.name.at(), name + " is raised twice");
    } else if (diagnostics_.error(one.name.at(),
                                  name + " is " + a_kind(one.declared->kind) + ", no exception")) {
      diagnostics_.note(one.declared->name.at, "it is declared here");
    }
  }
}

// A letter, then letters, digits, dots and underscores; a star may end it.
void Operations::contexts(const Operation& operation) {
  const auto good = [](const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto c = static_cast<unsigned char>(text[i]);
      const bool fits = std::isalpha(c) || (i > 0 && (std::isdigit(c) || c == '.' || c == '_')) ||
                        (c == '*' && i > 0 && i + 1 == text.size());
      if (!fits) return false;
    }
    return !text.empty();
  };
  for (const auto& [text, at] : operation.contexts)
    if (!good(text)) diagnostics_.error(at, quoted(text) + " is no name of a context property");
}

// Only a local interface may pass on what cannot leave the process.
void Operations::stays_local(const Declaration& user, const Type& type) {
  const auto* interface = as<Interface>(user.scope);
  if (!interface || interface->flavour == Flavour::Local) return;
  const Declaration* const local = local_.of(type);
  if (!local) return;
  const char* what = local->kind == Kind::Native ? "a native type" : "a local interface";
  if (diagnostics_.error(
          type.at, quoted(local->name.text) + " is " + what + ", and only a local interface can use it here"))
    diagnostics_.note(local->name.at, "it is declared here");
}

}  // namespace

void check_operations(Tree& tree, Diagnostics& diagnostics) {
  Operations pass(diagnostics);
  walk(*tree.root, [&](Declaration& declaration) { pass.visit(declaration); });
}

void check(Tree& tree, Diagnostics& diagnostics) {
  check_names(tree, diagnostics);
  check_constants(tree, diagnostics);
  check_types(tree, diagnostics);
  check_inheritance(tree, diagnostics);
  check_unions(tree, diagnostics);
  check_operations(tree, diagnostics);
}

}  // namespace idl
