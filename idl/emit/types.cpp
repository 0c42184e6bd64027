#include "emit/emit.h"

namespace idl {
namespace {

std::string dimensions_of(const Declarator& declarator) {
  return joined_by("", declarator.sizes, [](std::uint32_t size) { return "[" + std::to_string(size) + "]"; });
}

std::string quoted_id(const Declaration& declaration) {
  return "static constexpr const char *id = " + cpp_string(declaration.id) +
         ", *name = " + cpp_string(declaration.name.text) + ";";
}

bool has_dimensions(const Member& member) { return !member.declarator.dimensions.empty(); }

// The tag of a member that is an array.
std::string array_tag(const Member& member) { return "_type__" + member.name.text; }

}  // namespace

std::string member_type(const Spelling& spell, const Member& member) {
  return has_dimensions(member) ? array_tag(member) + "::Array" : spell.member(*member.type);
}

std::string member_descriptor(const Spelling& spell, const Member& member) {
  if (!has_dimensions(member)) return spell.descriptor(*member.type);
  return spell.qualified(*member.scope) + "::" + array_tag(member);
}

// Whether a member has to be set to zero where it is declared.
static bool starts_at_zero(const Spelling& spell, const Member& member) {
  return has_dimensions(member) ? spell.fixed_length(*member.type)
                                : spell.fixed_length(*member.type) && member.type->kind != TypeKind::Fixed;
}

std::vector<const Member*> members_of(const Scope& scope) {
  std::vector<const Member*> members;
  if (const auto* structure = as<Struct>(&scope); structure && structure->base)
    members = members_of(static_cast<const Struct&>(*meaning(*structure->base)));
  for (const Declaration* one : scope.body)
    if (const auto* member = as<Member>(one)) members.push_back(member);
  return members;
}

void TypeEmitter::declare(const Declaration& declaration, Inside inside) {
  for (const Type* type : types_of(declaration)) {
    if (type->defines && declaration.kind != Kind::Union) declare(*type->defines, inside);
    unnamed_sequences(declaration.kind == Kind::Typedef ? type->element : nullptr, inside);
  }
  switch (declaration.kind) {
    case Kind::Native:  // the program defines it
      return out_.line("class " + cpp_name(declaration.name.text) + ";");
    case Kind::Constant:
      return constant(static_cast<const Constant&>(declaration), inside);
    case Kind::Enum:
      return enumeration(static_cast<const Enum&>(declaration), inside);
    case Kind::Typedef:
      return alias(static_cast<const Typedef&>(declaration), inside);
    case Kind::Struct:
      return structure(static_cast<const Struct&>(declaration), inside);
    case Kind::Exception:
      return exception(static_cast<const Exception&>(declaration), inside);
    case Kind::Union:
      return choice(static_cast<const Union&>(declaration), inside);
    default:
      return;
  }
}

// Sequences without a name of their own get one, the innermost first.
void TypeEmitter::unnamed_sequences(const Type* type, Inside inside) {
  if (!type || type->kind != TypeKind::Sequence) return;
  unnamed_sequences(type->element, inside);
  const std::string path = spell_.value(*type);
  const std::size_t scope = path.rfind("::");
  sequence_class(scope == std::string::npos ? path : path.substr(scope + 2), *type);
}

void TypeEmitter::sequence_class(const std::string& name, const Type& type) {
  out_.open("class " + name + " : public " + spell_.sequence_base(type) + " {");
  out_.label("public:");
  out_.line(type.bound_value ? "using BoundedSequence::BoundedSequence;" : "using Sequence::Sequence;");
  out_.close("};");
}

void TypeEmitter::typecode(const std::string& name, const std::string& descriptor, Inside inside) {
  const bool in_class = inside == Inside::Class;
  out_.line((in_class ? "static constexpr CORBA::idl::typecode_constant<"
                      : "inline constexpr CORBA::idl::typecode_constant<") +
            descriptor + "> _tc_" + name + (in_class ? "{};" : ";"));
}

// T_var and T_out of a struct, union or sequence, or of a typedef of `type`.
void TypeEmitter::owners(const std::string& name, const Type* type, bool fixed) {
  if (type) {
    const std::string real = spell_.value(*type);
    if (unalias(*type).kind != TypeKind::Fixed) out_.line("using " + name + "_var = " + real + "_var;");
    out_.line("using " + name + "_out = " + (fixed ? name + "&" : real + "_out") + ";");
  } else {
    out_.line("using " + name + "_var = CORBA::" + (fixed ? "FixedVar<" : "ValueVar<") + name + ">;");
    out_.line("using " + name + "_out = " + (fixed ? name + "&" : "CORBA::ValueOut<" + name + ">") + ";");
  }
}

// --- constants and enums ------------------------------------------------------------------------------------------

void TypeEmitter::constant(const Constant& constant, Inside inside) {
  const std::string storage = inside == Inside::Class ? "static " : "inline ";
  const std::string name = cpp_name(constant.name.text),
                    value = spell_.literal(constant.value, *constant.type);
  switch (spell_.form(*constant.type)) {
    case Form::String:
      return out_.line(storage + "constexpr const char* " + name + " = " + value + ";");
    case Form::WString:
      return out_.line(storage + "constexpr const CORBA::WChar* " + name + " = " + value + ";");
    case Form::FixedValue:
      return out_.line((inside == Inside::Class ? "static inline " : storage) + "const CORBA::Fixed " + name +
                       "(" + value + ");");
    default:
      return out_.line(storage + "constexpr " + spell_.value(*constant.type) + " " + name + " = " + value +
                       ";");
  }
}

void TypeEmitter::enumeration(const Enum& enumeration, Inside inside) {
  out_.blank();
  const std::string name = cpp_name(enumeration.name.text);
  const auto text_of = [](const Enumerator* one) { return cpp_name(one->name.text); };
  out_.line("enum " + name + " : CORBA::ULong { " + joined_by(", ", enumeration.enumerators, text_of) +
            " };");
  out_.line("using " + name + "_out = " + name + "&;");
  typecode(name, name, inside);
  out_.blank();
}

// --- typedefs -----------------------------------------------------------------------------------------------------

void TypeEmitter::alias(const Typedef& alias, Inside inside) {
  out_.blank();
  if (!alias.declarator.dimensions.empty())
    array(alias, inside);
  else if (alias.type->kind == TypeKind::Sequence)
    sequence(alias, inside);
  else
    plain_alias(alias, inside);
  out_.blank();
}

void TypeEmitter::sequence(const Typedef& alias, Inside inside) {
  const std::string name = cpp_name(alias.name.text);
  sequence_class(name, *alias.type);
  owners(name, nullptr, false);
  typecode(name, name, inside);
}

void TypeEmitter::array_functions(const std::string& name, Inside inside) {
  const std::string storage = inside == Inside::Class ? "static " : "inline ", slice = name + "_slice*",
                    type = "<_type_" + name + ">";
  out_.line(storage + slice + " " + name + "_alloc() { return CORBA::array_alloc" + type + "(); }");
  out_.line(storage + slice + " " + name + "_dup(const " + slice + " _from) { return CORBA::array_dup" +
            type + "(_from); }");
  out_.line(storage + "void " + name + "_copy(" + slice + " _to, const " + slice +
            " _from) { CORBA::array_copy_slice" + type + "(_to, _from); }");
  out_.line(storage + "void " + name + "_free(" + slice + " _from) { CORBA::array_free" + type +
            "(_from); }");
}

void TypeEmitter::array_tag(const std::string& tag, const std::string& id, const Type& element,
                            const Declarator& declarator) {
  out_.open("struct " + tag + " {");
  if (!id.empty()) out_.line(id);
  out_.line("using Array = " + spell_.member(element) + dimensions_of(declarator) + ";");
  out_.line("using Element = " + spell_.descriptor(element) + ";");
  out_.line(std::string("static constexpr bool fixed = ") +
            (spell_.fixed_length(element) ? "true;" : "false;"));
  out_.close("};");
}

void TypeEmitter::array(const Typedef& alias, Inside inside) {
  const std::string name = cpp_name(alias.name.text), type = "_type_" + name;
  array_tag(type, quoted_id(alias), *alias.type, alias.declarator);
  out_.line("using " + name + " = " + type + "::Array;");
  out_.line("using " + name + "_slice = CORBA::ArraySlice<" + type + ">;");
  out_.line("using " + name + "_var = CORBA::ArrayVar<" + type + ">;");
  out_.line("using " + name + "_out = " +
            (spell_.fixed_length(*alias.type) ? name + "_slice*;" : "CORBA::ArrayOut<" + type + ">;"));
  out_.line("using " + name + "_forany = CORBA::ArrayForany<" + type + ">;");
  array_functions(name, inside);
  typecode(name, type, inside);
}

// A typedef that has no C++ type of its own.
void TypeEmitter::plain_alias(const Typedef& alias, Inside inside) {
  const Type& type = *alias.type;
  const std::string name = cpp_name(alias.name.text), tag_name = "_type_" + name, real = spell_.value(type);
  if (spell_.form(type) == Form::Native) return out_.line("using " + name + " = " + real + ";");
  out_.open("struct " + tag_name + " {");
  out_.line(quoted_id(alias));
  out_.line("using Aliased = " + spell_.descriptor(type) + ";");
  out_.close("};");
  out_.line("using " + name + " = " + real + ";");
  switch (spell_.form(type)) {
    case Form::Number:
      out_.line("using " + name + "_out = " + name + "&;");
      break;
    case Form::String:
    case Form::WString: {
      const std::string owner = spell_.form(type) == Form::String ? "CORBA::String" : "CORBA::WString";
      out_.line("using " + name + "_var = " + owner + "_var;");
      out_.line("using " + name + "_out = " + owner + "_out;");
      break;
    }
    case Form::Reference:
      out_.line("using " + name + "_ptr = " + real + "_ptr;");
      owners(name, &type, false);
      break;
    case Form::FixedArray:
    case Form::Array:
      for (const char* part : {"_slice", "_var", "_out", "_forany"})
        out_.line("using " + name + part + " = " + real + part + ";");
      for (const char* function : {"_alloc", "_dup", "_copy", "_free"})
        out_.line((inside == Inside::Class ? "static constexpr auto* " : "inline constexpr auto* ") + name +
                  function + " = " + real + function + ";");
      break;
    default:
      owners(name, &type, spell_.form(type) == Form::FixedValue);
  }
  typecode(name, tag_name, inside);
}

// --- structs, exceptions and unions -------------------------------------------------------------------------------

// The types of members that have no name in IDL get one.
void TypeEmitter::unnamed_types(const Member& member) {
  if (member.first_of_several) {
    if (member.type->defines) declare(*member.type->defines, Inside::Class);
    unnamed_sequences(member.type, Inside::Class);
  }
  if (has_dimensions(member)) array_tag(idl::array_tag(member), "", *member.type, member.declarator);
}

void TypeEmitter::members(const Scope& scope) {
  for (const Declaration* one : scope.body) {
    const auto* member = as<Member>(one);
    if (!member) continue;
    out_.line(member_type(spell_, *member) + " " + cpp_name(member->name.text) +
              (starts_at_zero(spell_, *member) ? "{};" : ";"));
  }
}

void TypeEmitter::structure(const Struct& structure, Inside inside) {
  const std::string name = cpp_name(structure.name.text);
  out_.blank();
  if (structure.forward) return out_.line("struct " + name + ";");
  out_.open("struct " + name + (structure.base ? " : " + spell_.value(*structure.base) : "") + " {");
  for (const Declaration* one : structure.body)
    if (const auto* member = as<Member>(one)) unnamed_types(*member);
  members(structure);
  out_.close("};");
  bool fixed = true;
  for (const Member* member : members_of(structure)) fixed = fixed && spell_.fixed_length(*member->type);
  owners(name, nullptr, fixed);
  typecode(name, name, inside);
  out_.blank();
}

void TypeEmitter::exception(const Exception& exception, Inside inside) {
  const std::string name = cpp_name(exception.name.text);
  const std::vector<const Member*> all = members_of(exception);
  out_.blank();
  out_.open("class " + name + " : public CORBA::UserExceptionOf<" + name + "> {");
  out_.label("public:");
  out_.line("static constexpr const char* repository_id = " + cpp_string(exception.id) + ";");
  for (const Member* member : all) unnamed_types(*member);
  if (!all.empty()) constructors(name, all);
  members(exception);
  out_.close("};");
  typecode(name, name, inside);
  out_.blank();
}

// The default constructor and one with all members.
void TypeEmitter::constructors(const std::string& name, const std::vector<const Member*>& all) {
  std::vector<std::string> parameters, initializers;
  std::string body;
  for (const Member* member : all) {
    const std::string own = cpp_name(member->name.text), given = "_" + member->name.text;
    const Form form = has_dimensions(*member) ? Form::FixedArray : spell_.form(*member->type);
    const std::string descriptor = member_descriptor(spell_, *member);
    parameters.push_back((has_dimensions(*member) ? "const CORBA::ArraySlice<" + descriptor + ">*"
                                                  : spell_.parameter(Direction::In, *member->type)) +
                         " " + given);
    if (form == Form::FixedArray || form == Form::Array)
      body += " CORBA::array_copy_slice<" + descriptor + ">(" + own + ", " + given + ");";
    else if (form == Form::Reference)
      initializers.push_back(own + "(CORBA::duplicated(" + given + "))");
    else
      initializers.push_back(own + "(" + given + ")");
  }
  const auto same = [](const std::string& text) { return text; };
  out_.line(name + "() = default;");
  out_.line(name + "(" + joined_by(", ", parameters, same) + ")" +
            (initializers.empty() ? "" : " : " + joined_by(", ", initializers, same)) + " {" + body +
            (body.empty() ? "}" : " }"));
  out_.blank();
}

// The types that are declared in a union stand in a class before it; its name, empty when there are none.
std::string TypeEmitter::inner_types(const Union& choice, const std::vector<const Member*>& all) {
  Writer inner;
  inner.open("struct _types_" + choice.name.text + " {");
  const std::string head = inner.text();
  TypeEmitter types(inner, spell_);
  for (const Member* member : all) types.unnamed_types(*member);
  if (choice.discriminator->defines) types.declare(*choice.discriminator->defines, Inside::Class);
  if (inner.text() == head) return {};
  inner.close("};");
  out_.line("class " + cpp_name(choice.name.text) + ";");
  out_.lines(inner.text());
  return "_types_" + choice.name.text;
}

void TypeEmitter::choice(const Union& choice, Inside inside) {
  const std::string name = cpp_name(choice.name.text);
  out_.blank();
  if (choice.forward) return out_.line("class " + name + ";");
  const std::vector<const Member*> all = members_of(choice);
  bool fixed = true;
  for (const Member* member : all) fixed = fixed && spell_.fixed_length(*member->type);
  const std::string inner = inner_types(choice, all);
  // What is declared in the union stands in that base, as the other one needs it already.
  const auto from_base = [&](const std::string& text) {
    const std::string own = spell_.qualified(choice) + "::";
    return text.starts_with(own) ? inner + "::" + text.substr(own.size()) : text;
  };
  const auto type_of = [&](const Member* member) {
    return has_dimensions(*member) ? inner + "::" + member_type(spell_, *member)
                                   : from_base(spell_.member(*member->type));
  };
  out_.open("class " + name + " : " + (inner.empty() ? "" : "public " + inner + ", ") +
            "public CORBA::Union<" + name + ", " + from_base(spell_.value(unalias(*choice.discriminator))) +
            ", " + joined_by(", ", all, type_of) + "> {");
  out_.label("public:");
  for (std::size_t i = 0; i < all.size(); ++i) accessors(choice, *all[i], i);
  if (!choice.has_default && choice.has_free_value)
    out_.line("void _default() { _select(" + spell_.literal(choice.free_value, *choice.discriminator) +
              "); }");
  out_.close("};");
  owners(name, nullptr, fixed);
  typecode(name, name, inside);
  out_.blank();
}

void TypeEmitter::array_accessors(const std::string& name, const std::string& index, const std::string& label,
                                  const std::string& descriptor) {
  const std::string slice = "CORBA::ArraySlice<" + descriptor + ">*";
  out_.line("void " + name + "(const " + slice + " _value) { _set_array<" + index + ", " + descriptor + ">(" +
            label + ", _value); }");
  out_.line(slice + " " + name + "() const { return _get<" + index + ">(); }");
}

void TypeEmitter::accessors(const Union& choice, const Member& member, std::size_t index) {
  const std::string name = cpp_name(member.name.text), number = std::to_string(index),
                    at = "<" + number + ">";
  const bool only_default = member.labels.size() == 1 && !member.labels[0];
  const Value& first = member.labels[0] || only_default ? member.label_values[0] : member.label_values[1];
  const std::string label = spell_.literal(only_default ? choice.free_value : first, *choice.discriminator);
  const auto set = [&](const std::string& type, const std::string& value) {
    out_.line("void " + name + "(" + type + " _value) { _set" + at + "(" + label + ", " + value + "); }");
  };
  const auto get = [&](const std::string& type, const std::string& suffix, const std::string& is_const) {
    out_.line(type + " " + name + "()" + is_const + " { return _get" + at + "()" + suffix + "; }");
  };
  const Type& type = *member.type;
  if (has_dimensions(member)) return array_accessors(name, number, label, member_descriptor(spell_, member));
  const std::string value = spell_.value(type);
  switch (spell_.form(type)) {
    case Form::Number:
      set(value, "_value");
      return get(value, "", " const");
    case Form::String:
    case Form::WString: {
      const bool wide = spell_.form(type) == Form::WString;
      const std::string letter = wide ? "CORBA::WChar" : "char";
      for (const std::string& form : {letter + "*", "const " + letter + "*"}) set(form, "_value");
      out_.line("template <class _owner>");  // a _var, and also a member or an element
      set("const CORBA::TextOwner<_owner, " + letter + ">&", "_value.in()");
      return get("const " + letter + "*", ".in()", " const");
    }
    case Form::Reference:
      set(value + "*", "CORBA::duplicated(_value)");
      return get(value + "*", ".in()", " const");
    case Form::FixedArray:
    case Form::Array:
      return array_accessors(name, number, label, spell_.descriptor(type));
    default:
      set("const " + value + "&", "_value");
      get("const " + value + "&", "", " const");
      return get(value + "&", "", "");
  }
}

}  // namespace idl
