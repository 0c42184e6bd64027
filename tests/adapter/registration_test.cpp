// Announcing implementations to the ORB core.
#include <gmock/gmock.h>

#include <array>

#include "objects.h"

using namespace PortableServer;

namespace {

/// Starts from an empty table in an unregistered process and puts back what was there.
class Registration : public AdapterTest {
 protected:
  Registration() {
    std::copy(std::begin(implDef_cache), std::end(implDef_cache), kept_table.begin());
    clear_implementation_table();
    POA_impl_name = nullptr;
    POA_impl_is_ready_fl = 0;
  }
  ~Registration() override {
    CORBA::string_free(const_cast<char*>(POA_impl_name.exchange(kept_name)));
    POA_impl_is_ready_fl = kept_flag;
    std::copy(kept_table.begin(), kept_table.end(), std::begin(implDef_cache));
  }
  void announce(ServantBase& servant) {
    CORBA::Environment own;
    POAInfo::POA_impl_is_ready(&servant, &oid, own);
  }
  static int registered() {
    int count = 0;
    for (const ZRImplementationDef& entry : implDef_cache) count += entry.impl_id != nullptr;
    return count;
  }
  /// Takes what is left of the table.
  void fill_table() {
    for (auto i = static_cast<std::size_t>(registered()); i < names.size(); ++i) {
      names[i] = "IDL:test/Filler" + std::to_string(i) + ":1.0";
      InsertImplementationDef(names[i].c_str(), nullptr);
    }
  }

  const char* const kept_name = POA_impl_name;
  const int kept_flag = POA_impl_is_ready_fl;
  std::array<ZRImplementationDef, IMPL_DEF_CACHE_SIZE> kept_table;
  std::array<std::string, IMPL_DEF_CACHE_SIZE> names;
  ScopedVariable no_name{"ZR_IMPLID", nullptr};
  CORBA::Environment env;
  ObjectId oid = oid_of("x");
};

}  // namespace

TEST_F(Registration, TheTableKeepsOneEntryAnInterface) {
  int a = 0, b = 0;
  const std::string copy = "IDL:test/A:1.0";
  EXPECT_EQ(FindImplementationDef("IDL:test/A:1.0"), nullptr);
  ZRImplementationDef* entry = InsertImplementationDef("IDL:test/A:1.0", &a);
  EXPECT_EQ(entry, &implDef_cache[0]);
  fill_table();
  EXPECT_EQ(InsertImplementationDef(copy.c_str(), &b), entry);
  EXPECT_EQ(entry->implDef, &a);
  EXPECT_EQ(FindImplementationDef(copy.c_str()), entry);
  try {
    InsertImplementationDef("IDL:test/OneTooMany:1.0", &b);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const CORBA::NO_MEMORY& e) {
    EXPECT_EQ(e.minor(), 0x4B510001u);
  }
}

TEST_F(Registration, AnInterfaceIsRegisteredOnceUnderTheNewestChildsName) {
  const POA_var newest = root->create_POA(unique_name("newest").c_str(), nullptr, {});
  PlainServant first("IDL:test/One:1.0"), second("IDL:test/One:1.0"), third("IDL:test/Two:1.0");
  announce(first);
  EXPECT_STREQ(POA_impl_name, record_of(newest)->adapter_name);
  EXPECT_EQ(FindImplementationDef("IDL:test/One:1.0")->is_ready, 1);
  {
    TraceRecorder trace;
    announce(second);
    EXPECT_EQ(trace.lines(), std::vector<std::string>{"POAInfo::POA_impl_is_ready called..."});
  }
  newest->destroy(false, false);
  announce(third);
  EXPECT_EQ(registered(), 2);
  EXPECT_EQ(POA_impl_is_ready_fl, 0);
}

TEST_F(Registration, TheProcessIsRegisteredOnce) {
  for (const char* variable : {"the-server", static_cast<const char*>(nullptr)}) {
    const ScopedVariable implid("ZR_IMPLID", variable);
    CORBA::string_free(const_cast<char*>(POA_impl_name.exchange(nullptr)));
    POA_impl_is_ready_fl = 0;
    _POA_impl_is_ready(POAInfo::_boa, env);
    EXPECT_STREQ(POA_impl_name, variable ? variable : record_of(top)->adapter_name);
    EXPECT_EQ(POA_impl_is_ready_fl, 1);
    {
      TraceRecorder trace;
      _POA_impl_is_ready(POAInfo::_boa, env);
      EXPECT_EQ(trace.lines(), std::vector<std::string>{"_POA_impl_is_ready called..."});
    }
    clear_implementation_table();
    PlainServant servant;
    announce(servant);  // from now on interfaces only fill the table
    EXPECT_EQ(registered(), 1);
    EXPECT_EQ(implDef_cache[0].is_ready, 0);
  }
}

TEST_F(Registration, WithoutANameNothingIsRegistered) {
  POAInfo* const root_record = std::exchange(root_poa_info, nullptr);
  PlainServant servant;
  announce(servant);
  _POA_impl_is_ready(POAInfo::_boa, env);
  root_poa_info = root_record;
  EXPECT_EQ(registered(), 0);
  EXPECT_EQ(POA_impl_name.load(), nullptr);
  EXPECT_EQ(POA_impl_is_ready_fl, 0);
}

TEST_F(Registration, AnInterfaceIsNotRegisteredTwiceByManyThreads) {
  std::array<PlainServant, 4> servants;
  TraceRecorder trace;
  run_together(4, [&](std::size_t i) { announce(servants[i]); });
  EXPECT_EQ(registered(), 1);
  EXPECT_EQ(trace.count("POAInfo::POA_impl_is_ready end..."), 1u);
}

TEST_F(Registration, AFailureReachesTheCallerAndTheEntryIsWithdrawn) {
  fill_table();
  PlainServant servant("IDL:test/NoRoom:1.0");
  const POAInfoPtr record = record_of(top);
  expect_raised<POA::ServantAlreadyActive>(
      [&](auto& ev) { record->activate_object_with_id(oid, &servant, ev); });
  EXPECT_EQ(entries_of(*record, servant), 0);
  clear_implementation_table();
  record->activate_object_with_id(oid, &servant, env);
  EXPECT_EQ(entries_of(*record, servant), 1);
  record->deactivate_object(oid, env);
}
