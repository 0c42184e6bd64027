// TypeCode := ulong kind, then
//   simple kinds           nothing
//   string                 ulong bound
//   others                 encapsulation of
//     objref               string id, string name
//     struct, except       string id, string name, ulong count, count * (string name, TypeCode)
//     enum                 string id, string name, ulong count, count * string
//     alias                string id, string name, TypeCode
//     sequence, array      TypeCode, ulong length
// The kind 0xffffffff refers to a TypeCode earlier in the stream. Only recursive types need it and only
// compact encoders use it otherwise; it is refused as an unknown kind.
#include "raise.h"
#include "typecode_details.h"

namespace CORBA {
namespace {

using Details = TypeCode::Details;
using DetailsPtr = std::unique_ptr<Details>;

// ---- GIOP form: encoding -------------------------------------------------------------------------

bool write(CDR* cdr, const TypeCode* type);

bool write(CDR* cdr, ULong number) { return OM_cdr_unsigned_long(cdr, &number); }

bool write(CDR* cdr, const std::string& text) {
  auto* plain = const_cast<char*>(text.c_str());
  return OM_cdr_string(cdr, &plain);
}

bool write_members(CDR* cdr, const Details& details) {
  if (!write(cdr, static_cast<ULong>(details.members.size()))) return false;
  for (const Details::Member& each : details.members) {
    if (!write(cdr, each.name)) return false;
    if (each.type.in() && !write(cdr, each.type.in())) return false;
  }
  return true;
}

bool write_parameters(CDR* cdr, const TypeCode& type) {
  const Details& details = *type.details();
  switch (type.kind()) {
    case tk_sequence:
    case tk_array:
      return write(cdr, details.content.in()) && write(cdr, details.length);
    default:
      break;
  }
  if (!write(cdr, details.id) || !write(cdr, details.name)) return false;
  switch (type.kind()) {
    case tk_alias:
      return write(cdr, details.content.in());
    case tk_struct:
    case tk_except:
    case tk_enum:
      return write_members(cdr, details);
    default:
      return true;
  }
}

bool write(CDR* cdr, const TypeCode* type) {
  if (!write(cdr, static_cast<ULong>(type->kind()))) return false;
  if (type->kind() == tk_string) return write(cdr, type->details() ? type->details()->length : 0U);
  if (!type->details()) return true;
  CDR inner;
  const bool written = OM_cdr_open_encapsulation(&inner) && write_parameters(&inner, *type) &&
                       OM_cdr_write_encapsulation(cdr, &inner);
  OM_cdr_close(&inner);
  return written;
}

// ---- Decoding, of both forms ---------------------------------------------------------------------
// Each form is a reader of numbers, texts and nested TypeCodes; what it reads is put together here. Null is
// the answer to anything malformed. `depth` is how many more levels may be nested.

template <class Reader>
DetailsPtr read_named(Reader& reader) {
  std::string_view id, name;
  if (!reader.text(&id) || !reader.text(&name)) return nullptr;
  return std::make_unique<Details>(id, name);
}

template <class Reader>
bool read_members(Reader& reader, TCKind kind, Details& details, ULong depth) {
  ULong count = 0;
  if (!reader.count(&count)) return false;
  for (ULong i = 0; i < count; ++i) {
    std::string_view name;
    if (!reader.text(&name)) return false;
    if (kind == tk_enum) {
      details.members.push_back({std::string(name), nullptr});
    } else if (!details.add_member(name, reader.nested(depth))) {
      return false;
    }
  }
  return true;
}

/// What follows id and name.
template <class Reader>
DetailsPtr read_named_type(Reader& reader, TCKind kind, ULong depth) {
  DetailsPtr details = read_named(reader);
  if (!details || kind == tk_objref) return details;
  const bool read = kind == tk_alias ? details->set_content(reader.nested(depth))
                                     : read_members(reader, kind, *details, depth);
  return read ? std::move(details) : nullptr;
}

template <class Reader>
DetailsPtr read_list_type(Reader& reader, ULong depth) {
  auto details = std::make_unique<Details>();
  const bool read = details->set_content(reader.element(depth)) && reader.length(&details->length);
  return read ? std::move(details) : nullptr;
}

/// The number of elements of some encoding is never trusted further than the octets behind it reach.
bool fits(ULong count, std::size_t shortest, std::size_t left) {
  return std::uint64_t{count} * shortest <= left;
}

// ---- GIOP form: decoding -------------------------------------------------------------------------

class WireReader {
 public:
  explicit WireReader(CDR* cdr) : cdr_(cdr) {}

