#include "emit/emit.h"

namespace idl {
namespace {

// Within the rows the library's namespace has a short name.
std::string shortened(std::string text) {
  static const std::string full = "CORBA::idl::", brief = "idl::";
  for (std::size_t at = 0; (at = text.find(full, at)) != std::string::npos; at += brief.size())
    text.replace(at, full.size(), brief);
  return text;
}

std::string rows_namespace(const Spelling& spell, const Interface& interface) {
  std::string name = spell.path(interface) + (interface.scope->scope ? "" : "_rows");
  for (std::size_t at; (at = name.find("::")) != std::string::npos;) name.replace(at, 2, "_");
  return name;
}

void statics(Writer& out, const Spelling& spell, const Interface& interface) {
  const std::string path = spell.path(interface), name = cpp_name(interface.name.text);
  const bool local = interface.flavour == Flavour::Local;
  const auto define = [&](const std::string& function, const std::string& parameter,
                          const std::string& body) {
    out.line(path + "* " + path + "::" + function + "(" + parameter + ") { return CORBA::idl::" + body +
             "; }");
  };
  define("_duplicate", name + "* _reference",
         local ? "duplicate_local(_reference)" : "duplicate(_reference)");
  define("_narrow", "CORBA::Object* _object", (local ? "narrow_local<" : "narrow<") + name + ">(_object)");
  define("_unchecked_narrow", "CORBA::Object* _object",
         (local ? "narrow_local<" : "unchecked_narrow<") + name + ">(_object)");
  out.blank();
}

// What an operation's context clause lists, for its row.
std::string context_names(const Method& method) { return "context_" + method.wire_name; }

void row(Writer& out, const Spelling& spell, const Method& method) {
  static constexpr const char* directions[] = {"idl::in<", "idl::out<", "idl::inout<"};
  const std::string result = method.result ? spell.descriptor(*method.result) : "void";
  std::string raised =
      joined_by(", ", *method.raises, [&](const Raised& one) { return spell.qualified(*one.declared); });
  const std::string parameters = joined_by(", ", method.arguments, [&](const Method::Argument& one) {
    // What a handler may find in its holder is not what it raises.
    const std::string descriptor = !one.type ? "idl::context<" + context_names(method) + ">"
                                   : is_exception_holder(*one.type)
                                       ? "idl::exception_holder<" + std::exchange(raised, "") + ">"
                                       : spell.descriptor(*one.type);
    return directions[static_cast<std::size_t>(one.direction)] + descriptor + ">";
  });
  if (!method.contexts.empty())
    out.line("constexpr const char* " + context_names(method) + "[] = {" +
             joined_by(", ", method.contexts, cpp_string) + "};");
  out.line(shortened("constexpr idl::operation<Class, " + result + "(" + parameters + ")> " + method.row +
                     "{" + cpp_string(method.wire_name) + ", &Class::" + method.name +
                     (raised.empty() ? "" : ", idl::raises<" + raised + ">") +
                     (method.oneway ? ", idl::oneway" : "") + "};"));
}

// "idl::sendc(this, rows::op_f, _handler, a, idl::nothing)": an out parameter goes without.
std::string async_call(const Method& method, const std::string& function, const std::string& row,
                       const std::string& handler) {
  const auto passed = [](const Method::Argument& one) {
    return ", " + (one.direction == Direction::Out ? "CORBA::idl::nothing" : one.name);
  };
  return "CORBA::idl::" + function + "(this, " + row + handler + joined_by("", method.arguments, passed) +
         ")";
}

void define_async(Writer& out, const Spelling& spell, const Interface& interface, const Method& method) {
  const std::string scope = spell.path(interface) + "::",
                    row = rows_namespace(spell, interface) + "::" + method.row;
  out.line(sendc_signature(spell, method, interface, scope) + " { " +
           async_call(method, "sendc", row, ", _handler") + "; }");
  out.line(future_signature(spell, method, scope) + " { return " +
           async_call(method, "future<" + future_value(spell, method) + ">", row, "") + "; }");
}

void rows(Writer& out, const Spelling& spell, const Interface& interface,
          const std::vector<Method>& methods) {
  const std::string name = rows_namespace(spell, interface);
  out.line("namespace {");
  out.line("namespace " + name + " {");
  out.line("namespace idl = CORBA::idl;");
  if (!methods.empty()) out.line("using Class = " + spell.skeleton(interface) + ";");
  for (const Method& method : methods) row(out, spell, method);
  out.line("constexpr auto table = idl::operations(" +
           joined_by(", ", methods, [](const Method& method) { return method.row; }) + ");");
  out.line("}  // namespace " + name);
  out.line("}  // namespace");
  out.blank();
}

void skeleton(Writer& out, const Spelling& spell, const Interface& interface, bool has_rows) {
  const std::string path = spell.qualified(interface), skeleton = spell.skeleton(interface);
  const std::string bases = joined_by("", bases_first(interface),
                                      [&](const Interface* base) { return ", " + spell.skeleton(*base); });
  const std::string table = rows_namespace(spell, interface) + (has_rows ? "::table.table()" : "::table");
  out.line("constinit const CORBA::idl::InterfaceInfo " + skeleton + "::_info =");
  out.line("    CORBA::idl::interface_info<" + skeleton + bases + ">(" + path + "::repository_id, " + table +
           ");");
  const std::string name = skeleton.substr(skeleton.rfind(':') + 1);
  out.line(skeleton + "::" + name + "() { _intf = " + path + "::repository_id; }");
  out.open("const CORBA::idl::InterfaceInfo& " + skeleton + "::_interface(void*& _self) {");
  out.line("_self = this;");
  out.line("return _info;");
  out.close("}");
  out.line(path + "* " + skeleton + "::_this(CORBA::Environment& ev) { return _this_as<" + path + ">(ev); }");
  out.blank();
}

}  // namespace

void define_interface(Writer& out, const Spelling& spell, const Interface& interface,
                      const EmitOptions& options) {
  const std::string path = spell.path(interface);
  out.line("// ---- " + path + " ----");
  out.blank();
  statics(out, spell, interface);
  if (interface.flavour == Flavour::Local) return;
  const std::vector<Method> methods = methods_of(interface);
  rows(out, spell, interface, methods);
  const std::string name = rows_namespace(spell, interface);
  for (const Method& method : methods)
    out.line(signature(spell, method, path + "::", options.environment ? "CORBA::Environment& ev" : "") +
             " { " + (method.result ? "return " : "") + name + "::" + method.row +
             call(method, "this", options.environment ? "ev" : "") + "; }");
  if (interface.handler)
    for (const Method& method : methods)
      if (!method.oneway) define_async(out, spell, interface, method);
  if (!methods.empty()) out.blank();
  skeleton(out, spell, interface, !methods.empty());
}

}  // namespace idl
