// Serving the module's own objects to other processes.
#pragma once

#include "poa/types.h"

namespace PortableServer {

/// From now on requests for this process's POAs, POA managers, policies and Current are served: whoever can
/// reach the process and has such a reference may create and destroy POAs, hold and deactivate managers and
/// read what the adapter knows. Nobody is asked who he is, and there is no way back. Only for servers whose
/// end points are out of reach of strangers, and never needed to serve a program's own objects.
///
/// Servants cannot travel, so operations that take or return one fail with MARSHAL. References that such
/// operations return are driven through the stub classes of poa/stubs.h. Within this process, stubs of these
/// objects then take the direct road, which has no object behind it: POA operations called that way raise
/// BAD_PARAM (0x4B510007). Call the POA itself instead.
///
/// Without this call such requests are answered OBJECT_NOT_EXIST. Any thread, after CORBA::ORB_init; again
/// changes nothing. NO_MEMORY when there is not enough.
///
///   PortableServer::register_for_remote_use();
///   CORBA::String_var text = orb->object_to_string(poa);  // for a tool that drives the POA by its stub
POA_API void register_for_remote_use(CORBA_ENV);

}  // namespace PortableServer
