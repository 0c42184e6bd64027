// Servants that count, and what the adapter holds of them.

#include "poa/remote.h"
#include "poa/stubs.h"
#include "server.h"

namespace {

using PortableServer::ObjectId_var;
using PortableServer::POA_var;
using PortableServer::ServantBase;
using PortableServer::ServantBase_var;

/// Counts, and tells when it goes.
class Counted : public EchoServant, public virtual PortableServer::RefCountServantBase {
 public:
  explicit Counted(std::promise<void>& gone) : gone_(gone) {}
  ~Counted() override { gone_.set_value(); }
  void sleep_ms(CORBA::ULong) override {
    entered.set_value();
    EchoServant::sleep_ms(0);
  }
  std::promise<void> entered;

 private:
  std::promise<void>& gone_;
};

/// Counts by itself, and only the calls.
class OwnCount : public EchoServant {
 public:
  void _add_ref() override { ++count; }
  void _remove_ref() override { --count; }
  int count = 0;
};

class Activator : public POA_PortableServer::ServantActivator {
 public:
  PortableServer::Servant incarnate(const PortableServer::ObjectId&, PortableServer::POA_ptr) override {
    return new Counted(gone);
  }
  void etherealize(const PortableServer::ObjectId&, PortableServer::POA_ptr, PortableServer::Servant servant,
                   CORBA::Boolean, CORBA::Boolean remaining) override {
    if (!remaining) servant->_remove_ref();
  }
  std::promise<void> gone;
};

class CountingTest : public StandardTest {
 protected:
  Demo::Echo_ptr far_object(const char* key, CORBA::Object_ptr object) {
    orb->register_key(key, object);
    return Demo::Echo::_unchecked_narrow(CORBA::Object_var(orb->string_to_object(far(key).c_str())));
  }
  bool is_gone(std::chrono::milliseconds bound = std::chrono::seconds(20)) {
    return gone_.wait_for(bound) == std::future_status::ready;
  }

