// Policies of calls: time limits by reference, by thread, by ORB.

#include "server.h"

namespace {

using Messaging::RELATIVE_RT_TIMEOUT_POLICY_TYPE;

class PoliciesTest : public StandardTest {
 protected:
  ~PoliciesTest() override {
    set_all<CORBA::PolicyCurrent>("PolicyCurrent", {});
    set_all<CORBA::PolicyManager>("ORBPolicyManager", {});
  }

  template <class Manager>
  void set_all(const char* name, const CORBA::PolicyList& list) {
    const CORBA::Object_var object = orb->resolve_initial_references(name);
    typename CORBA::ObjectVar<Manager> manager = Manager::_narrow(object);
    manager->set_policy_overrides(list, CORBA::SET_OVERRIDE);
    EXPECT_EQ(CORBA::PolicyList_var(manager->get_policy_overrides(CORBA::PolicyTypeSeq()))->length(),
              list.length());
  }
  /// The limit in force for `object`, in milliseconds; -1 for none.
  static long in_force(CORBA::Object_ptr object) {
    const CORBA::Policy_var policy = object->_get_policy(RELATIVE_RT_TIMEOUT_POLICY_TYPE);
    const Messaging::RelativeRoundtripTimeoutPolicy_var timeout =
        Messaging::RelativeRoundtripTimeoutPolicy::_narrow(policy);
    return CORBA::is_nil(timeout) ? -1 : static_cast<long>(timeout->relative_expiry() / 10000);
  }
};

TEST_F(PoliciesTest, TheNarrowestTimeLimitActs) {
  using std::chrono::milliseconds;
  const Demo::Echo_var far = far_echo(orb);
  const auto times_out = [](Demo::Echo_ptr object) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(object->sleep_ms(0), CORBA::TIMEOUT);
    return std::chrono::steady_clock::now() - start;
  };
  const auto limited_to = [&](long ms) { return Demo::Echo::_narrow(limited(far, ms)); };
  EXPECT_EQ(in_force(far), -1);
  const Demo::Echo_var quick = limited_to(60);
  EXPECT_EQ(in_force(quick), 60);
  EXPECT_EQ(in_force(far), -1) << "the other reference stays as it was";
  EXPECT_TRUE(quick->_is_equivalent(far));
  EXPECT_GE(times_out(quick), milliseconds(60));
  EXPECT_EQ(quick->add(1, 2), 3);
  const Demo::Echo_var duplicate = Demo::Echo::_duplicate(quick);
  EXPECT_GE(times_out(duplicate), milliseconds(60));

  set_all<CORBA::PolicyManager>("ORBPolicyManager", time_limit_of(milliseconds(40)));
  EXPECT_EQ(in_force(far), 40);
  EXPECT_GE(times_out(far), milliseconds(40));
  set_all<CORBA::PolicyCurrent>("PolicyCurrent", time_limit_of(milliseconds(80)));
  EXPECT_EQ(in_force(far), 80);
  EXPECT_GE(times_out(far), milliseconds(80));
  EXPECT_EQ(std::async(std::launch::async, [&] { return in_force(far); }).get(), 40) << "of this thread only";
  EXPECT_EQ(in_force(quick), 60);
  // The reference of another ORB does not know of this one's policies.
  const CORBA::ORB_var client = make_orb({}, "client");
  const CORBA::Object_var other = client->string_to_object(StandardTest::far("Echo").c_str());
  set_all<CORBA::PolicyCurrent>("PolicyCurrent", {});
  EXPECT_EQ(in_force(other), -1);
  client->destroy();
  servant->release.set_value();
}

TEST_F(PoliciesTest, WrongOnesAreRefused) {
  CORBA::Any wrong;
  wrong <<= CORBA::Short(1);
  const struct {
    CORBA::PolicyType type;
    CORBA::PolicyErrorCode reason;
  } rows[] = {{RELATIVE_RT_TIMEOUT_POLICY_TYPE, CORBA::BAD_POLICY_VALUE}, {4711, CORBA::BAD_POLICY_TYPE}};
  for (const auto& row : rows) {
    try {
      orb->create_policy(row.type, wrong);
      ADD_FAILURE() << row.type;
    } catch (const CORBA::PolicyError& e) {
      EXPECT_EQ(e.reason, row.reason);
    }
  }
  CORBA::PolicyList twice = time_limit_of(std::chrono::milliseconds(1));
  twice.length(2);
  twice[1] = twice[0];
  EXPECT_THROW(echo->_set_policy_overrides(twice, CORBA::ADD_OVERRIDE), CORBA::BAD_PARAM);
  twice[0] = root->create_lifespan_policy(PortableServer::PERSISTENT);
  try {
    echo->_set_policy_overrides(twice, CORBA::ADD_OVERRIDE);
    ADD_FAILURE();
  } catch (const CORBA::InvalidPolicies& e) {
    ASSERT_EQ(e.indices.length(), 1u);
    EXPECT_EQ(e.indices[0], 0);
  }
}

TEST_F(PoliciesTest, ReferencesTellWhatTheyAre) {
  const Demo::Echo_var named = far_echo(orb);
  const CORBA::Object_var bare = orb->string_to_object(far("Echo").c_str());
  EXPECT_STREQ(CORBA::String_var(echo->_repository_id()).in(), Demo::Echo::repository_id);
  EXPECT_STREQ(CORBA::String_var(bare->_repository_id()).in(), Demo::Echo::repository_id);
  EXPECT_EQ(bare->_get_component(), nullptr);
  CORBA::PolicyList* inconsistent = nullptr;
  EXPECT_TRUE(bare->_validate_connection(inconsistent));
  EXPECT_EQ(CORBA::PolicyList_var(inconsistent)->length(), 0u);
}

}  // namespace
