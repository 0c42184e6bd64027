#include "mapping/poa_typecodes.h"

namespace PortableServer::typecodes {

CORBA::TypeCode* build(const Description& description) {
  // Borrowed: the octets are only read.
  const CORBA_sequence_octet octets{description._maximum, description._length,
                                    const_cast<unsigned char*>(description._buffer)};
  CORBA::Environment ev;
  return cpp_CORBA_ORB_TypeCode_from_cgen_TC(CORBA::OM_this_ORB, &octets, ev);
}

}  // namespace PortableServer::typecodes