  std::promise<void> going_;
  std::future<void> gone_ = going_.get_future();
};

/// Asked for by another process, a servant and a local manager are none; they are not counted up, either.
TEST_F(CountingTest, WhatCannotTravelKeepsItsCount) {
  using namespace PortableServer;
  struct Local : ServantActivator, CORBA::LocalObject {
    explicit Local(std::promise<void>& gone) : gone_(gone) {}
    ~Local() override { gone_.set_value(); }
    std::promise<void>& gone_;
  };
  register_for_remote_use();
  const POA_var poa = make_poa("counting", USER_ID, MULTIPLE_ID, USE_DEFAULT_SERVANT);
  const POA_var managed = make_poa("managed", USE_SERVANT_MANAGER);
  std::promise<void> unused;
  Servant_var<Counted> own = new Counted(unused);
  poa->set_servant(own);
  managed->set_servant_manager(ServantManager_var(new Local(going_)));
  const ObjectId_var id = string_to_ObjectId("id");
  const CORBA::Object_var reference = poa->create_reference_with_id(id, Demo::Echo::repository_id);
  const auto served = [&](const char* key, const POA_var& of) {
    orb->register_key(key, of);
    const CORBA::Object_var object = orb->string_to_object(far(key).c_str());
    auto stub = std::make_unique<_st_PortableServer_POA>();
    stub->set_ref(CORBA_object_duplicate(object->get_ref(), nullptr));
    return stub;
  };
  const auto remote = served("counting", poa);
  EXPECT_THROW(remote->get_servant(), CORBA::SystemException);
  EXPECT_THROW(remote->id_to_servant(id), CORBA::SystemException);
  EXPECT_THROW(remote->reference_to_servant(reference), CORBA::SystemException);
  EXPECT_EQ(own->_refcount_value(), 2u);
  const ServantManager_var none = served("managed", managed)->get_servant_manager();
  EXPECT_EQ(none.in(), nullptr);
  managed->destroy(false, false);
  EXPECT_TRUE(is_gone(std::chrono::seconds(3)));
  poa->destroy(false, false);
}

TEST_F(CountingTest, TheAdapterHoldsAnActiveServant) {
  PortableServer::Servant_var<Counted> own = new Counted(going_);
  const ObjectId_var id = root->activate_object(own);
  EXPECT_EQ(own->_refcount_value(), 2u);
  const CORBA::Object_var reference = root->id_to_reference(id);
  for (const bool by_id : {true, false}) {
    const ServantBase_var given = by_id ? root->id_to_servant(id) : root->reference_to_servant(reference);
    EXPECT_EQ(own->_refcount_value(), 3u) << "one for the caller";
    EXPECT_EQ(given.in(), own.in());
  }
  Counted* const servant_of_adapter = own;
  own = nullptr;
  const Demo::Echo_var object = far_object("Counted", reference);
  EXPECT_EQ(object->add(1, 2), 3) << "the adapter's count keeps it";

  auto call = std::async(std::launch::async, [&] { object->sleep_ms(0); });
  servant_of_adapter->entered.get_future().wait();
  root->deactivate_object(id);
  EXPECT_FALSE(is_gone(std::chrono::milliseconds(0))) << "a request is in it";
  servant_of_adapter->release.set_value();
  call.get();
  EXPECT_TRUE(is_gone());
}

TEST_F(CountingTest, ADestroyedPOALetsGo) {
  const POA_var poa = make_poa("counting");
  {
    const ServantBase_var own = new Counted(going_);
    const ObjectId_var id = poa->activate_object(own);
  }
  EXPECT_FALSE(is_gone(std::chrono::milliseconds(0)));
  poa->destroy(true, true);
  EXPECT_TRUE(is_gone());
}

TEST_F(CountingTest, ActivatorsReleaseWhatTheyMade) {
  const POA_var poa = make_poa("counting", PortableServer::USER_ID, PortableServer::USE_SERVANT_MANAGER);
  Activator activator;
  poa->set_servant_manager(PortableServer::ServantActivator_var(activator._this()));
  for (const bool by_destroy : {false, true}) {
    SCOPED_TRACE(by_destroy);
    activator.gone = {};
    gone_ = activator.gone.get_future();
    const ObjectId_var id = PortableServer::string_to_ObjectId("x");
    const Demo::Echo_var object = Demo::Echo::_unchecked_narrow(
        CORBA::Object_var(poa->create_reference_with_id(id, Demo::Echo::repository_id)));
    EXPECT_EQ(object->add(1, 2), 3);
    EXPECT_FALSE(is_gone(std::chrono::milliseconds(0)));
    if (by_destroy) {
      poa->destroy(true, true);
    } else {
      poa->deactivate_object(id);
    }
    EXPECT_TRUE(is_gone());
  }
}

TEST_F(CountingTest, DefaultServantsAndOwnCountersAreCountedToo) {
  const POA_var poa = make_poa("counting", PortableServer::MULTIPLE_ID, PortableServer::USE_DEFAULT_SERVANT);
  OwnCount servant_of_own;
  poa->set_servant(&servant_of_own);
  EXPECT_EQ(servant_of_own.count, 1);
  ServantBase_var given = poa->get_servant();
  EXPECT_EQ(servant_of_own.count, 2);
  given = nullptr;
  const ObjectId_var id = poa->activate_object(&servant_of_own),
                     other = poa->activate_object(&servant_of_own);
  EXPECT_EQ(servant_of_own.count, 3) << "one for each object";
  EXPECT_EQ(servant_of_own._refcount_value(), 1u) << "a diagnosis that the class does not give";
  poa->deactivate_object(id);
  EXPECT_EQ(servant_of_own.count, 2);
  OwnCount next;
  poa->set_servant(&next);
  EXPECT_EQ(servant_of_own.count, 1);
  poa->destroy(true, true);
  EXPECT_EQ(servant_of_own.count + next.count, 0);

  OwnCount refused;
  const POA_var unique = make_poa("unique");
  ObjectId_var first = unique->activate_object(&refused);
  EXPECT_THROW(unique->activate_object(&refused), PortableServer::POA::ServantAlreadyActive);
  EXPECT_EQ(refused.count, 1) << "nothing is held of what was refused";
  unique->destroy(true, true);
}

}  // namespace
