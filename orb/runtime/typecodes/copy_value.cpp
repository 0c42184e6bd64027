// Walks a CDR value by its TypeCode.
#include <memory>

#include "corba/any.h"
#include "typecodes/typecode_details.h"
#include "zrsv/cdr_value.h"

namespace CORBA {
namespace {

/// The member that a discriminator's value chooses; null when it chooses none.
const TypeCode::Member* union_member(const TypeCode::Parameters& parameters, LongLong label) {
  const auto rows = parameters.members;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].label == label && static_cast<Long>(i) != parameters.default_index) return &rows[i];
  }
  return parameters.default_index < 0 ? nullptr : &rows[static_cast<std::size_t>(parameters.default_index)];
}

class ValueCopier {
 public:
  ValueCopier(CDR* from, CDR* to) : from_(from), to_(to) {}

  /// `depth`: how many more levels of types, and of Anys in Anys, may be nested.
  bool copy(const TypeCode* any_type, ULong depth) {
    const TypeCode* type = unalias(any_type);
    if (depth == 0 || !type) return false;
    switch (type->kind()) {
      case tk_null:
      case tk_void:
        return true;
      case tk_boolean:
      case tk_octet:
        return one<Octet, OM_cdr_octet>();
      case tk_char:
        return one<Char, OM_cdr_char>();
      case tk_short:
      case tk_ushort:
        return one<UShort, OM_cdr_unsigned_short>();
      case tk_long:
      case tk_ulong:
      case tk_float:
        return one<ULong, OM_cdr_unsigned_long>();
      case tk_longlong:
      case tk_ulonglong:
      case tk_double:
        return one<ULongLong, OM_cdr_unsigned_long_long>();
      case tk_wchar:
        return one<WChar, OM_cdr_wchar>();
      case tk_longdouble:
        return copy_long_double();
      default:
        return copy_complex(*type, depth - 1);
    }
  }

 private:
  bool copy_complex(const TypeCode& type, ULong depth) {
    const TypeCode::Parameters& parameters = type.parameters();
    switch (type.kind()) {
      case tk_any:
        return copy_any(depth);
      case tk_TypeCode:
        return copy_typecode().in() != nullptr;
      case tk_objref:
        return copy_reference();
      case tk_enum:
        return copy_enum(parameters);
      case tk_string:
        return copy_string(parameters.length);
      case tk_wstring:
        return copy_wide_string(parameters.length);
      case tk_fixed:
        return copy_fixed(parameters.length);
      case tk_Principal:
        return copy_octets_of(0);
      case tk_sequence:
        return copy_sequence(parameters, depth);
      case tk_array:
        return copy_elements(parameters.length, type.content(), depth);
      case tk_struct:
        return copy_members(parameters, depth);
      case tk_except:
        return copy_text(parameters.id) && copy_members(parameters, depth);
      case tk_union:
        return copy_union(type, depth);
      default:
        return copy_by_value(type.kind());
    }
  }

  /// Values themselves are not walked, only nil ones; an abstract interface may be a reference, too.
  bool copy_by_value(TCKind kind) {
    Octet is_reference = 0;
    if (kind == tk_abstract_interface) {
      if (!OM_cdr_boolean(from_, &is_reference) || !OM_cdr_boolean(to_, &is_reference)) return false;
      if (is_reference) return copy_reference();
    } else if (kind != tk_value && kind != tk_value_box) {
      return false;  // local interfaces and natives do not travel
    }
    ULong tag = 0;
    return OM_cdr_unsigned_long(from_, &tag) && tag == 0 && OM_cdr_unsigned_long(to_, &tag);
  }

  template <class T, unsigned char (*Primitive)(CDR*, T*)>
  bool one() {
    T value{};
    return Primitive(from_, &value) && Primitive(to_, &value);
  }

  /// A number that says how many things follow, each at least `shortest` octets long.
  bool copy_count(ULong* count, std::uint64_t shortest) {
    return OM_cdr_unsigned_long(from_, count) && *count * shortest <= OM_cdr_remaining(from_) &&
           OM_cdr_unsigned_long(to_, count);
  }

  bool copy_octets(ULong count) {
    const Octet* octets = nullptr;
    return OM_cdr_bytes_view(from_, &octets, count) && cdr_bytes(to_, const_cast<Octet*>(octets), count);
  }

