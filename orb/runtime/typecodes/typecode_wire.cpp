// TypeCode := ulong kind, then
//   simple kinds                nothing
//   string, wstring             ulong bound
//   fixed                       ushort digits, short scale
//   others                      encapsulation of
//     objref, native, abstract_interface, local_interface
//                               string id, string name
//     struct, except            string id, string name, ulong count, count * (string name, TypeCode)
//     union                     string id, string name, TypeCode discriminator, long default index, ulong count,
//                               count * (label of the discriminator's type, string name, TypeCode)
//     enum                      string id, string name, ulong count, count * string
//     alias, value_box          string id, string name, TypeCode
//     sequence, array           TypeCode, ulong length
//     value                     string id, string name, short modifier, TypeCode base (null: none), ulong count,
//                               count * (string name, TypeCode, short visibility)
//   or, for a TypeCode that stands earlier in the same description, also around this place:
//     ulong 0xffffffff, long distance from this number back to that TypeCode's kind
#include <algorithm>
#include <unordered_map>

#include "corba/detail/wire.h"
#include "typecodes/typecode_details.h"
#include "typecodes/typecode_reading.h"

namespace CORBA {
namespace {

constexpr ULong indirection = 0xffffffff;

// ---- Encoding ------------------------------------------------------------------------------------

/// Writes in place, so that distances are those of the stream. Encapsulations start on multiples of 4.
class WireWriter {
 public:
  explicit WireWriter(CDR* cdr) : cdr_(cdr), version_(cdr->minor_version) {}
  ~WireWriter() { cdr_->minor_version = version_; }
  WireWriter(const WireWriter&) = delete;
  WireWriter& operator=(const WireWriter&) = delete;

  bool type(const TypeCode* type, ULong depth) {
    const TypeCode::Parameters& parameters = type->parameters();
    switch (const TCKind kind = type->kind()) {
      case tk_string:
      case tk_wstring:
        return number(ULong{kind}) && number(parameters.length);
      case tk_fixed:
        return number(ULong{kind}) && number(static_cast<UShort>(parameters.length)) &&
               number(parameters.scale);
      default:
        if (is_simple(kind)) return number(ULong{kind});
        if (kind == tk_recursive || depth == 0) return false;
        return has_place(*type) ? refer(*type) : complex_type(*type, depth - 1);
    }
  }

 private:
  template <class T>
  bool number(T value) {
    return zrsv::write_value(cdr_, value);
  }
  bool text(const char* text) { return idl::Wire<const char*>::move(cdr_, text); }
  std::size_t at() const { return static_cast<std::size_t>(cdr_->out_next - cdr_->out_base); }

  /// Types around this one are referred to, and those that the description which they came from referred to; what
  /// a program names twice is written twice, as older peers understand circles only.
  bool has_place(const TypeCode& type) const { return places_.contains(&type); }
  bool refer(const TypeCode& type) {
    if (!number(indirection)) return false;
    return number(
        static_cast<Long>(static_cast<std::ptrdiff_t>(places_[&type]) - static_cast<std::ptrdiff_t>(at())));
  }

  bool complex_type(const TypeCode& type, ULong depth) {
    if (!number(static_cast<ULong>(type.kind()))) return false;
    places_.emplace(&type, at() - sizeof(ULong));
    if (!number(ULong{0})) return false;
    const std::size_t start = at();
    const Octet little = std::endian::native == std::endian::little;
    if (!number(little) || !parameters(type, start, depth)) return false;
    const auto length = static_cast<ULong>(at() - start);
    std::memcpy(cdr_->out_base + start - sizeof length, &length, sizeof length);
    if (!TypeCodeBuilder::is_decoded(type)) places_.erase(&type);
    return true;
  }

  bool parameters(const TypeCode& type, std::size_t start, ULong depth) {
    const TypeCode::Parameters& parameters = type.parameters();
    if (!has(type.kind(), has_id)) return content(type, depth) && number(parameters.length);
    if (!text(parameters.id) || !text(parameters.name)) return false;
    switch (type.kind()) {
      case tk_alias:
      case tk_value_box:
        return content(type, depth);
      case tk_union:
        if (!content(type, depth) || !number(parameters.default_index)) return false;
        break;
      case tk_value:
        if (!number(parameters.modifier) || !content(type, depth)) return false;
        break;
      default:
        break;
    }
    return !has(type.kind(), has_members) || members(type, start, depth);
  }

  bool content(const TypeCode& type_, ULong depth) {
    return type(type_.content() ? type_.content() : _tc_null, depth);
  }

  bool members(const TypeCode& of, std::size_t start, ULong depth) {
    const auto rows = of.parameters().members;
    if (!number(static_cast<ULong>(rows.size()))) return false;
    for (const TypeCode::Member& row : rows) {
      if (of.kind() == tk_union && !label(of, row.label, start)) return false;
      if (!text(row.name) || (row.type && !type(*row.type, depth))) return false;
      if (of.kind() == tk_value && !number(row.visibility)) return false;
    }
    return true;
  }

  /// Alignment to 8 counts from the start of the encapsulation; wide characters have the form of version 1.2.
  bool label(const TypeCode& of, LongLong label, std::size_t start) {
    const TCKind kind = unalias(of.content())->kind();
    if (kind == tk_longlong || kind == tk_ulonglong) return wide_label(label, start);
    cdr_->minor_version = 2;
    const bool moved = move_discriminator(cdr_, of.content(), label);
    cdr_->minor_version = version_;
    return moved;
  }
  bool wide_label(LongLong label, std::size_t start) {
    ULong halves[2];
    std::memcpy(halves, &label, sizeof label);
    constexpr std::size_t unit = sizeof(ULong);
    while ((at() - start) % unit != 0) {
      if (!number(Octet{0})) return false;
    }
    if ((at() - start) % sizeof label != 0 && !number(ULong{0})) return false;
    return number(halves[0]) && number(halves[1]);
  }

