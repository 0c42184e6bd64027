#include <map>
#include <optional>

#include "check.h"
#include "types.h"

namespace idl {
namespace {

// The value of a label as a number, for any type of discriminator.
std::optional<Integer> number_of(const Value& value) {
  if (const auto* v = std::get_if<Integer>(&value)) return *v;
  if (const auto* v = std::get_if<bool>(&value)) return *v ? 1 : 0;
  if (const auto* v = std::get_if<char>(&value)) return static_cast<unsigned char>(*v);
  if (const auto* v = std::get_if<WideChar>(&value)) return static_cast<Integer>(v->code);
  if (const auto* v = std::get_if<const Enumerator*>(&value)) return (*v)->ordinal;
  return std::nullopt;
}

// How many values a discriminator has from 0 on; enough of them where there are more than any union has labels.
Integer values_of(const Type& discriminator) {
  if (const auto* enumeration = as<Enum>(meaning(discriminator)))
    return static_cast<Integer>(enumeration->enumerators.size());
  switch (unalias(discriminator).kind) {
    case TypeKind::Boolean:
      return 2;
    case TypeKind::Char:
    case TypeKind::Octet:
      return 256;
    case TypeKind::Short:
      return 1 << 15;  // and as many below 0
    default:
      return 1 << 16;
  }
}

Value value_of(Integer number, const Type& discriminator) {
  if (const auto* enumeration = as<Enum>(meaning(discriminator)))
    return enumeration->enumerators[static_cast<std::size_t>(number)];
  switch (unalias(discriminator).kind) {
    case TypeKind::Boolean:
      return number != 0;
    case TypeKind::Char:
      return static_cast<char>(number);
    case TypeKind::WChar:
      return WideChar{static_cast<char32_t>(number)};
    default:
      return number;
  }
}

class Unions {
 public:
  explicit Unions(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void visit(Union& choice) {
    if (choice.forward) return;
    const Declaration* const declared = meaning(*choice.discriminator);
    if (unalias(*choice.discriminator).kind == TypeKind::Named && !declared) return;
    if (!discriminates(*choice.discriminator)) {
      diagnostics_.error(choice.discriminator->at,
                         "a union cannot be switched by type " + quoted(type_name(*choice.discriminator)));
      return;
    }
    labels(choice);
  }

 private:
  void labels(Union& choice);
  void label(Union& choice, const Member& member, std::size_t at);
  void free_value(Union& choice);

  Diagnostics& diagnostics_;
  std::map<Integer, Location> used_;
  std::optional<Location> default_;
};

void Unions::labels(Union& choice) {
  used_.clear();
  default_.reset();
  bool members = false;
  for (Declaration* one : choice.body) {
    const auto* member = as<Member>(one);
    if (!member) continue;
    members = true;
    for (std::size_t i = 0; i < member->labels.size(); ++i) label(choice, *member, i);
  }
  if (!members) diagnostics_.error(choice.name.at, "a union has at least one case");
  free_value(choice);
}

void Unions::label(Union& choice, const Member& member, std::size_t at) {
  const Expression* const label = member.labels[at];
  if (!label) {
    choice.has_default = true;
    if (default_ && diagnostics_.error(member.name.at, "a second default case"))
      diagnostics_.note(*default_, "the first one");
    default_ = member.name.at;
    return;
  }
  const auto number = number_of(member.label_values[at]);
  if (!number) return;
  const auto [other, is_new] = used_.emplace(*number, label->at);
  if (!is_new &&
      diagnostics_.error(label->at, "label " + describe(member.label_values[at]) + " is there already"))
    diagnostics_.note(other->second, "the other one is here");
}

// A value that selects no label. A default case without one can never apply.
void Unions::free_value(Union& choice) {
  const Integer count = values_of(*choice.discriminator);
  Integer free = 0;
  while (free < count && used_.contains(free)) ++free;
  choice.has_free_value = free < count;
  if (choice.has_free_value)
    choice.free_value = value_of(free, *choice.discriminator);
  else if (default_ && count <= 256)
    diagnostics_.error(*default_, "the default case never applies: every value has a label");
}

}  // namespace

void check_unions(Tree& tree, Diagnostics& diagnostics) {
  Unions pass(diagnostics);
  walk(*tree.root, [&](Declaration& declaration) {
    if (auto* choice = as<Union>(&declaration)) pass.visit(*choice);
  });
}

}  // namespace idl
