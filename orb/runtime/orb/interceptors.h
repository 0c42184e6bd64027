// The interceptors of an ORB.
#pragma once

#include <vector>

#include "corba/portable_interceptor.h"
#include "orb/orb_state.h"

namespace CORBA {

/// Not changed once the ORB is made.
struct Interceptors {
  std::vector<PortableInterceptor::ClientRequestInterceptor_var> client;
  std::vector<PortableInterceptor::ServerRequestInterceptor_var> server;
};

/// From now on the requests of that ORB are shown to them.
void use_interceptors(const OrbPointer& orb, std::shared_ptr<const Interceptors> interceptors);
/// Runs the initializers that are registered for an ORB that was just made. What they raise is ORB_init's.
void run_initializers(const OrbPointer& orb, const StringSeq& arguments);
/// Tells the interceptors of an ORB that it is gone.
void destroy_interceptors(const OrbPointer& orb);

}  // namespace CORBA
