#include <cwchar>
#include <new>

#include "corba/detail/wire_values.h"
#include "corba/object.h"

namespace CORBA {

void* om_new(std::size_t octets) { return ::operator new(octets); }

void om_delete(void* block) noexcept { ::operator delete(block); }

// Strings share the ORB core's allocator, so that string_free also frees those that a stream decoded.
char* string_alloc(Long length) {
  return length < 0 ? nullptr : CORBA_string_alloc(static_cast<ULong>(length));
}

char* string_dup(const char* text) {
  if (!text) return nullptr;
  const std::size_t length = std::strlen(text);
  char* copy = length > INT32_MAX ? nullptr : string_alloc(static_cast<Long>(length));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text, length + 1);
  return copy;
}

void string_free(char* text) { CORBA_free(text); }

WChar* wstring_alloc(Long length) {
  if (length < 0) return nullptr;
  return new (std::nothrow) WChar[static_cast<std::size_t>(length) + 1]();
}

WChar* wstring_dup(const WChar* text) {
  if (!text) return nullptr;
  const std::size_t length = std::wcslen(text);
  WChar* copy = length > INT32_MAX ? nullptr : wstring_alloc(static_cast<Long>(length));
  if (!copy) throw std::bad_alloc();
  std::wmemcpy(copy, text, length + 1);
  return copy;
}

void wstring_free(WChar* text) { delete[] text; }

}  // namespace CORBA

unsigned char cdr_CORBA_wstring_cpp(CDR* cdr, CORBA::WChar** text) {
  if (cdr->direction == CDR_ENCODE) return OM_cdr_write_wstring(cdr, *text ? *text : L"");
  const unsigned char* start = cdr->in_next;
  OM_wide view{};
  uint32_t length = 0;
  if (!OM_cdr_read_wide(cdr, &view)) return 0;
  cdr->unconvertible = !OM_wide_length(&view, &length);
  CORBA::WChar* made = cdr->unconvertible || length > INT32_MAX
                           ? nullptr
                           : CORBA::wstring_alloc(static_cast<CORBA::Long>(length));
  if (!made) {
    cdr->in_next = start;
    return 0;
  }
  OM_wide_copy(&view, made);
  *text = made;
  return 1;
}

unsigned char cdr_CORBA_string_cpp(CDR* cdr, char** text) {
  if (cdr->direction != CDR_ENCODE || *text) return OM_cdr_string(cdr, text);
  char empty[] = "";
  char* instead = empty;
  return OM_cdr_string(cdr, &instead);
}
