// Walks a CDR value by its TypeCode.
#include "corba/any.h"
#include "typecode_details.h"

namespace CORBA {
namespace {

class ValueCopier {
 public:
  ValueCopier(CDR* from, CDR* to) : from_(from), to_(to) {}

  /// `depth`: how many more levels of types, and of Anys in Anys, may be nested.
  bool copy(const TypeCode* any_type, ULong depth) {
    const TypeCode* type = unalias(any_type);
    if (depth == 0) return false;
    switch (type->kind()) {
      case tk_null:
      case tk_void:
        return true;
      case tk_boolean:
      case tk_char:
      case tk_octet:
        return one<Octet, OM_cdr_octet>();
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
      default:
        return copy_complex(*type, depth - 1);
    }
  }

 private:
  bool copy_complex(const TypeCode& type, ULong depth) {
    switch (type.kind()) {
      case tk_any:
        return copy_any(depth);
      case tk_TypeCode:
        return copy_typecode().in() != nullptr;
      case tk_objref:
        return copy_reference();
      case tk_enum:
        return copy_enum(*type.details());
      case tk_string:
        return copy_string(type.details() ? type.details()->length : 0);
      case tk_sequence:
        return copy_sequence(*type.details(), depth);
      case tk_array:
        return copy_elements(type.details()->length, type.details()->content.in(), depth);
      case tk_struct:
        return copy_members(*type.details(), depth);
      case tk_except:
        return copy_text(&type.details()->id) && copy_members(*type.details(), depth);
      default:
        return false;
    }
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
  bool copy_text(const std::string* expected = nullptr) {
    const char* text = read_text();
    return text && (!expected || *expected == text) && write_text(text);
  }
  bool copy_string(ULong bound) {
    const char* text = read_text();
    return text && (bound == 0 || std::strlen(text) <= bound) && write_text(text);
  }

  bool copy_enum(const TypeCode::Details& details) {
    ULong value = 0;
    return OM_cdr_unsigned_long(from_, &value) && value < details.members.size() &&
           OM_cdr_unsigned_long(to_, &value);
  }

  bool copy_sequence(const TypeCode::Details& details, ULong depth) {
    ULong count = 0;
    if (!copy_count(&count, 1) || (details.length != 0 && count > details.length)) return false;
    return copy_elements(count, details.content.in(), depth);
  }

  bool copy_elements(ULong count, const TypeCode* type, ULong depth) {
    if (count > OM_cdr_remaining(from_)) return false;  // each element takes an octet at least
    const TCKind kind = unalias(type)->kind();
    if (kind == tk_octet || kind == tk_char || kind == tk_boolean) return copy_octets(count);
    for (ULong i = 0; i < count; ++i) {
      if (!copy(type, depth)) return false;
    }
    return true;
  }

  bool copy_members(const TypeCode::Details& details, ULong depth) {
    for (const auto& member : details.members) {
      if (!copy(member.type.in(), depth)) return false;
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
