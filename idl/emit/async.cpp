// Asynchronous calls: the interfaces of the objects that take their replies, as the standard derives them.
#include <algorithm>
#include <set>

#include "emit/emit.h"
#include "scopes.h"

namespace idl {
namespace {

// Makes the handlers, with what they need of module Messaging.
class Handlers {
 public:
  explicit Handlers(Compilation& compilation)
      : tree_(compilation.tree),
        diagnostics_(compilation.diagnostics),
        orb_file_(compilation.sources.number(orb_idl_name)) {
    const Location elsewhere{compilation.sources.number("<Messaging>"), 0, 0, 0};
    Module* const messaging = tree_.make<Module>(Identifier{"Messaging", elsewhere});
    messaging->scope = tree_.root;
    reply_handler_ = interface("ReplyHandler", *messaging, elsewhere);
    Native* const holder = tree_.make<Native>(Identifier{"ExceptionHolder", elsewhere});
    holder->scope = messaging;
    holder_->kind = TypeKind::Named;
    holder_->declared = holder;
  }

  void add_to(Module& module) {
    for (std::size_t i = 0; i < module.body.size(); ++i) {
      if (Module* const inner = as<Module>(module.body[i])) add_to(*inner);
      Interface* const one = as<Interface>(module.body[i]);
      if (!one || one->forward || one->flavour != Flavour::Plain || one->file() == orb_file_) continue;
      add_handler(*one);
      module.body.insert(module.body.begin() + static_cast<std::ptrdiff_t>(++i), one->handler);
    }
  }

 private:
  using Names = std::set<std::string>;

  void add_handler(Interface& of) {
    Interface* const made = of.handler = interface("AMI_" + of.name.text + "Handler", *of.scope, of.name.at);
    made->id = of.id.substr(0, name_in(of.id)) + made->name.text + of.id.substr(of.id.rfind(':'));
    for (Interface* base : of.bases) {
      if (base->flavour == Flavour::Abstract) continue;
      if (!base->handler)
        error(of, "asynchronous calls", "its base " + quoted(full_name(*base)) + " has none");
      if (base->handler) made->bases.push_back(base->handler);
    }
    if (made->bases.empty()) made->bases.push_back(reply_handler_);
    for (const Declaration* one : of.body) add_methods(*made, *one);
    if (of.file() == 0) check(of);
  }

  static std::size_t name_in(const std::string& id) {
    const std::size_t end = id.rfind(':');
    return id.find_last_of("/:", end - 1) + 1;
  }

  Interface* interface(const std::string& name, Scope& scope, const Location& at) {
    Interface* const made = tree_.make<Interface>(Identifier{name, at});
    made->scope = &scope;
    made->definition = made;
    made->complete = true;
    return made;
  }

  void add_methods(Interface& handler, const Declaration& one) {
    if (const auto* operation = as<Operation>(&one); operation && !operation->oneway)
      add_methods(handler, operation->name, operation->result, operation->body, operation->raises);
    const auto* attribute = as<Attribute>(&one);
    if (!attribute) return;
    const auto named = [&](const char* what) { return Identifier{what + attribute->name.text, one.name.at}; };
    add_methods(handler, named("get_"), attribute->type, {}, attribute->get_raises);
    if (!attribute->readonly) add_methods(handler, named("set_"), void_, {}, attribute->set_raises);
  }

  // What an operation gives is what its handler takes.
  void add_methods(Interface& handler, const Identifier& name, Type* result,
                   const std::vector<Declaration*>& parameters, const std::vector<Raised>& raises) {
    Operation& reply = method(handler, name);
    if (result->kind != TypeKind::Void) add_parameter(reply, {"ami_return_val", name.at}, result);
    for (const Declaration* one : parameters) {
      const auto& parameter = static_cast<const Parameter&>(*one);
      if (parameter.direction != Direction::In) add_parameter(reply, parameter.name, parameter.type);
    }
    Operation& failure = method(handler, {name.text + "_excep", name.at});
    failure.raises = raises;  // those that may be in the holder
    add_parameter(failure, {"excep_holder", name.at}, holder_);
  }

  Operation& method(Interface& handler, const Identifier& name) {
    Operation* const made = tree_.make<Operation>(name);
    made->scope = &handler;
    made->result = void_;
    handler.body.push_back(made);
    return *made;
  }

  void add_parameter(Operation& operation, const Identifier& name, Type* type) {
    Parameter* const made = tree_.make<Parameter>(name);
    made->scope = &operation;
    made->type = type;
    operation.body.push_back(made);
  }

  // ---- what stands in the way ----

  void check(const Interface& of) {
    const auto* module = as<Module>(of.scope);
    if ((module && module->first ? module->first : of.scope)
            ->table.contains(lower_case(of.handler->name.text)))
      error(of, "the handler of its replies", quoted(of.handler->name.text) + " is declared already");
    Names own, replies;
    std::vector<const Interface*> all = bases_first(of);
    all.push_back(&of);
    for (const Interface* one : all)
      for (const Declaration* declared : one->body) own.insert(declared->name.text);
    for (const Interface* one : all) {
      for (const Declaration* declared : one->body)
        for (const char* prefix :
             {"sendc_", "async_", "sendc_get_", "async_get_", "sendc_set_", "async_set_"})
          if (own.contains(prefix + declared->name.text))
            error(of, "an asynchronous call", quoted(prefix + declared->name.text) + " is declared already");
      if (!one->handler) continue;
      for (const Declaration* declared : one->handler->body)
        if (!replies.insert(declared->name.text).second)
          return error(of, "the handler of its replies",
                       quoted(declared->name.text) + " would be in it twice");
    }
  }

  void error(const Interface& of, const char* what, const std::string& why) {
    if (of.file() == 0)
      diagnostics_.error(of.name.at, quoted(of.name.text) + " cannot have " + what + ": " + why);
  }

  Tree& tree_;
  Diagnostics& diagnostics_;
  const std::uint32_t orb_file_;
  Interface* reply_handler_ = nullptr;
  Type* const void_ = tree_.make<Type>();
  Type* const holder_ = tree_.make<Type>();
};

}  // namespace

void add_reply_handlers(Compilation& compilation) {
  try {
    Handlers(compilation).add_to(*compilation.tree.root);
  } catch (const GiveUp&) {
  }
}

}  // namespace idl
