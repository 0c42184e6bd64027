#include <gtest/gtest.h>

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
  const std::string poa =
      hex("0E 0023 49444C3A6F6D672E6F72672F506F727461626C655365727665722F504F413A322E3300 "
          "0004 504F4100");
  const std::pair<const Description&, std::string> rows[] = {
      {_tc_PortableServer_POA_impl_seq, poa},
      {_tc_PortableServer_POA_InvalidPolicy_impl_seq,
       hex("16 02 0002") + text("IDL:omg.org/PortableServer/POA/InvalidPolicy:1.0") + text("InvalidPolicy") +
           hex("0001") + text("index") + hex("0001 04")},
      {_tc_PortableServer_ForwardRequest_impl_seq,
       hex("16 04 0004") + text("IDL:omg.org/PortableServer/ForwardRequest:1.0") + text("ForwardRequest") +
           hex("0001") + text("forward_reference") + hex("0007 0E 0001 00 0001 00")},
      {_tc_PortableServer_ObjectId_impl_seq, hex("15") + text("IDL:omg.org/PortableServer/ObjectId:1.0") +
                                                 text("ObjectId") + hex("0008 13 00000001 0A 0000")},
      {_tc_PortableServer_POAList_impl_seq, hex("15") + text("IDL:omg.org/PortableServer/POAList:1.0") +
                                                text("POAList") + hex("0033 13 0000002C") + poa +
                                                hex("0000")},
  };
  for (const auto& [description, golden] : rows) EXPECT_EQ(octets(description), hex("00000000") + golden);
}

struct Row {
  const Description& description;
  CORBA::TCKind kind;
  std::string id;
  const char* members;  // each with a blank behind it
};

// clang-format off
#define PS "IDL:omg.org/PortableServer/"
#define OURS(kind, Name, ...) ROW(PortableServer_##Name, kind, PS #Name ":1.0", __VA_ARGS__)
#define INNER(kind, In, It, ...) ROW(PortableServer_##In##_##It, kind, PS #In "/" #It ":1.0", __VA_ARGS__)
#define V23(Name) ROW(PortableServer_##Name, objref, PS #Name ":2.3", )
#define CORE(kind, Name, ...) ROW(CORBA_##Name, kind, "IDL:CORBA/" #Name ":1.0", __VA_ARGS__)
#define ROW(Symbol, kind, id, ...) Row{_tc_##Symbol##_impl_seq, CORBA::tk_##kind, id, "" __VA_ARGS__}
std::vector<Row> rows() {
  return {
      V23(POA), V23(AdapterActivator), V23(ServantActivator), V23(ServantLocator), V23(Current),
      OURS(objref, POAManager), OURS(objref, ThreadPolicy), OURS(objref, LifespanPolicy),
      OURS(objref, IdUniquenessPolicy), OURS(objref, IdAssignmentPolicy),
      OURS(objref, ImplicitActivationPolicy), OURS(objref, ServantRetentionPolicy),
      OURS(objref, RequestProcessingPolicy), OURS(objref, ServantManager), OURS(alias, POAList),
      OURS(alias, Servant), OURS(alias, ObjectId), INNER(alias, ServantLocator, Cookie),
      INNER(except, POA, AdapterAlreadyExists), INNER(except, POA, AdapterNonExistent),
      INNER(except, POA, NoServant), INNER(except, POA, ObjectAlreadyActive),
      INNER(except, POA, ObjectNotActive), INNER(except, POA, ServantAlreadyActive),
      INNER(except, POA, ServantNotActive), INNER(except, POA, WrongAdapter),
      INNER(except, POA, WrongPolicy), INNER(except, POAManager, AdapterInactive),
      INNER(except, Current, NoContext), CORE(objref, DomainManager), CORE(objref, Policy),
      CORE(objref, Current), CORE(alias, OpaqueValue), CORE(alias, PolicyType), CORE(alias, PolicyErrorCode),
      CORE(alias, ServiceType), CORE(alias, ServiceOption), CORE(alias, ServiceDetailType),
      CORE(alias, PolicyList), CORE(alias, DomainManagersList),
      OURS(enum, ThreadPolicyValue, "ORB_CTRL_MODEL SINGLE_THREAD_MODEL "),
      OURS(enum, LifespanPolicyValue, "TRANSIENT PERSISTENT "),
      OURS(enum, IdUniquenessPolicyValue, "UNIQUE_ID MULTIPLE_ID "),
      OURS(enum, IdAssignmentPolicyValue, "USER_ID SYSTEM_ID "),
      OURS(enum, ImplicitActivationPolicyValue, "IMPLICIT_ACTIVATION NO_IMPLICIT_ACTIVATION "),
      OURS(enum, ServantRetentionPolicyValue, "RETAIN NON_RETAIN "),
      OURS(enum, RequestProcessingPolicyValue,
           "USE_ACTIVE_OBJECT_MAP_ONLY USE_DEFAULT_SERVANT USE_SERVANT_MANAGER "),
      INNER(enum, POAManager, State, "HOLDING ACTIVE DISCARDING INACTIVE "),
      INNER(except, POA, InvalidPolicy, "index "), OURS(except, ForwardRequest, "forward_reference "),
      CORE(enum, SetOverrideType, "SET_OVERRIDE ADD_OVERRIDE "),
      CORE(struct, ServiceDetail, "service_detail_type service_detail "),
      CORE(struct, ServiceInformation, "service_options service_details "),
      CORE(except, PolicyError, "reason "),
      Row{_tc_CORBA_sequence_Policy_impl_seq, CORBA::tk_sequence, "", ""}};
}
// clang-format on