  TypeCode* type(ULong depth) {
    ULong number = 0;
    if (depth == 0 || !length(&number)) return nullptr;
    const auto kind = static_cast<TCKind>(number);
    if (kind == tk_string) {
      ULong bound = 0;
      return length(&bound) ? make_string_typecode(bound) : nullptr;
    }
    return is_simple(kind) ? simple_typecode(kind) : complex_type(kind, depth - 1);
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

 private:
  TypeCode* complex_type(TCKind kind, ULong depth) {
    CDR inner;
    switch (kind) {
      case tk_objref:
      case tk_struct:
      case tk_enum:
      case tk_alias:
      case tk_except:
      case tk_sequence:
      case tk_array:
        break;
      default:
        return nullptr;
    }
    if (!OM_cdr_read_encapsulation(cdr_, &inner)) return nullptr;
    WireReader reader(&inner);
    const bool list = kind == tk_sequence || kind == tk_array;
    return make_typecode(kind, list ? read_list_type(reader, depth) : read_named_type(reader, kind, depth));
  }

  CDR* cdr_;
};

// ---- Descriptions of compiled IDL ----------------------------------------------------------------

// Big-endian, not aligned; a number in brackets is a width in octets:
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
  DescriptionReader(const Octet* octets, std::size_t length) : octets_(octets), left_(length) {}

  bool at_end() const { return left_ == 0; }
  bool number(std::size_t width, ULong* number) {
    const Octet* at = take(width);
    if (!at) return false;
    *number = 0;
    for (std::size_t i = 0; i < width; ++i) *number = *number << 8 | at[i];
    return true;
  }

  /// The one TypeCode that fills the octets.
  TypeCode* only_type(ULong depth) {
    TypeCode_var read(type(depth));
    return at_end() ? read._retn() : nullptr;
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
    return at ? DescriptionReader(at, length).only_type(depth) : nullptr;
  }

  TypeCode* type(ULong depth) {
    ULong number_read = 0;
    if (depth == 0 || !number(1, &number_read)) return nullptr;
    const auto kind = static_cast<TCKind>(number_read);
    switch (kind) {
      case tk_sequence:
        return make_typecode(kind, read_list_type(*this, depth - 1));
      case tk_struct:
      case tk_except: {
        if (!take(3)) return nullptr;
        [[fallthrough]];
      }
      case tk_objref:
      case tk_enum:
      case tk_alias:
        return make_typecode(kind, read_named_type(*this, kind, depth - 1));
      case tk_string:
        return nullptr;  // strings do not occur in descriptions
      default:
        return simple_typecode(kind);
    }
  }

  const Octet* octets_;
  std::size_t left_;
};

TypeCode* read_description(const Octet* octets, std::size_t length) {
  DescriptionReader reader(octets, length);
  ULong zeros = 0;
  if (!octets || !reader.number(4, &zeros) || zeros != 0) return nullptr;
  return reader.only_type(TypeCode::max_depth);
}

TypeCode* describe(const Octet* octets, std::size_t length, Environment& env) {
  env.clear();
  TypeCode* type = read_description(octets, length);
  if (!type) env.exception(new BAD_TYPECODE);
  return type;
}

}  // namespace
}  // namespace CORBA

unsigned char cdr_CORBA_TypeCode(CDR* cdr, CORBA::TypeCode*& type) {
  if (cdr->direction == CDR_ENCODE) return CORBA::write(cdr, type ? type : CORBA::_tc_null);
  if (cdr->direction != CDR_DECODE) return 0;
  CORBA::TypeCode* read = CORBA::WireReader(cdr).type(CORBA::TypeCode::max_depth);
  if (read) type = read;
  return read != nullptr;
}

CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* /*orb*/, const CORBA_sequence_octet* encoded,
                                                     CORBA::Environment& env) {
  return encoded ? CORBA::describe(encoded->_buffer, encoded->_length, env)
                 : CORBA::describe(nullptr, 0, env);
}

CORBA::TypeCode* cpp_CORBA_ORB_TypeCode_from_cgen_TC(void* /*orb*/, const CORBA::OctetSeq& encoded,
                                                     CORBA::Environment& env) {
  return CORBA::describe(encoded.get_buffer(), encoded.length(), env);
}
