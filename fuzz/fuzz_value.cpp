// Values that say their type: TypeCodes and Anys. One that is taken must come out as it went in.
#include <cstdlib>
#include <string>

#include "corba.h"

namespace {

template <class Write>
std::string written(Write&& write) {
  CDR cdr{};
  OM_cdr_open_encode(&cdr);
  if (!write(&cdr)) std::abort();
  std::string octets(cdr.out_base, cdr.out_next);
  OM_cdr_close(&cdr);
  return octets;
}

CDR stream(const std::string& octets, bool swap) {
  CDR cdr{};
  OM_cdr_open_decode(&cdr, reinterpret_cast<const unsigned char*>(octets.data()),
                     static_cast<uint32_t>(octets.size()), swap);
  return cdr;
}

std::string written_type(CORBA::TypeCode* type) {
  return written([&](CDR* cdr) { return cdr_CORBA_TypeCode(cdr, type); });
}

void check_type(CDR cdr) {
  CORBA::TypeCode_var type;
  if (!cdr_CORBA_TypeCode(&cdr, type.inout())) return;
  const std::string once = written_type(type.in());
  CORBA::TypeCode_var again;
  CDR own = stream(once, false);
  if (!cdr_CORBA_TypeCode(&own, again.inout()) || written_type(again.in()) != once) std::abort();
  if (!type->equal(again.in()) || !type->equivalent(again.in())) std::abort();
  const CORBA::TypeCode_var compact(type->get_compact_typecode());
  written_type(compact.in());
}

/// Whatever it is, it is that or nothing.
void extract(const CORBA::Any& any) {
  const CORBA::WChar* wide = nullptr;
  const char* text = nullptr;
  CORBA::WChar character = 0;
  CORBA::LongDouble number = 0;
  CORBA::Fixed fixed;
  const CORBA::TypeCode_var type(any.type());
  if ((any >>= wide) + (any >>= text) + (any >>= CORBA::Any::to_wchar(character)) + (any >>= number) > 1)
    std::abort();
  if (type->kind() == CORBA::tk_fixed &&
      (any >>= CORBA::Any::to_fixed(fixed, type->fixed_digits(), type->fixed_scale()))) {
    const CORBA::String_var digits(fixed.to_string());
    if (CORBA::Fixed(digits.in()) != fixed) std::abort();
  }
  any.value();
}

void check_any(CDR cdr) {
  CORBA::Any any;
  if (!cdr_CORBA_Any(&cdr, &any)) return;
  CORBA::Any copy(any);
  const std::string once = written([&](CDR* to) { return cdr_CORBA_Any(to, &any); });
  if (written([&](CDR* to) { return cdr_CORBA_Any(to, &copy); }) != once) std::abort();
  extract(any);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t count) {
  const std::string input(reinterpret_cast<const char*>(octets), count);
  for (bool swap : {false, true}) {
    check_type(stream(input, swap));
    check_any(stream(input, swap));
  }
  return 0;
}
