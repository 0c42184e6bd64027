// Servant managers at dispatch: servants made on demand (activator) and found for one request (locator).
#pragma once

#include "dispatch/requesttarget.h"
#include "objects/servants.h"

/// The servant that the POA's activator makes for the target, active and in use; when another request was first,
/// that one's. WrongPolicy without RETAIN and USE_SERVANT_MANAGER, OBJ_ADAPTER, and what the program raises.
PortableServer::ServantUse incarnate(const RequestTarget& target, CORBA::Environment& ev);

/// The servant that the POA's locator finds for one request; never null. WrongPolicy without NON_RETAIN and
/// USE_SERVANT_MANAGER, OBJ_ADAPTER, and what the program raises.
PortableServer::ServantBase* preinvoke(const RequestTarget& target, const char* operation,
                                       CORBA::ULong& cookie, CORBA::Environment& ev);
void postinvoke(const RequestTarget& target, const char* operation, CORBA::ULong cookie,
                PortableServer::ServantBase* servant, CORBA::Environment& ev);