  const char* read_text() {
    const char* text = nullptr;
    return OM_cdr_string_view(from_, &text) ? text : nullptr;
  }
  bool write_text(const char* text) {
    auto* plain = const_cast<char*>(text);
    return OM_cdr_string(to_, &plain);
  }
  /// Any text, or only `expected`.
  bool copy_text(const char* expected = nullptr) {
    const char* text = read_text();
    return text && (!expected || std::strcmp(expected, text) == 0) && write_text(text);
  }
  bool copy_string(ULong bound) {
    const char* text = read_text();
    char* converted = nullptr;  // one that cannot be read in place
    if (!text && from_->narrow != ZR_TEXT_NATIVE && OM_cdr_string(from_, &converted)) text = converted;
    const std::unique_ptr<char, void (*)(char*)> owner(converted, string_free);
    return text && (bound == 0 || std::strlen(text) <= bound) && write_text(text);
  }
  /// Whether characters are the same octets in both streams.
  bool same_characters() const { return from_->narrow == ZR_TEXT_NATIVE && to_->narrow == ZR_TEXT_NATIVE; }

  /// The bound counts characters: the units of UTF-16 are at least as many.
  bool copy_wide_string(ULong bound) {
    OM_wide text{};
    ULong length = 0;
    if (!OM_cdr_read_wide(from_, &text)) return false;
    if (bound != 0 && !(OM_wide_length(&text, &length) && length <= bound)) return false;
    return OM_cdr_write_wide(to_, &text);
  }

  bool copy_fixed(ULong digits) { return copy_octets(digits / 2 + 1); }

  bool copy_long_double() {
    zrsv::LongDoubleOctets octets;
    return zrsv::read_long_double(from_, &octets) && zrsv::write_long_double(to_, octets);
  }

  bool copy_enum(const TypeCode::Parameters& parameters) {
    ULong value = 0;
    return OM_cdr_unsigned_long(from_, &value) && value < parameters.members.size() &&
           OM_cdr_unsigned_long(to_, &value);
  }

  bool copy_octets_of(ULong bound) {
    ULong count = 0;
    return copy_count(&count, 1) && (bound == 0 || count <= bound) && copy_octets(count);
  }

  bool copy_sequence(const TypeCode::Parameters& parameters, ULong depth) {
    ULong count = 0;
    if (!copy_count(&count, 1) || (parameters.length != 0 && count > parameters.length)) return false;
    return copy_elements(count, *parameters.content, depth);
  }

  bool copy_union(const TypeCode& type, ULong depth) {
    const TypeCode* discriminator = unalias(type.content());
    LongLong label = 0;
    if (!move_discriminator(from_, discriminator, label) || !move_discriminator(to_, discriminator, label))
      return false;
    if (discriminator->kind() == tk_enum &&
        static_cast<std::uint64_t>(label) >= discriminator->parameters().members.size()) {
      return false;
    }
    const TypeCode::Member* chosen = union_member(type.parameters(), label);
    return !chosen || copy(*chosen->type, depth);
  }

  bool copy_elements(ULong count, const TypeCode* type, ULong depth) {
    if (count > OM_cdr_remaining(from_)) return false;  // each element takes an octet at least
    const TypeCode* plain = unalias(type);
    const TCKind kind = plain ? plain->kind() : tk_null;
    if (kind == tk_octet || kind == tk_boolean || (kind == tk_char && same_characters()))
      return copy_octets(count);
    for (ULong i = 0; i < count; ++i) {
      if (!copy(type, depth)) return false;
    }
    return true;
  }

  bool copy_members(const TypeCode::Parameters& parameters, ULong depth) {
    for (const TypeCode::Member& member : parameters.members) {
      if (!copy(*member.type, depth)) return false;
    }
    return true;
  }

  /// Null when there is none.
  TypeCode_var copy_typecode() {
    TypeCode_var type;
    if (!cdr_CORBA_TypeCode(from_, type.inout()) || !cdr_CORBA_TypeCode(to_, type.inout())) return nullptr;
    return type;
  }

  bool copy_any(ULong depth) {
    const TypeCode_var type = copy_typecode();
    return type.in() && copy(type.in(), depth);
  }

  /// A type id and profiles, each a tag and octets with a byte order of their own.
  bool copy_reference() {
    constexpr std::uint64_t shortest_profile = 8;
    ULong count = 0;
    if (!copy_text() || !copy_count(&count, shortest_profile)) return false;
    for (ULong i = 0; i < count; ++i) {
      ULong length = 0;
      if (!one<ULong, OM_cdr_unsigned_long>() || !copy_count(&length, 1) || !copy_octets(length))
        return false;
    }
    return true;
  }

  CDR* from_;
  CDR* to_;
};

}  // namespace

bool copy_value(const TypeCode* type, CDR* from, CDR* to) {
  constexpr ULong max_value_depth = 2 * TypeCode::max_depth;
  from->direction = CDR_DECODE;
  to->direction = CDR_ENCODE;
  return type && ValueCopier(from, to).copy(type, max_value_depth);
}

}  // namespace CORBA
