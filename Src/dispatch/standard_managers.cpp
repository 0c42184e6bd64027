#include "dispatch/standard_managers.h"

#include <vector>

#include "base/raise.h"
#include "objects/servants.h"
#include "records/poainfo.h"
#include "records/poamanagerinfo.h"

namespace PortableServer {
namespace {

thread_local std::vector<void*> cookies;

/// The program's answer; what it raises goes to the client as it is.
template <class Call>
ServantBase* asked(Call&& call) {
  try {
    return call();
  } catch (const CORBA::Exception& e) {
    throw ManagerRefusal{std::shared_ptr<const CORBA::Exception>(e._clone())};
  }
}

/// Whether the POA, or its manager, is at its end.
bool is_ending(POA* adapter) {
  CORBA::Environment ev;
  const POAInfoPtr poa = POAInfo::findPOAInfo(adapter, ev);
  return !poa || poa->destroyed || poa->poa_managerInfo_ptr->get_state() == POAManager::INACTIVE;
}

}  // namespace

std::size_t PendingCookies::depth() { return cookies.size(); }

// ---- From the library's forms to the standard's ---------------------------------------------------

CORBA::Boolean AdapterActivator::unknown_adapter(POA* parent, const char* name, CORBA::Environment&) {
  return unknown_adapter(parent, name);
}

ServantBase* ServantActivator::incarnate(const ObjectId& oid, POA* adapter, CORBA::Environment&) {
  return asked([&] { return incarnate(oid, adapter); });
}

void ServantActivator::etherealize(const ObjectId& oid, POA* adapter, ServantBase* serv, CORBA::Boolean,
                                   CORBA::Boolean, CORBA::Environment&) {
  etherealize(oid, adapter, serv, is_ending(adapter), ServantAccess::active_entries(*serv) > 0);
}

ServantBase* ServantLocator::preinvoke(const ObjectId& oid, POA* adapter, const char* operation,
                                       Cookie& the_cookie, CORBA::Environment&) {
  void* cookie = nullptr;
  cookies.reserve(cookies.size() + 1);  // what it gives needs its postinvoke, whatever fails from then on
  ServantBase* const servant = asked([&] { return preinvoke(oid, adapter, operation, cookie); });
  if (!servant) return nullptr;
  the_cookie = static_cast<Cookie>(cookies.size());
  cookies.push_back(cookie);
  return servant;
}

void ServantLocator::postinvoke(const ObjectId& oid, POA* adapter, const char* operation, Cookie the_cookie,
                                ServantBase* the_servant, CORBA::Environment&) {
  void* const cookie = the_cookie < cookies.size() ? cookies[the_cookie] : nullptr;
  cookies.resize(std::min<std::size_t>(the_cookie, cookies.size()));
  postinvoke(oid, adapter, operation, cookie, the_servant);
}

// ---- The standard's forms, of a program that has others ---------------------------------------------

CORBA::Boolean AdapterActivator::unknown_adapter(POA*, const char*) { throw CORBA::NO_IMPLEMENT(); }
ServantBase* ServantActivator::incarnate(const ObjectId&, POA*) { throw CORBA::NO_IMPLEMENT(); }
void ServantActivator::etherealize(const ObjectId&, POA*, ServantBase*, CORBA::Boolean, CORBA::Boolean) {}
ServantBase* ServantLocator::preinvoke(const ObjectId&, POA*, const char*, void*&) {
  throw CORBA::NO_IMPLEMENT();
}
void ServantLocator::postinvoke(const ObjectId&, POA*, const char*, void*, ServantBase*) {}

// ---- References to servants that are managers ------------------------------------------------------

namespace {

/// A reference of interface X to a manager that is a servant.
template <class X, class Servant>
class ReferenceTo : public virtual X, public virtual CORBA::LocalObject {
 public:
  explicit ReferenceTo(Servant& servant) : servant_(servant) { servant._add_ref(); }
  ~ReferenceTo() override { servant_._remove_ref(); }

 protected:
  Servant& servant_;
};

class ToActivator : public ReferenceTo<ServantActivator, POA_PortableServer::ServantActivator> {
 public:
  using ReferenceTo::ReferenceTo;
  using ServantActivator::etherealize;
  using ServantActivator::incarnate;
  ServantBase* incarnate(const ObjectId& oid, POA* adapter) override {
    return servant_.incarnate(oid, adapter);
  }
  void etherealize(const ObjectId& oid, POA* adapter, ServantBase* serv, CORBA::Boolean cleanup,
                   CORBA::Boolean remaining) override {
    servant_.etherealize(oid, adapter, serv, cleanup, remaining);
  }
};

class ToLocator : public ReferenceTo<ServantLocator, POA_PortableServer::ServantLocator> {
 public:
  using ReferenceTo::ReferenceTo;
  using ServantLocator::postinvoke;
  using ServantLocator::preinvoke;
  ServantBase* preinvoke(const ObjectId& oid, POA* adapter, const char* operation, void*& cookie) override {
    return servant_.preinvoke(oid, adapter, operation, cookie);
  }
  void postinvoke(const ObjectId& oid, POA* adapter, const char* operation, void* cookie,
                  ServantBase* servant) override {
    servant_.postinvoke(oid, adapter, operation, cookie, servant);
  }
};

class ToAdapterActivator : public ReferenceTo<AdapterActivator, POA_PortableServer::AdapterActivator> {
 public:
  using AdapterActivator::unknown_adapter;
  using ReferenceTo::ReferenceTo;
  CORBA::Boolean unknown_adapter(POA* parent, const char* name) override {
    return servant_.unknown_adapter(parent, name);
  }
};

}  // namespace
}  // namespace PortableServer

namespace POA_PortableServer {

PortableServer::ServantActivator* ServantActivator::_this(CORBA::Environment& ev) {
  ev.clear();
  return with_memory(ev, [this] { return new PortableServer::ToActivator(*this); });
}

PortableServer::ServantLocator* ServantLocator::_this(CORBA::Environment& ev) {
  ev.clear();
  return with_memory(ev, [this] { return new PortableServer::ToLocator(*this); });
}

PortableServer::AdapterActivator* AdapterActivator::_this(CORBA::Environment& ev) {
  ev.clear();
  return with_memory(ev, [this] { return new PortableServer::ToAdapterActivator(*this); });
}

}  // namespace POA_PortableServer
