#include "wire/code_sets.h"

#include <algorithm>
#include <cstdlib>

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

/// Both write to `to`, which has the room that any text needs, and give its end; null for a text that has no form in the
/// other set.
char* to_latin(std::string_view text, char* to) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {  // of two octets, the first of which is C2 or C3
      const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[++i] : 0);
      if ((c & 0xFE) != 0xC2 || (next & 0xC0) != 0x80) return nullptr;
      c = static_cast<unsigned char>((c & 3) << 6 | (next & 0x3F));
    }
    *to++ = static_cast<char>(c);
  }
  return to;
}

char* from_latin(std::string_view text, char* to) {
  for (const char each : text) {
    const auto c = static_cast<unsigned char>(each);
    if (c >= 0x80) *to++ = static_cast<char>(0xC0 | c >> 6);
    *to++ = static_cast<char>(c < 0x80 ? c : 0x80 | (c & 0x3F));
  }
  return to;
}

char* converted(CDR* cdr, std::string_view text, char* (*convert)(std::string_view, char*)) {
  if (cdr->narrow != ZR_TEXT_ISO_8859_1) return cdr->unconvertible = ZR_UNKNOWN_CODE_SET, nullptr;
  auto* made = static_cast<char*>(std::malloc(2 * text.size() + 1));
  if (!made) return nullptr;
  if (char* const end = convert(text, made)) return *end = 0, made;
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

char* convert_to_wire(CDR* cdr, std::string_view text) { return converted(cdr, text, to_latin); }
char* convert_from_wire(CDR* cdr, std::string_view text) { return converted(cdr, text, from_latin); }

}  // namespace zrsv
