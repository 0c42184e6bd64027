#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../core/octets.h"
#include "orb_fixture.h"
#include "poa_typecodes.h"

namespace {

using namespace PortableServer;
using CORBA::TypeCode;
using CORBA::TypeCode_var;
using typecodes::Description;

std::string octets(const Description& d) { return {reinterpret_cast<const char*>(d._buffer), d._length}; }

/// A text of a description in hexadecimal: length word, characters, NUL.
std::string text(std::string_view characters) {
  const std::size_t length = characters.size() + 1;
  std::string octets{static_cast<char>(length >> 8), static_cast<char>(length)};
  return octets.append(characters).append(1, '\0');
}

TEST(Descriptions, Golden) {
  const std::string poa = hex("0E") + text("IDL:omg.org/PortableServer/POA:2.3") + text("POA");
  EXPECT_EQ(octets(_tc_PortableServer_POA_impl_seq),
            hex("00000000 0E 0023 49444C3A6F6D672E6F72672F506F727461626C655365727665722F504F413A322E3300 "
                "0004 504F4100"));
  EXPECT_EQ(octets(_tc_PortableServer_POA_impl_seq), hex("00000000") + poa);
  EXPECT_EQ(_tc_PortableServer_POA_impl_seq._length, 48u);
  EXPECT_EQ(_tc_PortableServer_POA_impl_seq._maximum, 48u);
  EXPECT_EQ(_tc_PortableServer_POA_impl_seq._release, 0);

  EXPECT_EQ(octets(_tc_PortableServer_POA_InvalidPolicy_impl_seq),
            hex("00000000 16 02 0002") + text("IDL:omg.org/PortableServer/POA/InvalidPolicy:1.0") +
                text("InvalidPolicy") + hex("0001") + text("index") + hex("0001 04"));
  EXPECT_EQ(octets(_tc_PortableServer_ForwardRequest_impl_seq),
            hex("00000000 16 04 0004") + text("IDL:omg.org/PortableServer/ForwardRequest:1.0") +
                text("ForwardRequest") + hex("0001") + text("forward_reference") +
                hex("0007 0E 0001 00 0001 00"));
  EXPECT_EQ(octets(_tc_PortableServer_POA_NoServant_impl_seq),
            hex("00000000 16 00 0000") + text("IDL:omg.org/PortableServer/POA/NoServant:1.0") +
                text("NoServant") + hex("0000"));
  EXPECT_EQ(octets(_tc_PortableServer_ObjectId_impl_seq),
            hex("00000000 15") + text("IDL:omg.org/PortableServer/ObjectId:1.0") + text("ObjectId") +
                hex("0008 13 00000001 0A 0000"));
  EXPECT_EQ(octets(_tc_PortableServer_POAList_impl_seq),
            hex("00000000 15") + text("IDL:omg.org/PortableServer/POAList:1.0") + text("POAList") +
                hex("0033 13 0000002C") + poa + hex("0000"));
  EXPECT_EQ(octets(_tc_PortableServer_POAManager_State_impl_seq),
            hex("00000000 11") + text("IDL:omg.org/PortableServer/POAManager/State:1.0") + text("State") +
                hex("0004") + text("HOLDING") + text("ACTIVE") + text("DISCARDING") + text("INACTIVE"));
  EXPECT_EQ(
      octets(_tc_PortableServer_Servant_impl_seq),
      hex("00000000 15") + text("IDL:omg.org/PortableServer/Servant:1.0") + text("Servant") + hex("0001 05"));
}

struct Row {
  const Description& description;
  CORBA::TCKind kind;
  std::string id;  // after "IDL:omg.org/PortableServer/" unless whole; empty: the kind has none
  std::string name;
  std::vector<std::string> members;
};

std::vector<Row> rows() {
  using namespace CORBA;
  const auto two = [](const char* a, const char* b) { return std::vector<std::string>{a, b}; };
  return {
#define ROW(Name) _tc_PortableServer_##Name##_impl_seq
      {ROW(POA), tk_objref, "POA:2.3", "POA", {}},
      {ROW(POAManager), tk_objref, "POAManager:1.0", "POAManager", {}},
      {ROW(ThreadPolicy), tk_objref, "ThreadPolicy:1.0", "ThreadPolicy", {}},
      {ROW(LifespanPolicy), tk_objref, "LifespanPolicy:1.0", "LifespanPolicy", {}},
      {ROW(IdUniquenessPolicy), tk_objref, "IdUniquenessPolicy:1.0", "IdUniquenessPolicy", {}},
      {ROW(IdAssignmentPolicy), tk_objref, "IdAssignmentPolicy:1.0", "IdAssignmentPolicy", {}},
      {ROW(ImplicitActivationPolicy),
       tk_objref,
       "ImplicitActivationPolicy:1.0",
       "ImplicitActivationPolicy",
       {}},
      {ROW(ServantRetentionPolicy), tk_objref, "ServantRetentionPolicy:1.0", "ServantRetentionPolicy", {}},
      {ROW(RequestProcessingPolicy), tk_objref, "RequestProcessingPolicy:1.0", "RequestProcessingPolicy", {}},
      {ROW(AdapterActivator), tk_objref, "AdapterActivator:2.3", "AdapterActivator", {}},
      {ROW(ServantManager), tk_objref, "ServantManager:1.0", "ServantManager", {}},
      {ROW(ServantActivator), tk_objref, "ServantActivator:2.3", "ServantActivator", {}},
      {ROW(ServantLocator), tk_objref, "ServantLocator:2.3", "ServantLocator", {}},
      {ROW(Current), tk_objref, "Current:2.3", "Current", {}},
      {ROW(ThreadPolicyValue), tk_enum, "ThreadPolicyValue:1.0", "ThreadPolicyValue",
       two("ORB_CTRL_MODEL", "SINGLE_THREAD_MODEL")},
      {ROW(LifespanPolicyValue), tk_enum, "LifespanPolicyValue:1.0", "LifespanPolicyValue",
       two("TRANSIENT", "PERSISTENT")},
      {ROW(IdUniquenessPolicyValue), tk_enum, "IdUniquenessPolicyValue:1.0", "IdUniquenessPolicyValue",
       two("UNIQUE_ID", "MULTIPLE_ID")},
      {ROW(IdAssignmentPolicyValue), tk_enum, "IdAssignmentPolicyValue:1.0", "IdAssignmentPolicyValue",
       two("USER_ID", "SYSTEM_ID")},
      {ROW(ImplicitActivationPolicyValue), tk_enum, "ImplicitActivationPolicyValue:1.0",
       "ImplicitActivationPolicyValue", two("IMPLICIT_ACTIVATION", "NO_IMPLICIT_ACTIVATION")},
      {ROW(ServantRetentionPolicyValue), tk_enum, "ServantRetentionPolicyValue:1.0",
       "ServantRetentionPolicyValue", two("RETAIN", "NON_RETAIN")},
      {ROW(RequestProcessingPolicyValue),
       tk_enum,
       "RequestProcessingPolicyValue:1.0",
       "RequestProcessingPolicyValue",
       {"USE_ACTIVE_OBJECT_MAP_ONLY", "USE_DEFAULT_SERVANT", "USE_SERVANT_MANAGER"}},
      {ROW(POAManager_State),
       tk_enum,
       "POAManager/State:1.0",
       "State",
       {"HOLDING", "ACTIVE", "DISCARDING", "INACTIVE"}},
      {ROW(POAList), tk_alias, "POAList:1.0", "POAList", {}},
      {ROW(Servant), tk_alias, "Servant:1.0", "Servant", {}},
      {ROW(ObjectId), tk_alias, "ObjectId:1.0", "ObjectId", {}},
      {ROW(ServantLocator_Cookie), tk_alias, "ServantLocator/Cookie:1.0", "Cookie", {}},
      {ROW(POA_AdapterAlreadyExists), tk_except, "POA/AdapterAlreadyExists:1.0", "AdapterAlreadyExists", {}},
      {ROW(POA_AdapterNonExistent), tk_except, "POA/AdapterNonExistent:1.0", "AdapterNonExistent", {}},
      {ROW(POA_InvalidPolicy), tk_except, "POA/InvalidPolicy:1.0", "InvalidPolicy", {"index"}},
      {ROW(POA_NoServant), tk_except, "POA/NoServant:1.0", "NoServant", {}},
      {ROW(POA_ObjectAlreadyActive), tk_except, "POA/ObjectAlreadyActive:1.0", "ObjectAlreadyActive", {}},
      {ROW(POA_ObjectNotActive), tk_except, "POA/ObjectNotActive:1.0", "ObjectNotActive", {}},
      {ROW(POA_ServantAlreadyActive), tk_except, "POA/ServantAlreadyActive:1.0", "ServantAlreadyActive", {}},
      {ROW(POA_ServantNotActive), tk_except, "POA/ServantNotActive:1.0", "ServantNotActive", {}},
      {ROW(POA_WrongAdapter), tk_except, "POA/WrongAdapter:1.0", "WrongAdapter", {}},
      {ROW(POA_WrongPolicy), tk_except, "POA/WrongPolicy:1.0", "WrongPolicy", {}},
      {ROW(POAManager_AdapterInactive), tk_except, "POAManager/AdapterInactive:1.0", "AdapterInactive", {}},
      {ROW(ForwardRequest), tk_except, "ForwardRequest:1.0", "ForwardRequest", {"forward_reference"}},
      {ROW(Current_NoContext), tk_except, "Current/NoContext:1.0", "NoContext", {}},
#undef ROW
#define ROW(Name) _tc_CORBA_##Name##_impl_seq
      {ROW(DomainManager), tk_objref, "IDL:CORBA/DomainManager:1.0", "DomainManager", {}},
      {ROW(OpaqueValue), tk_alias, "IDL:CORBA/OpaqueValue:1.0", "OpaqueValue", {}},
      {ROW(PolicyType), tk_alias, "IDL:CORBA/PolicyType:1.0", "PolicyType", {}},
      {ROW(PolicyErrorCode), tk_alias, "IDL:CORBA/PolicyErrorCode:1.0", "PolicyErrorCode", {}},
      {ROW(ServiceType), tk_alias, "IDL:CORBA/ServiceType:1.0", "ServiceType", {}},
      {ROW(ServiceOption), tk_alias, "IDL:CORBA/ServiceOption:1.0", "ServiceOption", {}},
      {ROW(ServiceDetailType), tk_alias, "IDL:CORBA/ServiceDetailType:1.0", "ServiceDetailType", {}},
      {ROW(sequence_Policy), tk_sequence, "", "", {}},
      {ROW(PolicyList), tk_alias, "IDL:CORBA/PolicyList:1.0", "PolicyList", {}},
      {ROW(SetOverrideType), tk_enum, "IDL:CORBA/SetOverrideType:1.0", "SetOverrideType",
       two("SET_OVERRIDE", "ADD_OVERRIDE")},
      {ROW(ServiceDetail), tk_struct, "IDL:CORBA/ServiceDetail:1.0", "ServiceDetail",
       two("service_detail_type", "service_detail")},
      {ROW(ServiceInformation), tk_struct, "IDL:CORBA/ServiceInformation:1.0", "ServiceInformation",
       two("service_options", "service_details")},
      {ROW(DomainManagersList), tk_alias, "IDL:CORBA/DomainManagersList:1.0", "DomainManagersList", {}},
      {ROW(PolicyError), tk_except, "IDL:CORBA/PolicyError:1.0", "PolicyError", {"reason"}},
      {ROW(Policy), tk_objref, "IDL:CORBA/Policy:1.0", "Policy", {}},
      {ROW(Current), tk_objref, "IDL:CORBA/Current:1.0", "Current", {}},
#undef ROW
  };
}

TEST(Descriptions, EachIsTheTypeItSays) {
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.name + " " + row.id);
    const TypeCode_var type = typecodes::build(row.description);
    ASSERT_NE(type.in(), nullptr);
    EXPECT_EQ(type->kind(), row.kind);
    if (row.id.empty()) continue;
    EXPECT_EQ(type->id(), row.id.starts_with("IDL:") ? row.id : "IDL:omg.org/PortableServer/" + row.id);
    EXPECT_EQ(type->name(), row.name);
    const bool has_members =
        row.kind == CORBA::tk_enum || row.kind == CORBA::tk_except || row.kind == CORBA::tk_struct;
    ASSERT_EQ(has_members ? type->member_count() : 0, row.members.size());
    for (CORBA::ULong i = 0; i < row.members.size(); ++i) EXPECT_EQ(type->member_name(i), row.members[i]);
  }
}

