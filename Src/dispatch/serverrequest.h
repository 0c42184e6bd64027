// Accessors of the ORB core's server request record. Exported; `core` is not touched.
#pragma once

#include "poa/types.h"

POA_API void* server_CORBA_ServerRequest_request(void* req, CORBA_Environment* core);
POA_API unsigned int server_CORBA_ServerRequest_request_type(void* req, CORBA_Environment* core);
POA_API unsigned char server_CORBA_ServerRequest_response_expected(void* req, CORBA_Environment* core);
/// A new copy of the operation's name, freed with CORBA_free.
POA_API char* server_CORBA_ServerRequest_operation(void* req, CORBA_Environment* core);
