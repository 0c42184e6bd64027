// What the ORB core calls: exported, and entered into its hooks at start-up.
#pragma once

#include <atomic>

#include "poa/disconnect.h"

extern std::atomic<PortableServer::POAdisconnect*>
    _disc_instance;  // whom a lost client is reported to; null: nobody

extern "C" {
/// Makes the root POA at the first call; a handle to it, or null.
POA_API void* _poa_init(void* orb, void* boa);
/// One request.
POA_API void call_cpp_handler(void* target, void* request, CORBA_Environment* core);
/// A client is lost.
POA_API void call_disconnect_cpp_handler(long fd, void* host_addr, unsigned char is_ipv6);
/// The tick: deletes the servants that wait for it, and ends lifespans.
POA_API void call_poa_inst_lifespan(void);
}
