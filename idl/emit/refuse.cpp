#include "emit/emit.h"

namespace idl {
namespace {

class Refusal {
 public:
  explicit Refusal(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void visit(const Declaration& one) {
    const bool abstract =
        one.kind == Kind::Interface && static_cast<const Interface&>(one).flavour == Flavour::Abstract;
    if (one.kind == Kind::ValueType || one.kind == Kind::ValueBox || one.kind == Kind::Native)
      refuse(one.name.at, std::string(kind_name(one.kind)) + " " + quoted(one.name.text));
    if (abstract) refuse(one.name.at, "abstract interface " + quoted(one.name.text));
    if (const auto* operation = as<Operation>(&one); operation && !operation->contexts.empty())
      refuse(operation->contexts[0].second, "the context of an operation");
    const bool unnamed =
        one.kind == Kind::Parameter || one.kind == Kind::Operation || one.kind == Kind::Attribute;
    for (const Type* type : types_of(one)) {
      if (unalias(*type).kind == TypeKind::ValueBase) refuse(type->at, "'ValueBase'");
      if (unnamed && type->kind == TypeKind::Sequence)
        diagnostics_.error(type->at, "a sequence needs a name here: typedef it first");
    }
  }

 private:
  void refuse(const Location& at, const std::string& what) {
    diagnostics_.error(at, "no C++ is generated for " + what);
  }

  Diagnostics& diagnostics_;
};

}  // namespace

void refuse_what_has_no_mapping(Compilation& compilation) {
  Refusal refusal(compilation.diagnostics);
  try {
    walk(*compilation.tree.root, [&](const Declaration& one) {
      if (one.file() == 0) refusal.visit(one);
    });
  } catch (const GiveUp&) {
  }
}

}  // namespace idl