  CDR* cdr_;
  unsigned char version_;
  std::unordered_map<const TypeCode*, std::size_t> places_;
};

// ---- Decoding ------------------------------------------------------------------------------------

/// What a description has had so far: the types of it that have an encapsulation, by the place of their kind, and
/// those around the place that is being read.
struct Places {
  struct Place {
    std::uintptr_t at;
    TypeCode* type;
  };
  std::vector<Place> places;  // in ascending order
  std::vector<const TypeCode*> around;

  /// The type that starts there. Null when none does, and when it would be an alias of itself.
  TypeCode* find(std::uintptr_t at) const {
    const auto found = std::ranges::lower_bound(places, at, {}, &Place::at);
    if (found == places.end() || found->at != at) return nullptr;
    const auto circle = std::ranges::find(around, found->type);
    const bool empty = circle != around.end() && std::all_of(circle, around.end(), [](const TypeCode* type) {
                         return type->kind() == tk_alias;
                       });
    return empty ? nullptr : found->type;
  }
};

class WireReader {
 public:
  WireReader(CDR* cdr, TypeCodeBuilder& builder, Places& places)
      : cdr_(cdr), builder_(builder), places_(places) {}

  /// Null for what is no TypeCode. `depth`: how many more levels may be nested.
  TypeCode* type(ULong depth) {
    ULong kind = 0;
    if (depth == 0 || !length(&kind)) return nullptr;
    switch (kind) {
      case tk_string:
      case tk_wstring:
        return bounded(static_cast<TCKind>(kind));
      case tk_fixed:
        return fixed();
      case indirection:
        return earlier();
      default:
        break;
    }
    if (kind > tk_local_interface) return nullptr;
    const auto known = static_cast<TCKind>(kind);
    return is_simple(known) ? simple_typecode(known) : complex_type(known, depth - 1);
  }

  bool text(std::string_view* text) {
    const char* view = nullptr;
    if (!OM_cdr_string_view(cdr_, &view)) return false;
    *text = view;
    return true;
  }
  bool length(ULong* number) { return OM_cdr_unsigned_long(cdr_, number); }
  bool count(ULong* number) {
    constexpr std::size_t shortest_member = 5;  // a length word and the NUL of an empty name
    return length(number) && fits(*number, shortest_member, OM_cdr_remaining(cdr_));
  }
  TypeCode* nested(ULong depth) { return type(depth); }
  TypeCode* element(ULong depth) { return type(depth); }
  bool number(Short* number) { return OM_cdr_short(cdr_, number); }
  bool number(Long* number) { return OM_cdr_long(cdr_, number); }
  bool label(const TypeCode* type, LongLong* label) { return move_discriminator(cdr_, type, *label); }

 private:
  std::uintptr_t place() const { return reinterpret_cast<std::uintptr_t>(cdr_->in_next); }

  TypeCode* made(TCKind kind, const TypeCode::Parameters& parameters) {
    TypeCode* node = builder_.add(kind);
    return builder_.complete(node, parameters) ? node : nullptr;
  }

  TypeCode* bounded(TCKind kind) {
    ULong bound = 0;
    if (!length(&bound)) return nullptr;
    return bound == 0 ? simple_typecode(kind) : made(kind, {.length = bound});
  }

  TypeCode* fixed() {
    UShort digits = 0;
    Short scale = 0;
    if (!OM_cdr_unsigned_short(cdr_, &digits) || !number(&scale)) return nullptr;
    return made(tk_fixed, {.length = digits, .scale = scale});
  }

  TypeCode* earlier() {
    Long distance = 0;
    if (!number(&distance)) return nullptr;
    return places_.find(place() - sizeof distance + static_cast<std::uintptr_t>(std::intptr_t{distance}));
  }

  TypeCode* complex_type(TCKind kind, ULong depth) {
    const std::uintptr_t start = place() - sizeof(ULong);
    CDR inner;
    if (!OM_cdr_read_encapsulation(cdr_, &inner)) return nullptr;
    TypeCode* node = builder_.add(kind);
    places_.places.push_back({start, node});
    places_.around.push_back(node);
    WireReader reader(&inner, builder_, places_);
    const bool read = read_parameters(reader, builder_, node, depth);
    places_.around.pop_back();
    return read ? node : nullptr;
  }

  CDR* cdr_;
  TypeCodeBuilder& builder_;
  Places& places_;
};

TypeCode* read(CDR* cdr) {
  TypeCodeBuilder builder(/*from_wire=*/true);
  Places places;
  TypeCode* type = WireReader(cdr, builder, places).type(TypeCode::max_depth);
  return type && builder.owns(*type) ? builder.finish(type) : type;
}

}  // namespace
}  // namespace CORBA

unsigned char cdr_CORBA_TypeCode(CDR* cdr, CORBA::TypeCode*& type) {
  if (cdr->direction == CDR_ENCODE)
    return CORBA::WireWriter(cdr).type(type ? type : CORBA::_tc_null, CORBA::TypeCode::max_depth);
  if (cdr->direction != CDR_DECODE) return 0;
  CORBA::TypeCode* read = CORBA::read(cdr);
  if (read) type = read;
  return read != nullptr;
}
