// When requests begin to be served. Each test has a process of its own.
#include <gtest/gtest.h>

#include "any_echo.h"
#include "orb_fixture.h"
#include "policy_list.h"

namespace {

namespace ps = PortableServer;

/// A call of this process: "held" when its time limit passed.
std::string call(Demo::Echo* object) try {
  return std::to_string(object->add(2, 3));
} catch (const CORBA::SystemException& e) {
  return std::string(e._rep_id()).find("TIMEOUT") != std::string::npos ? "held" : e._rep_id();
}

struct Process {
  Process() {
    char name[] = "test", option[] = "-ORBTimeout", limit[] = "200";
    char* words[] = {name, option, limit, nullptr};
    int count = 3;
    orb = CORBA::ORB_init(count, words);
  }
  ~Process() { orb->destroy(); }
  CORBA::ORB_var orb;
  AnyEcho adder;
};

TEST(Activation, AnActiveServantWaitsForTheManager) {
  Process process;
  ps::POA* const root = test_root_poa();
  const ps::POA_var child = root->create_POA("child", nullptr, policies(root, ps::IMPLICIT_ACTIVATION));
  const ps::ObjectId_var id = child->activate_object(&process.adder);  // announces the process
  const Demo::Echo_var object = Demo::Echo::_narrow(CORBA::Object_var(child->id_to_reference(id.in())));
  EXPECT_EQ(call(object.in()), "held");
  ps::POAManager_var(root->the_POAManager())->activate();
  EXPECT_EQ(call(object.in()), "5");
}

TEST(Activation, TheRootPoaAloneServesBeforeRun) {
  Process process;
  ps::POA* const root = test_root_poa();
  const Demo::Echo_var object = process.adder._this();
  EXPECT_EQ(call(object.in()), "held");
  ps::POAManager_var(root->the_POAManager())->activate();
  EXPECT_EQ(call(object.in()), "5");
}

}  // namespace
