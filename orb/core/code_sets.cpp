#include "code_sets.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "iiop_profile.h"
#include "zrsv/of_thread.h"

// Layouts, encapsulations both:
//
//   component = byte-order[1] narrow wide;  narrow, wide = native:u32 conversions:u32 (id:u32)*
//   context   = byte-order[1] narrow:u32 wide:u32                       (0: none was agreed on)

namespace zrsv {
namespace {

constexpr uint32_t iso_8859_1 = 0x00010001, utf_8 = 0x05010001, utf_16 = 0x00010109;

/// The native set and the conversion sets of one kind of text.
std::vector<uint32_t> read_sets(Reader* in) {
  std::vector<uint32_t> ids{in->u32()};
  for (uint32_t left = in->count(4); left > 0 && in->ok(); --left) ids.push_back(in->u32());
  return ids;
}

bool contains(const std::vector<uint32_t>& ids, uint32_t id) {
  return std::ranges::find(ids, id) != ids.end();
}

/// The C library's converters, one of each way for a thread.
class Converter {
 public:
  Converter(const char* to, const char* from) : state_(iconv_open(to, from)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (usable()) iconv_close(state_);
  }

  bool usable() const { return state_ != iconv_t(-1); }  // NOLINT(performance-no-int-to-ptr)
  /// Writes to `to`, which has the room that any text needs. The octets written, or -1.
  std::ptrdiff_t run(std::string_view text, char* to, std::size_t room) {
    char* from = const_cast<char*>(text.data());
    char* const start = to;
    std::size_t left = text.size();
    iconv(state_, nullptr, nullptr, nullptr, nullptr);
    return iconv(state_, &from, &left, &to, &room) == 0 && left == 0 ? to - start : -1;
  }

 private:
  iconv_t state_;
};

struct ToLatin : Converter {
  ToLatin() : Converter("ISO-8859-1", "UTF-8") {}
};
struct FromLatin : Converter {
  FromLatin() : Converter("UTF-8", "ISO-8859-1") {}
};

template <class Conversion>
char* converted(CDR* cdr, std::string_view text) {
  if (cdr->narrow != ZR_TEXT_ISO_8859_1) return cdr->unconvertible = ZR_UNKNOWN_CODE_SET, nullptr;
  const std::size_t room = 2 * text.size();  // of ISO 8859-1 in UTF-8; the other way needs less
  auto* made = static_cast<char*>(std::malloc(room + 1));
  if (!made) return nullptr;
  Conversion* conversion = of_thread<Conversion>();
  const std::ptrdiff_t length = conversion && conversion->usable() ? conversion->run(text, made, room) : -1;
  if (length >= 0) return made[length] = 0, made;
  std::free(made);
  cdr->unconvertible = ZR_UNCONVERTIBLE;
  return nullptr;
}

}  // namespace

void write_code_sets_component(Writer* out) {
  out->u32(component_code_sets);
  const std::size_t opened = out->open();
  out->u32(utf_8).u32(1).u32(iso_8859_1).u32(utf_16).u32(0).close(opened);
}

CodeSets code_sets_for(const std::vector<Tagged>& components) {
  for (const Tagged& component : components) {
    CDR cdr;
    if (component.tag != component_code_sets || !open_encapsulation(component.octets, &cdr)) continue;
    Reader in(&cdr);
    const std::vector<uint32_t> narrow = read_sets(&in);
    if (!in.ok()) continue;
    CodeSets sets;
    sets.said = true;
    if (!contains(narrow, utf_8) && contains(narrow, iso_8859_1)) sets.narrow = ZR_TEXT_ISO_8859_1;
    return sets;
  }
  return unsaid_code_sets;
}

void write_code_sets_context(Writer* out, const CodeSets& sets) {
  out->u32(context_code_sets);
  const std::size_t opened = out->open();
  out->u32(sets.narrow == ZR_TEXT_ISO_8859_1 ? iso_8859_1 : utf_8).u32(utf_16).close(opened);
}

bool read_code_sets_context(std::string_view octets, CodeSets* sets) {
  CDR cdr;
  if (!open_encapsulation(octets, &cdr)) return false;
  Reader in(&cdr);
  const uint32_t narrow = in.u32(), wide = in.u32();
  sets->said = true;
  sets->narrow = narrow == utf_8                       ? ZR_TEXT_NATIVE
                 : narrow == iso_8859_1 || narrow == 0 ? ZR_TEXT_ISO_8859_1
                                                       : ZR_TEXT_UNKNOWN;
  sets->wide = wide == utf_16 || wide == 0 ? ZR_TEXT_NATIVE : ZR_TEXT_UNKNOWN;
  return in.ok();
}

bool is_ascii(std::string_view text) {
  return std::ranges::none_of(text, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

char* convert_to_wire(CDR* cdr, std::string_view text) { return converted<ToLatin>(cdr, text); }
char* convert_from_wire(CDR* cdr, std::string_view text) { return converted<FromLatin>(cdr, text); }

}  // namespace zrsv
