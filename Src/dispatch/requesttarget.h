// What a request is addressed to, read once and handed down the road of the request.
#pragma once

#include "base/trace.h"
#include "objects/referencedata.h"
#include "records/poainfo.h"

/// The target of a request: its reference, the reference data in it (views, read once), and the POA that the
/// data names.
struct RequestTarget {
  CORBA::Object* object = nullptr;
  ReferenceDataView data;
  bool has_data = false;  // false: the reference carries no reference data
  POAInfoPtr poa;         // null when the ORB core gives no reference data

  /// Reads the data and walks the POA path, asking adapter activators for missing POAs. BAD_PARAM for a nil
  /// target or bad data; what findChildByName raises. The views live as long as the reference.
  static RequestTarget find(CORBA::Object* reference, CORBA::Environment& ev);
  /// The trace lines of looking the POA up once more, and the id, which are known. None of a POA that is gone: an
  /// adapter activator would be asked for another one.
  void trace_look_up() const {
    trace_of([this] {
      if (!poa->destroyed) find(object, CORBA::Environment().self());
    });
  }
  void trace_reference_to_id() const {
    trace_of([this] {
      if (has_data && !poa->destroyed) delete poa->reference_to_id(object, CORBA::Environment().self());
    });
  }
};

/// The POA that made a reference; missing POAs on its path are asked of adapter activators. Null when the ORB
/// core gives no reference data.
POAInfoPtr findPOAInfoByReference(CORBA::Object* reference, CORBA::Environment& ev);
