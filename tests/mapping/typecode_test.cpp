#include <gtest/gtest.h>

#include "../core/octets.h"
#include "mapping/poa_typecodes.h"
#include "orb_fixture.h"

namespace {

using namespace PortableServer;
using CORBA::TypeCode;
using CORBA::TypeCode_var;
using typecodes::Description;

/// A text of a description: length word, characters, NUL.
std::string text(std::string_view characters) {
  const std::size_t length = characters.size() + 1;
  std::string octets{static_cast<char>(length >> 8), static_cast<char>(length)};
  return octets.append(characters).append(1, '\0');
}

TEST(Descriptions, AreGoldenAndNoOtherLengthIsTaken) {
  const std::string poa = hex("0E") + text("IDL:omg.org/PortableServer/POA:2.3") + text("POA");
  const std::tuple<const Description&, const char*, std::string> rows[] = {
      {_tc_PortableServer_POA_impl_seq, "POA", poa},
      {_tc_PortableServer_POA_InvalidPolicy_impl_seq, "InvalidPolicy",
       hex("16 02 0002") + text("IDL:omg.org/PortableServer/POA/InvalidPolicy:1.0") + text("InvalidPolicy") +
           hex("0001") + text("index") + hex("0001 04")},
      {_tc_PortableServer_ForwardRequest_impl_seq, "ForwardRequest",
       hex("16 04 0004") + text("IDL:omg.org/PortableServer/ForwardRequest:1.0") + text("ForwardRequest") +
           hex("0001") + text("forward_reference") + hex("0007 0E 0001 00 0001 00")},
      {_tc_PortableServer_POAList_impl_seq, "POAList",
       hex("15") + text("IDL:omg.org/PortableServer/POAList:1.0") + text("POAList") +
           hex("0033 13 0000002C") + poa + hex("0000")},
      {_tc_PortableServer_ThreadPolicyValue_impl_seq, "ThreadPolicyValue",
       hex("11") + text("IDL:omg.org/PortableServer/ThreadPolicyValue:1.0") + text("ThreadPolicyValue") +
           hex("0002") + text("ORB_CTRL_MODEL") + text("SINGLE_THREAD_MODEL")},
      {_tc_CORBA_ServiceDetail_impl_seq, "ServiceDetail",
       hex("0F 04 0014") + text("IDL:CORBA/ServiceDetail:1.0") + text("ServiceDetail") + hex("0002") +
           text("service_detail_type") + hex("003A 15") + text("IDL:CORBA/ServiceDetailType:1.0") +
           text("ServiceDetailType") + hex("0001 05") + text("service_detail") +
           hex("0008 13 00000001 0A 0000")},
  };
  for (const auto& [description, name, golden] : rows) {
    SCOPED_TRACE(name);
    const std::string whole = hex("00000000") + golden;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(description._buffer), description._length), whole);
    EXPECT_STREQ(TypeCode_var(typecodes::build(description))->name(), name);
    for (std::size_t length = 0; length <= whole.size() + 1; ++length) {
      std::vector<unsigned char> exact(whole.begin(), whole.end());
      exact.resize(length);
      const auto size = static_cast<CORBA::ULong>(length);
      const TypeCode_var type = typecodes::build({size, size, exact.data(), 0});
      EXPECT_EQ(type.in() != nullptr, length == whole.size()) << length;
    }
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

  any <<= test_root_poa();  // duplicated: the root goes on to be the test's
  CORBA::Object_var object;
  EXPECT_TRUE((any >>= CORBA::Any::to_object{object.inout()}) && object->_is_equivalent(test_root_poa()));
  any <<= new POAManager*(test_root_poa()->the_POAManager());
  EXPECT_STREQ(TypeCode_var(any.type())->name(), "POAManager");
}

}  // namespace
