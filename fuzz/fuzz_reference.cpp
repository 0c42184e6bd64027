// References from outside: as text (IOR:, corbaloc:) and in CDR. One that is taken must come out as it went
// in.
#include <cstdlib>
#include <string>

#include "references/reference.h"

using namespace zrsv;

namespace {

std::string written(const Ref<Reference>& reference) {
  CDR cdr{};
  OM_cdr_open_encode(&cdr);
  if (!write_reference(&cdr, reference.get())) std::abort();
  std::string octets(cdr.out_base, cdr.out_next);
  OM_cdr_close(&cdr);
  return octets;
}

bool read(std::string_view octets, bool swap, Ref<Reference>* reference) {
  CDR cdr{};
  OM_cdr_open_decode(&cdr, reinterpret_cast<const unsigned char*>(octets.data()),
                     static_cast<uint32_t>(octets.size()), swap);
  return read_reference(&cdr, reference);
}

void check(const Ref<Reference>& reference) {
  const std::string octets = written(reference);
  Ref<Reference> again;
  if (!read(octets, false, &again) || written(again) != octets) std::abort();
}

void from_text(const std::string& text) {
  CORBA_Environment ev{};
  const auto reference =
      Ref<Reference>::adopt(as_reference(CORBA_ORB_string_to_object(nullptr, text.c_str(), &ev)));
  CORBA_exception_free(&ev);
  if (!reference) return;
  check(reference);
  CORBA_free(ZR_object_to_corbaloc(nullptr, reference.get(), &ev));
  CORBA_exception_free(&ev);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t count) {
  const std::string input(reinterpret_cast<const char*>(octets), count);
  from_text(input);
  for (bool swap : {false, true}) {
    Ref<Reference> reference;
    if (read(input, swap, &reference)) check(reference);
  }
  return 0;
}
