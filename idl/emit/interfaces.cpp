#include <algorithm>

#include "emit/emit.h"

namespace idl {
namespace {

Method method_of(const Operation& operation) {
  Method method;
  method.name = cpp_name(operation.name.text);
  method.wire_name = operation.name.text;
  method.row = "op_" + operation.name.text;
  if (operation.result->kind != TypeKind::Void) method.result = operation.result;
  for (const Declaration* one : operation.body) {
    const auto& parameter = static_cast<const Parameter&>(*one);
    const bool taken = parameter.name.text == "ev";  // the environment's own name
    method.arguments.push_back(
        {taken ? "env_" : cpp_name(parameter.name.text), parameter.direction, parameter.type});
  }
  method.raises = &operation.raises;
  method.oneway = operation.oneway;
  for (const auto& [pattern, at] : operation.contexts) method.contexts.push_back(pattern);
  if (!method.contexts.empty()) method.arguments.push_back({"_context", Direction::In, nullptr});
  return method;
}

Method getter_of(const Attribute& attribute) {
  Method method;
  method.name = cpp_name(attribute.name.text);
  method.wire_name = "_get_" + attribute.name.text;
  method.row = "attr" + method.wire_name;
  method.result = attribute.type;
  method.raises = &attribute.get_raises;
  return method;
}

Method setter_of(const Attribute& attribute) {
  Method method;
  method.name = cpp_name(attribute.name.text);
  method.wire_name = "_set_" + attribute.name.text;
  method.row = "attr" + method.wire_name;
  method.arguments.push_back({"_value", Direction::In, attribute.type});
  method.raises = &attribute.set_raises;
  return method;
}

void add_bases(const Interface& interface, std::vector<const Interface*>& all) {
  for (const Interface* base : interface.bases) {
    if (std::find(all.begin(), all.end(), base) != all.end()) continue;
    add_bases(*base, all);
    all.push_back(base);
  }
}

}  // namespace

std::vector<Method> methods_of(const Interface& interface) {
  std::vector<Method> methods;
  for (const Declaration* one : interface.body) {
    if (const auto* operation = as<Operation>(one)) methods.push_back(method_of(*operation));
    if (const auto* attribute = as<Attribute>(one)) {
      methods.push_back(getter_of(*attribute));
      if (!attribute->readonly) methods.push_back(setter_of(*attribute));
    }
  }
  return methods;
}

std::vector<const Interface*> bases_first(const Interface& interface) {
  std::vector<const Interface*> all;
  add_bases(interface, all);
  return all;
}

std::string signature(const Spelling& spell, const Method& method, const std::string& scope,
                      const std::string& environment) {
  std::vector<std::string> parameters;
  for (const Method::Argument& one : method.arguments)
    parameters.push_back((one.type ? spell.parameter(one.direction, *one.type) : "CORBA::Context*") + " " +
                         one.name);
  if (!environment.empty()) parameters.push_back(environment);
  return (method.result ? spell.result(*method.result) : "void") + " " + scope + method.name + "(" +
         joined_by(", ", parameters, [](const std::string& text) { return text; }) + ")";
}

std::string call(const Method& method, const std::string& first, const std::string& last) {
  std::vector<std::string> arguments;
  if (!first.empty()) arguments.push_back(first);
  for (const Method::Argument& one : method.arguments) arguments.push_back(one.name);
  if (!last.empty()) arguments.push_back(last);
  return "(" + joined_by(", ", arguments, [](const std::string& text) { return text; }) + ")";
}

// --- asynchronous calls -------------------------------------------------------------------------------------------

std::string async_name(const Method& method) {
  return method.wire_name.starts_with("_") ? method.wire_name.substr(1) : method.wire_name;
}

static std::string in_parameters(const Spelling& spell, const Method& method, const std::string& first) {
  std::vector<std::string> parameters;
  if (!first.empty()) parameters.push_back(first);
  for (const Method::Argument& one : method.arguments)
    if (one.direction != Direction::Out)
      parameters.push_back((one.type ? spell.parameter(Direction::In, *one.type) : "CORBA::Context*") + " " +
                           one.name);
  return "(" + joined_by(", ", parameters, [](const std::string& text) { return text; }) + ")";
}

std::string sendc_signature(const Spelling& spell, const Method& method, const Interface& interface,
                            const std::string& scope) {
  return "void " + scope + "sendc_" + async_name(method) +
         in_parameters(spell, method, spell.qualified(*interface.handler) + "* _handler");
}

std::string future_value(const Spelling& spell, const Method& method) {
  std::vector<std::string> all;
  if (method.result) all.push_back(spell.owned(*method.result));
  for (const Method::Argument& one : method.arguments)
    if (one.direction != Direction::In) all.push_back(spell.owned(*one.type));
  if (all.size() < 2) return all.empty() ? "void" : all[0];
  return "std::tuple<" + joined_by(", ", all, [](const std::string& text) { return text; }) + ">";
}

std::string future_signature(const Spelling& spell, const Method& method, const std::string& scope) {
  return "std::future<" + future_value(spell, method) + "> " + scope + "async_" + async_name(method) +
         in_parameters(spell, method, "");
}

// --- clients ------------------------------------------------------------------------------------------------------

void announce_interface(Writer& out, const Interface& interface) {
  const std::string name = cpp_name(interface.name.text);
  out.blank();
  out.line("class " + name + ";");
  out.line("using " + name + "_ptr = " + name + "*;");
  out.line("using " + name + "_var = CORBA::ObjectVar<" + name + ">;");
  out.line("using " + name + "_out = CORBA::ObjectOut<" + name + ">;");
  out.blank();
}

static void declare_async(Writer& out, const Spelling& spell, const Interface& interface) {
  if (!interface.handler) return;
  out.blank();
  for (const Method& method : methods_of(interface)) {
    if (method.oneway) continue;
    out.line(sendc_signature(spell, method, interface, "") + ";");
    out.line(future_signature(spell, method, "") + ";");
  }
}

void declare_interface(Writer& out, const Spelling& spell, const Interface& interface,
                       const EmitOptions& options) {
  const std::string name = cpp_name(interface.name.text);
  const bool local = interface.flavour == Flavour::Local;
  std::vector<std::string> bases;
  for (const Interface* base : interface.bases) bases.push_back("public virtual " + spell.qualified(*base));
  const auto is_local = [](const Interface* base) { return base->flavour == Flavour::Local; };
  if (local && std::none_of(interface.bases.begin(), interface.bases.end(), is_local))
    bases.push_back("public virtual CORBA::LocalObject");
  const bool abstract = interface.flavour == Flavour::Abstract;
  if (bases.empty())
    bases.push_back(abstract ? "public virtual CORBA::AbstractBase" : "public virtual CORBA::Object");

  out.open("class " + name + " : " + joined_by(", ", bases, [](const std::string& text) { return text; }) +
           " {");
  out.label("public:");
  out.line("using _ptr_type = " + name + "*;");
  out.line("using _var_type = " + name + "_var;");
  if (abstract) out.line("using _abstract_type = " + name + ";");
  out.line("static constexpr const char* repository_id = " + cpp_string(interface.id) + ";");
  out.line("static constexpr const char* interface_name = " + cpp_string(interface.name.text) + ";");
  out.line("static " + name + "* _nil() { return nullptr; }");
  out.line("static " + name + "* _duplicate(" + name + "* _reference);");
  out.line("static " + name + "* _narrow(CORBA::Object* _object);");
  out.line("static " + name + "* _unchecked_narrow(CORBA::Object* _object);");
  out.blank();
  TypeEmitter types(out, spell);
  for (const Declaration* one : interface.body) types.declare(*one, Inside::Class);
  out.blank();
  for (const Method& method : methods_of(interface))
    out.line("virtual " + signature(spell, method, "", options.environment ? "CORBA_ENV" : "") +
             (local ? " = 0;" : ";"));
  declare_async(out, spell, interface);
  out.close("};");
  out.line("inline constexpr CORBA::idl::typecode_constant<CORBA::idl::ref<" + name + ">> _tc_" + name + ";");
  out.blank();
}

// --- servants -----------------------------------------------------------------------------------------------------

// An operation that is called like the one by which servants are run leaves that one in sight.
static void keep_invoke(Writer& out, const std::vector<Method>& methods) {
  const auto is_invoke = [](const Method& method) { return method.name == "invoke"; };
  if (std::any_of(methods.begin(), methods.end(), is_invoke))
    out.line("using PortableServer::ServantBase::invoke;");
}

static void declare_tie(Writer& out, const Spelling& spell, const Interface& interface,
                        const EmitOptions& options) {
  const std::string name = (interface.scope->scope ? "" : "POA_") + cpp_name(interface.name.text);
  out.line("template <class _tied>");
  out.open("class " + name + "_tie : public PortableServer::Tie<_tied, " + name + "> {");
  out.label("public:");
  out.line("using PortableServer::Tie<_tied, " + name + ">::Tie;");
  out.blank();
  std::vector<const Interface*> all = bases_first(interface);
  all.push_back(&interface);
  for (const Interface* one : all) keep_invoke(out, methods_of(*one));
  for (const Interface* one : all)
    for (const Method& method : methods_of(*one))
      out.line(signature(spell, method, "", options.environment ? "CORBA::Environment& ev" : "") +
               " override { " + (method.result ? "return " : "") + "this->_tied_object()->" + method.name +
               call(method, "", options.environment ? "ev" : "") + "; }");
  out.close("};");
  out.blank();
}

void declare_skeleton(Writer& out, const Spelling& spell, const Interface& interface,
                      const EmitOptions& options) {
  const std::string own = (interface.scope->scope ? "" : "POA_") + cpp_name(interface.name.text);
  std::vector<std::string> bases;
  for (const Interface* base : interface.bases) bases.push_back("public virtual " + spell.skeleton(*base));
  if (bases.empty()) bases.push_back("public virtual PortableServer::Skeleton");
  out.open("class " + own + " : " + joined_by(", ", bases, [](const std::string& text) { return text; }) +
           " {");
  out.label("public:");
  out.line("static const CORBA::idl::InterfaceInfo _info;");
  out.line(own + "();");
  out.line(spell.qualified(interface) + "* _this(CORBA_ENV);");
  out.blank();
  keep_invoke(out, methods_of(interface));
  for (const Method& method : methods_of(interface))
    out.line("virtual " + signature(spell, method, "", options.environment ? "CORBA_ENV" : "") + " = 0;");
  out.blank();
  out.label("protected:");
  out.line("const CORBA::idl::InterfaceInfo& _interface(void*& self) override;");
  out.close("};");
  out.blank();
  declare_tie(out, spell, interface, options);
}

}  // namespace idl
