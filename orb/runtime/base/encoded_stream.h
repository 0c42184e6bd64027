// A CDR stream of one's own to encode into.
#pragma once

#include <vector>

#include "corba/types.h"
#include "zrsv.h"

namespace CORBA {

class EncodedStream {
 public:
  EncodedStream() { OM_cdr_open_encode(&cdr_); }
  EncodedStream(const EncodedStream&) = delete;
  EncodedStream& operator=(const EncodedStream&) = delete;
  ~EncodedStream() { OM_cdr_close(&cdr_); }

  operator CDR*() { return &cdr_; }
  std::vector<Octet> octets() const { return {cdr_.out_base, cdr_.out_next}; }
  /// A stream over what was encoded; lives as long as this one.
  CDR reader() const {
    CDR cdr;
    OM_cdr_open_decode(&cdr, cdr_.out_base, static_cast<ULong>(cdr_.out_next - cdr_.out_base), 0);
    return cdr;
  }

 private:
  CDR cdr_;
};

}  // namespace CORBA
