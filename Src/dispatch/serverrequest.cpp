#include "dispatch/serverrequest.h"

#include <cstring>

namespace {

const ZR_RequestInfo& info(void* req) { return *static_cast<ZR_ServerRequest*>(req)->info; }

}  // namespace

void* server_CORBA_ServerRequest_request(void* req, CORBA_Environment*) { return info(req).request; }

unsigned int server_CORBA_ServerRequest_request_type(void* req, CORBA_Environment*) {
  return info(req).request_type;
}

unsigned char server_CORBA_ServerRequest_response_expected(void* req, CORBA_Environment*) {
  return info(req).response_expected;
}

char* server_CORBA_ServerRequest_operation(void* req, CORBA_Environment*) {
  const char* name = info(req).operation;
  const auto length = static_cast<uint32_t>(std::strlen(name));
  char* copy = CORBA_string_alloc(length);
  if (copy) std::memcpy(copy, name, length + 1);
  return copy;
}
