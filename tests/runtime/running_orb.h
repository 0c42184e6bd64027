// An ORB that serves, and references of this process.
#pragma once

#include "corba.h"

/// A handle to a new reference of this process; of one of the broker's own objects when `impl` starts with
/// "IDL:".
inline void* make_reference(const char* intf, const char* impl) {
  CORBA::Octet octets[] = {1, 2, 3, 4};
  const CORBA_sequence_octet data{sizeof octets, sizeof octets, octets};
  return ZR_create_object_reference(&data, intf, impl, nullptr);
}

/// Started with a stand-in for the root POA; requests for implementation "dynamic" are delivered. Destroyed
/// at the end.
struct RunningOrb {
  RunningOrb() {
    _cpp_poa_init = [](void*, void* boa) {
      CORBA_BOA_impl_is_ready(boa, KQ_ImplementationRep_lookup_id(nullptr, "dynamic", nullptr), nullptr);
      ZR_queue_begin();
      return make_reference("IDL:test/Root:1.0", "IDL:test");
    };
    int count = 0;
    char* none[] = {nullptr};
    orb = CORBA::ORB_init(count, none);
    root = orb->resolve_initial_references("RootPOA");
  }
  ~RunningOrb() { orb->destroy(); }

  CORBA::ORB_var orb;
  CORBA::Object_var root;
};
