#include "base/call_failures.h"

#include "base/raise.h"

namespace CORBA::idl {

void set_marshal(const CDR* cdr, std::uint32_t completed, Environment& ev) {
  CORBA_Environment filled{};
  SetStdExCDR(const_cast<CDR*>(cdr), completed, &filled);
  ev.set_ref(&filled);
}

void fail_marshal(const CDR* cdr, std::uint32_t completed, Environment& ev) {
  set_marshal(cdr, completed, ev);
  raise_environment(ev);
}

void fail_request(std::uint32_t completed, Environment& ev) {
  CORBA_Environment filled{};
  SetStdExReqLib(completed, &filled);
  raise_record(filled, ev);
}

void fail_memory(Environment& ev) {
  constexpr std::uint32_t no_memory_for_result = 101;
  CORBA_Environment filled{};
  CORBA_BOA_set_standard_exception(&filled, NO_MEMORY::repository_id.value, no_memory_for_result,
                                   CORBA_COMPLETED_NO);
  raise_record(filled, ev);
}

void throw_reply_exception(void* request, Environment& ev) {
  CORBA_Environment filled{};
  OM_req_lib_UNO_IIOP_decode_standard_excep(request, &filled);  // fills in MARSHAL when it cannot
  raise_record(filled, ev);
}

void follow_forward(Object* self, CDR* cdr, Environment& ev) {
  void* forward = nullptr;
  cdr->direction = CDR_DECODE;
  if (!OM_cdr_object(cdr, &forward)) fail_marshal(cdr, CORBA_COMPLETED_YES, ev);
  const bool followed = OM_req_lib_set_locate_object(self->get_ref(), forward);
  CORBA_object_release(forward);
  if (!followed) fail_request(CORBA_COMPLETED_NO, ev);  // nil, or one forward too many
  CORBA_Environment moved{};
  moved._major = CORBA_LOCATION_FORWARD;
  ev.set_ref(&moved);
}

}  // namespace CORBA::idl
