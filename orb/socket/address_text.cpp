#include <arpa/inet.h>
#include <sys/socket.h>

#include "zrsocket.h"

const int ZR_af_inet = AF_INET;
const int ZR_af_inet6 = AF_INET6;

const char* OM_inet_ntop(int family, const void* address, char* text, unsigned int size) {
  if (family != ZR_af_inet && family != ZR_af_inet6) return nullptr;
  if (address == nullptr || text == nullptr) return nullptr;
  return inet_ntop(family, address, text, size);
}
