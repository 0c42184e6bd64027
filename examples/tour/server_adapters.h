// Short ways to say what a server says to its POAs.
#pragma once

#include <string>
#include <vector>

#include "poa.h"

/// A child of `parent` with those policies, which are taken over, under the manager of the root POA.
PortableServer::POA_ptr make_poa(PortableServer::POA_ptr parent, const char* name,
                                 const std::vector<CORBA::Policy_ptr>& policies);

/// A new id of that text.
PortableServer::ObjectId id_of(const std::string& text);
