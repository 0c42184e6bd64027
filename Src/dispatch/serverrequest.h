// Accessors of the ORB core's server request record. Exported; `env` is not touched.
#pragma once

#include "poa/types.h"

POA_API void* server_CORBA_ServerRequest_request(void* req, CORBA_Environment* env);
POA_API unsigned int server_CORBA_ServerRequest_request_type(void* req, CORBA_Environment* env);
POA_API unsigned char server_CORBA_ServerRequest_response_expected(void* req, CORBA_Environment* env);
/// A new copy of the operation's name, freed with CORBA_free.
POA_API char* server_CORBA_ServerRequest_operation(void* req, CORBA_Environment* env);
