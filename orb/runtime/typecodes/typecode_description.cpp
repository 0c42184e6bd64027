#include "base/raise.h"
#include "typecodes/typecode_details.h"
#include "typecodes/typecode_reading.h"

namespace CORBA {
namespace {

// Descriptions of compiled IDL. Big-endian, not aligned; a number in brackets is a width in octets:
//   description := 0 [4], TypeCode
//   TypeCode    := kind [1], then
//     struct, except   native alignment [1] and size [2], text id, text name, count [2],
//                      count * (text name, nested)
//     enum             text id, text name, count [2], count * text
//     objref           text id, text name
//     alias            text id, text name, nested
//     sequence         length [4], TypeCode of that length, bound [2]
//     simple kinds     nothing
//   text        := length [2] with the NUL, characters, NUL
//   nested      := length [2], TypeCode of that length
class DescriptionReader {
 public:
  DescriptionReader(const Octet* octets, std::size_t length, TypeCodeBuilder& builder)
      : octets_(octets), left_(length), builder_(builder) {}

  bool number(std::size_t width, ULong* number) {
    const Octet* at = take(width);
    if (!at) return false;
    *number = 0;
    for (std::size_t i = 0; i < width; ++i) *number = *number << 8 | at[i];
    return true;
  }

  /// The one TypeCode that fills the octets.
  TypeCode* only_type(ULong depth) {
    TypeCode* read = type(depth);
    return left_ == 0 ? read : nullptr;
  }

  bool text(std::string_view* text) {
    ULong length = 0;
    const Octet* at = number(2, &length) ? take(length) : nullptr;
    if (!at || length == 0 || std::memchr(at, 0, length) != at + length - 1) return false;
    *text = {reinterpret_cast<const char*>(at), length - 1};
    return true;
  }
  bool length(ULong* number_read) { return number(2, number_read); }
  bool count(ULong* number_read) {
    constexpr std::size_t shortest_member = 3;  // a length and the NUL of an empty name
    return number(2, number_read) && fits(*number_read, shortest_member, left_);
  }
  template <class T>
  bool number(T*) {
    return false;  // unions and values do not occur
  }
  bool label(const TypeCode*, LongLong*) { return false; }
  TypeCode* nested(ULong depth) { return sized(2, depth); }
  TypeCode* element(ULong depth) { return sized(4, depth); }

 private:
  const Octet* take(std::size_t count) {
    if (count > left_) return nullptr;
    const Octet* at = octets_;
    octets_ += count;
    left_ -= count;
    return at;
  }

  /// A TypeCode with its length in front.
  TypeCode* sized(std::size_t width, ULong depth) {
    ULong length = 0;
    const Octet* at = number(width, &length) ? take(length) : nullptr;
    return at ? DescriptionReader(at, length, builder_).only_type(depth) : nullptr;
  }

  TypeCode* type(ULong depth) {
    ULong number_read = 0;
    if (depth == 0 || !number(1, &number_read)) return nullptr;
    const auto kind = static_cast<TCKind>(number_read);
    switch (kind) {
      case tk_struct:
      case tk_except:
        return take(3) ? complex_type(kind, depth - 1) : nullptr;
      case tk_sequence:
      case tk_objref:
      case tk_enum:
      case tk_alias:
        return complex_type(kind, depth - 1);
      default:
        return is_simple(kind) && kind <= tk_ulonglong ? simple_typecode(kind) : nullptr;
    }
  }

  TypeCode* complex_type(TCKind kind, ULong depth) {
    TypeCode* node = builder_.add(kind);
    return read_parameters(*this, builder_, node, depth) ? node : nullptr;
  }

  const Octet* octets_;
  std::size_t left_;
  TypeCodeBuilder& builder_;
};

TypeCode* read_description(const Octet* octets, std::size_t length) {
  TypeCodeBuilder builder;
  DescriptionReader reader(octets, length, builder);
  ULong zeros = 0;
  if (!octets || !reader.number(4, &zeros) || zeros != 0) return nullptr;
  TypeCode* type = reader.only_type(TypeCode::max_depth);
  return type && builder.owns(*type) ? builder.finish(type) : type;
}

TypeCode* describe(const Octet* octets, std::size_t length, Environment& ev) {
  ev.clear();
  TypeCode* type = read_description(octets, length);
  if (!type) ev.exception(new BAD_TYPECODE);
  return type;
}

}  // namespace
}  // namespace CORBA

CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* /*orb*/, const CORBA_sequence_octet* encoded,
                                                     CORBA::Environment& ev) {
  return encoded ? CORBA::describe(encoded->_buffer, encoded->_length, ev) : CORBA::describe(nullptr, 0, ev);
}

CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* /*orb*/, const CORBA::OctetSeq& encoded,
                                                     CORBA::Environment& ev) {
  return CORBA::describe(encoded.get_buffer(), encoded.length(), ev);
}
