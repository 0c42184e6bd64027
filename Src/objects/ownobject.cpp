#include "objects/ownobject.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "base/corehandles.h"
#include "base/trace.h"

Identity new_identity() {
  static std::atomic<Identity> last{0};
  return ++last;
}

void* create_reference_handle(const CORBA_sequence_octet* reference_data, const char* impl_name,
                              const char* intf_name, CORBA_Environment* core) {
  POA_TRACE("imple_name=%s intf_name=%s", impl_name, intf_name);
  void* handle = ZR_create_object_reference(reference_data, intf_name, impl_name, core);
  return core->_major == CORBA_NO_EXCEPTION ? handle : nullptr;
}

bool is_no_memory(const CORBA_Environment& core) {
  const char* const id = CORBA_exception_id(&core);
  return id && std::strcmp(id, CORBA::NO_MEMORY::repository_id.value) == 0;
}

DataRead read_reference_data(CORBA::Object* object, void* octets, std::uint32_t count,
                             CORBA_Environment* core) {
  void* handle = object ? object->get_ref() : nullptr;
  const unsigned char* data = nullptr;
  std::uint32_t length = 0;
  if (ZR_object_peek_id(handle, &data, &length)) {
    if (length < count) return DataRead::too_short;
    std::memcpy(octets, data, count);
    return DataRead::whole;
  }
  if (core) CORBA_free(CORBA_BOA_get_id(core_handles.boa, handle, core));  // the call that says why
  return DataRead::failed;
}

Identity read_identity(CORBA::Object* object, bool* failed, CORBA_Environment* core) {
  Identity identity = 0;
  const DataRead read = read_reference_data(object, &identity, sizeof identity, core);
  if (failed) *failed = read == DataRead::failed;
  return identity;
}

void report_core_exception(const char* source, int line, const CORBA_Environment& core, int number) {
  const char* id = CORBA_exception_id(&core);
  std::fprintf(stderr, "!!!Exception\t%d/%d [%s(%d)]:\tCORBA_USER_EXCEPTION:\t%s(%d)\n",
               static_cast<int>(getpid()), static_cast<int>(syscall(SYS_gettid)), source, line, id ? id : "",
               number);
  std::fflush(stderr);
}
