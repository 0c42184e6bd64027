// What the examples in the public headers take for granted. How it works: header_examples.py.
#pragma once

#include <poll.h>

#include <iostream>
#include <thread>

#include "bank.h"
#include "corba/abstract_base.h"
#include "corba/context.h"
#include "corba/portable_interceptor.h"
#include "poa/remote.h"

namespace {

struct Ledger {
  CORBA::Long balance() { return 0; }
};

struct Record {};

class Account : public virtual POA_Bank::Account {
 public:
  Account() = default;
  explicit Account(const Record&) {}
  CORBA::Long balance() override { return 0; }
};

class Accounts : public PortableServer_ServantActivator_impl {};

class Session : public virtual POA_Bank::Session {
 public:
  void close() override {}
};

int argc = 0;
char** argv = nullptr;
CORBA::ORB_var orb;
CORBA::Object_var object, reference;
PortableServer::POA_var root, poa;
CORBA::PolicyList list;
Bank::Account_var account;
Account servant;
CORBA::Request_var request;
PortableServer::Current_var current;
PortableServer::ObjectId id;
CORBA::Long amount = 0;

CORBA::Long balance = 0;
CORBA::Octet octets[4];
Session* session = nullptr;
CORBA::Any any;
Accounts accounts;
PortableServer::ForwardRequest forward;

Record load(const PortableServer::ObjectId&) { return {}; }
bool is_customer(const char*) { return true; }
CORBA::ULong open(const PortableServer::ObjectId&) { return 0; }
void close(CORBA::ULong) {}

}  // namespace