TEST(Descriptions, EachIsTheTypeItSaysAndNoOtherLengthIsTaken) {
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.id);
    const std::string whole = octets(row.description);
    for (std::size_t length = 0; length <= whole.size() + 1; ++length) {
      std::string some = whole;
      some.resize(length);
      const std::vector<unsigned char> exact(some.begin(), some.end());
      const auto size = static_cast<CORBA::ULong>(length);
      const TypeCode_var type = typecodes::build({size, size, exact.data(), 0});
      EXPECT_EQ(type.in() != nullptr, length == whole.size()) << length;
    }
    const TypeCode_var type = typecodes::build(row.description);
    EXPECT_EQ(type->kind(), row.kind);
    if (row.kind == CORBA::tk_sequence) continue;
    EXPECT_EQ(type->id(), row.id);
    const std::size_t name = row.id.rfind('/') + 1;
    EXPECT_EQ(type->name(), row.id.substr(name, row.id.find(':', name) - name));
    std::string members;
    const bool has_members =
        row.kind == CORBA::tk_enum || row.kind == CORBA::tk_except || row.kind == CORBA::tk_struct;
    for (CORBA::ULong i = 0; has_members && i < type->member_count(); ++i)
      members.append(type->member_name(i)).append(" ");
    EXPECT_EQ(members, row.members);
  }
}

TEST(Anys, HoldEnumerationsSequencesAndReferences) {
  CORBA::Any any;
  any <<= new ThreadPolicyValue(SINGLE_THREAD_MODEL);
  ThreadPolicyValue model{};
  EXPECT_TRUE((any >>= model) && model == SINGLE_THREAD_MODEL);
  auto state = POAManager::INACTIVE;
  EXPECT_FALSE(any >>= state) << "another type";

  auto* given = new ObjectId(3);
  given->length(3);
  (*given)[2] = 'c';
  any <<= given;
  ObjectId* found = nullptr;
  EXPECT_TRUE((any >>= found) && found == given) << "the Any's own";
  Encoding out;
  ASSERT_TRUE(cdr_CORBA_Any(out, &any));
  CORBA::Any travelled;
  ASSERT_TRUE(cdr_CORBA_Any(Decoding(out.octets(), std::endian::native == std::endian::little), &travelled));
  for (const CORBA::Any& each : {CORBA::Any(any), travelled})
    EXPECT_TRUE((each >>= found) && found != given && found->length() == 3 && (*found)[2] == 'c');
  POAList* list = nullptr;
  EXPECT_FALSE(any >>= list);
  any <<= POAList(2);
  EXPECT_TRUE((any >>= list) && list->maximum() == 2u);

  any <<= test_root_poa();  // duplicated: the root goes on to be the test's
  EXPECT_STREQ(TypeCode_var(any.type())->id(), "IDL:omg.org/PortableServer/POA:2.3");
  CORBA::Object_var object;
  EXPECT_TRUE((any >>= CORBA::Any::to_object{object.inout()}) && object->_is_equivalent(test_root_poa()));
  any <<= new POAManager*(test_root_poa()->the_POAManager());
  EXPECT_STREQ(TypeCode_var(any.type())->name(), "POAManager");
}

}  // namespace
