#include "emit/emit.h"

namespace idl {
namespace {

// Writes "template <> struct CORBA::idl::Type<T> : base {", lines, and the end.
class Description {
 public:
  Description(Writer& out, const std::string& type, const std::string& base) : out_(out) {
    out_.line("template <>");
    out_.open("struct CORBA::idl::Type<" + type + "> : CORBA::idl::" + base + " {");
  }
  ~Description() { out_.close("};"); }
  Description(const Description&) = delete;
  Description& operator=(const Description&) = delete;

  void id(const Declaration& declaration) {
    out_.line("static constexpr const char *id = " + cpp_string(declaration.id) +
              ", *name = " + cpp_string(declaration.name.text) + ";");
  }

 private:
  Writer& out_;
};

// Whether the library sees the descriptor of a member from its C++ type.
bool is_plain(const Spelling& spell, const Member& member) {
  const Type& type = *member.type;
  if (!member.declarator.dimensions.empty() || as<Typedef>(type.declared)) {
    const auto* alias = as<Typedef>(type.declared);
    return member.declarator.dimensions.empty() && alias && spell.descriptor(type) == spell.value(type);
  }
  if (type.kind == TypeKind::String) return !type.bound_value;
  return type.kind != TypeKind::WString && type.kind != TypeKind::Fixed &&
         spell.descriptor(type) != "CORBA::TypeCode";
}

void each(Writer& out, const Spelling& spell, const Scope& scope) {
  const std::vector<const Member*> all = members_of(scope);
  const std::string type = spell.qualified(scope);
  out.line("template <class V>");
  out.open("static constexpr bool each(V" + std::string(all.empty() ? "" : " _v") + ", " + type + "&" +
           (all.empty() ? "" : " _e") + ") {");
  out.line("return " +
           (all.empty() ? std::string("true")
                        : joined_by(" && ", all,
                                    [&](const Member* member) {
                                      return "_v(" + cpp_string(member->name.text) + ", _e." +
                                             cpp_name(member->name.text) +
                                             (is_plain(spell, *member)
                                                  ? ")"
                                                  : ", as<" + member_descriptor(spell, *member) + ">)");
                                    })) +
           ";");
  out.close("}");
}

void describe_members(Writer& out, const Spelling& spell, const Scope& scope, const std::string& base) {
  const std::string type = spell.qualified(scope);
  Description description(out, type, base + "<" + type + ">");
  description.id(scope);
  each(out, spell, scope);
}

void describe_enum(Writer& out, const Spelling& spell, const Enum& enumeration) {
  const std::string type = spell.qualified(enumeration);
  Description description(out, type, "enumeration<" + type + ">");
  description.id(enumeration);
  out.line("static constexpr const char* names[] = {" +
           joined_by(", ", enumeration.enumerators,
                     [](const Enumerator* one) { return cpp_string(one->name.text); }) +
           "};");
}

void describe_sequence(Writer& out, const Spelling& spell, const std::string& type, const Type& sequence,
                       const Typedef* alias) {
  const std::string bound = sequence.bound_value ? ", " + std::to_string(sequence.bound_value) : "";
  Description description(out, type,
                          std::string(alias ? "sequence_typedef<" : "anonymous_sequence<") + type + ", " +
                              spell.descriptor(*sequence.element) + bound + ">");
  if (alias) description.id(*alias);
}

void describe_union(Writer& out, const Spelling& spell, const Union& choice) {
  const std::vector<const Member*> all = members_of(choice);
  const std::string type = spell.qualified(choice),
                    discriminator = spell.value(unalias(*choice.discriminator));
  bool fixed = true;
  std::size_t default_member = all.size();
  std::vector<std::string> labels;
  for (std::size_t i = 0; i < all.size(); ++i) {
    fixed = fixed && spell.fixed_length(*all[i]->type);
    for (std::size_t k = 0; k < all[i]->labels.size(); ++k) {
      if (all[i]->labels[k])
        labels.push_back("{" + spell.literal(all[i]->label_values[k], *choice.discriminator) + ", " +
                         std::to_string(i) + "}");
      else
        default_member = i;
    }
  }
  const auto same = [](const std::string& text) { return text; };
  const auto descriptor = [&](const Member* member) { return member_descriptor(spell, *member); };
  Description description(out, type,
                          std::string(fixed ? "fixed_union<" : "variable_union<") + type + ", " +
                              discriminator + ", " + joined_by(", ", all, descriptor) + ">");
  description.id(choice);
  out.line("static constexpr const char* members[] = {" +
           joined_by(", ", all, [](const Member* member) { return cpp_string(member->name.text); }) + "};");
  out.line(labels.empty() ? "static constexpr std::array<Label<" + discriminator + ">, 0> labels{};"
                          : "static constexpr Label<" + discriminator + "> labels[] = {" +
                                joined_by(", ", labels, same) + "};");
  out.line("static constexpr unsigned default_member = " + std::to_string(default_member) + ";");
}

void describe_unnamed(Writer& out, const Spelling& spell, const Type* type) {
  if (!type || type->kind != TypeKind::Sequence) return;
  describe_unnamed(out, spell, type->element);
  describe_sequence(out, spell, spell.value(*type), *type, nullptr);
}

}  // namespace

void describe_type(Writer& out, const Spelling& spell, const Declaration& declaration) {
  const auto* alias = as<Typedef>(&declaration);
  const bool names_sequence =
      alias && alias->type->kind == TypeKind::Sequence && alias->declarator.dimensions.empty();
  if (alias || declaration.kind == Kind::Member)
    for (const Type* type : types_of(declaration))
      describe_unnamed(out, spell, names_sequence ? type->element : type);
  const auto* definable = as<Definable>(&declaration);
  if (definable && definable->forward) return;
  if (names_sequence)
    describe_sequence(out, spell, spell.qualified(*alias), *alias->type, alias);
  else if (declaration.kind == Kind::Enum)
    describe_enum(out, spell, static_cast<const Enum&>(declaration));
  else if (declaration.kind == Kind::Exception)
    describe_members(out, spell, static_cast<const Exception&>(declaration), "exception_type");
  else if (declaration.kind == Kind::Union)
    describe_union(out, spell, static_cast<const Union&>(declaration));
  else if (const auto* structure = as<Struct>(&declaration)) {
    bool fixed = true;
    for (const Member* member : members_of(*structure)) fixed = fixed && spell.fixed_length(*member->type);
    describe_members(out, spell, *structure, fixed ? "fixed_struct" : "variable_struct");
  }
}

}  // namespace idl
