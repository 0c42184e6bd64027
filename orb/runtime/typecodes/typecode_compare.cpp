#include <algorithm>
#include <set>
#include <utility>

#include "typecodes/typecode_details.h"

namespace CORBA {
namespace {

bool same_text(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

/// Types may contain themselves, and name a part again and again: a pair that was met before counts as the same,
/// so the work is bounded by the number of pairs. The first pairs are not noted down, as most types have few.
class Comparison {
 public:
  explicit Comparison(bool equivalence) : equivalence_(equivalence) {}

  bool same(const TypeCode* a, const TypeCode* b, ULong depth = max_depth) {
    if (equivalence_) a = unalias(a), b = unalias(b);
    if (a == b) return true;
    if (!a || !b || a->kind() != b->kind() || depth == 0) return false;
    const TypeCode::Parameters& x = a->parameters();
    const TypeCode::Parameters& y = b->parameters();
    if (equivalence_ && *x.id && *y.id) return same_text(x.id, y.id);
    if (x.members.size() != y.members.size() || !same_numbers(x, y)) return false;
    if (!equivalence_ && !(same_text(x.id, y.id) && same_text(x.name, y.name))) return false;
    return met_before(a, b) || same_parts(*a, *b, depth - 1);
  }

 private:
  static constexpr ULong max_depth = 1024;  // of types that go round in large circles
  static constexpr ULong not_noted = 64;

  static bool same_numbers(const TypeCode::Parameters& x, const TypeCode::Parameters& y) {
    return x.length == y.length && x.default_index == y.default_index && x.scale == y.scale &&
           x.modifier == y.modifier;
  }

  bool met_before(const TypeCode* a, const TypeCode* b) {
    return ++met_ > not_noted && !noted_.emplace(a, b).second;
  }

  bool same_parts(const TypeCode& a, const TypeCode& b, ULong depth) {
    if (!same(a.content(), b.content(), depth)) return false;
    const bool is_union = a.kind() == tk_union;
    const auto same_member = [&](const TypeCode::Member& x, const TypeCode::Member& y) {
      if (!equivalence_ && !same_text(x.name, y.name)) return false;
      if (is_union && x.label != y.label &&
          &x - a.parameters().members.data() != a.parameters().default_index)
        return false;
      return x.visibility == y.visibility && (!x.type || same(*x.type, *y.type, depth));
    };
    return std::ranges::equal(a.parameters().members, b.parameters().members, same_member);
  }

  bool equivalence_;
  ULong met_ = 0;
  std::set<std::pair<const TypeCode*, const TypeCode*>> noted_;
};

}  // namespace

Boolean TypeCode::equal(const TypeCode* other, Environment& ev) const {
  ev.clear();
  return Comparison(false).same(this, other);
}

Boolean TypeCode::equivalent(const TypeCode* other, Environment& ev) const {
  ev.clear();
  return Comparison(true).same(this, other);
}

}  // namespace CORBA