TEST(Descriptions, EveryTruncationIsRefused) {
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.name);
    const std::string whole = octets(row.description);
    for (std::size_t length = 0; length <= whole.size() + 1; ++length) {
      std::string some = whole;
      some.resize(length);
      const std::vector<unsigned char> exact(some.begin(), some.end());
      const Description description{static_cast<CORBA::ULong>(length), static_cast<CORBA::ULong>(length),
                                    exact.data(), 0};
      const TypeCode_var type = typecodes::build(description);
      EXPECT_EQ(type.in() != nullptr, length == whole.size()) << length;
    }
  }
}

TEST(Anys, HoldEnumerationsAndSequences) {
  CORBA::Any any;
  any <<= USE_SERVANT_MANAGER;
  RequestProcessingPolicyValue value{};
  EXPECT_TRUE(any >>= value);
  EXPECT_EQ(value, USE_SERVANT_MANAGER);
  auto state = POAManager::INACTIVE;
  EXPECT_FALSE(any >>= state) << "another type";
  EXPECT_EQ(state, POAManager::INACTIVE);
  any <<= new ThreadPolicyValue(SINGLE_THREAD_MODEL);
  ThreadPolicyValue model{};
  EXPECT_TRUE(any >>= model);
  EXPECT_EQ(model, SINGLE_THREAD_MODEL);

  const ObjectId id(3);
  auto* given = new ObjectId(id);
  given->length(3);
  any <<= given;
  ObjectId* found = nullptr;
  EXPECT_TRUE(any >>= found);
  EXPECT_EQ(found, given) << "the Any's own";
  any <<= *given;
  EXPECT_TRUE(any >>= found);
  EXPECT_EQ(found->length(), 3u);
  POAList* list = nullptr;
  EXPECT_FALSE(any >>= list);
  EXPECT_EQ(list, nullptr);

  CORBA::Any_var held;
  held <<= POAManager::HOLDING;
  EXPECT_TRUE(held >>= state);
  EXPECT_EQ(state, POAManager::HOLDING);
  held <<= POAList(2);
  EXPECT_TRUE(held >>= list);
  EXPECT_EQ(list->maximum(), 2u);
  CORBA::Any empty;
  EXPECT_FALSE(empty >>= found);
}

TEST(Anys, HoldReferences) {
  POA* const root = test_root_poa();
  CORBA::Any any;
  any <<= root;  // duplicated: the root goes on to be the test's
  const TypeCode_var type = any.type();
  EXPECT_STREQ(type->id(), "IDL:omg.org/PortableServer/POA:2.3");
  CORBA::Object_var object;
  EXPECT_TRUE(any >>= CORBA::Any::to_object{object.inout()});
  EXPECT_TRUE(object->_is_equivalent(root));
  any <<= new POAManager*(root->the_POAManager());
  const TypeCode_var manager_type = any.type();
  EXPECT_STREQ(manager_type->name(), "POAManager");
  CORBA::Any_var held;
  held <<= static_cast<ServantManager*>(nullptr);
  const TypeCode_var nil_type = held->type();
  EXPECT_STREQ(nil_type->name(), "ServantManager");
}

}  // namespace
