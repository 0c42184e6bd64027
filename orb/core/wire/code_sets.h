// The code sets in which texts travel (GIOP, "Code Set Conversion"). Here texts are UTF-8, and wide ones UTF-16.
#pragma once

#include <string_view>
#include <vector>

#include "wire/cdr_chain.h"

namespace zrsv {

/// What the texts of a message are in: ZR_TEXT_... (zrsv/cdr.h).
struct CodeSets {
  unsigned char narrow = ZR_TEXT_NATIVE;
  unsigned char wide = ZR_TEXT_NATIVE;
  bool said = false;  // the request says it, in a service context
  bool operator==(const CodeSets&) const = default;
};

/// Of requests that say nothing, and nobody before them on the connection did.
inline constexpr CodeSets unsaid_code_sets{ZR_TEXT_ISO_8859_1, ZR_TEXT_NATIVE, false};

inline constexpr uint32_t context_code_sets = 1;    // CodeSets
inline constexpr uint32_t component_code_sets = 1;  // TAG_CODE_SETS

/// The component that references of this process carry.
void write_code_sets_component(Writer* out);
/// What a call uses for a target with these components: UTF-8 when the server takes it, else ISO 8859-1 when it
/// does, else UTF-8, which every server has to take. A target that says nothing gets ISO 8859-1, and is told
/// nothing.
CodeSets code_sets_for(const std::vector<Tagged>& components);

/// The service context of a request, its id in front.
void write_code_sets_context(Writer* out, const CodeSets& sets);
/// Reads the octets of one; false when they are malformed. Sets that are not known are ZR_TEXT_UNKNOWN.
bool read_code_sets_context(std::string_view octets, CodeSets* sets);

// What cdr.cpp does with texts that are not in UTF-8.

/// Whether a text is the same in all code sets that are known.
bool is_ascii(std::string_view text);
/// A text as it travels, or one that came as the program sees it: malloc'd, NUL-terminated. Null when it cannot be
/// converted, and when memory is short; the stream then knows which.
[[gnu::cold]] char* convert_to_wire(CDR* cdr, std::string_view text);
[[gnu::cold]] char* convert_from_wire(CDR* cdr, std::string_view text);

}  // namespace zrsv
