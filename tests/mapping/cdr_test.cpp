#include <gtest/gtest.h>

#include "../core/octets.h"
#include "mapping/poa_cdr.h"
#include "orb_fixture.h"

namespace {

using namespace PortableServer;

const std::string nil_reference = hex("01000000 00 000000 00000000");

template <class Wire, class... Value>
std::string encode(Wire wire, Value&&... value) {
  Encoding out;
  return wire(out, std::forward<Value>(value)...) ? out.octets() : "failed";
}

template <class Wire, class Value>
bool decode(Wire wire, const std::string& octets, Value&& value) {
  Decoding in(octets);
  return wire(in, std::forward<Value>(value));
}

template <class X>
void expect_reference_travels(unsigned char (*wire)(CDR*, X*&)) {
  CORBA::ObjectVar<X> reference = X::_narrow(test_root_poa());
  const std::string octets = encode(wire, reference.inout());
  CORBA::ObjectVar<X> decoded;
  ASSERT_TRUE(decode(wire, octets, decoded.out()));
  EXPECT_TRUE(decoded->_is_equivalent(reference.in()));
  for (std::size_t cut = 0; cut < octets.size(); ++cut) {
    X* none = nullptr;
    EXPECT_FALSE(decode(wire, octets.substr(0, cut), none)) << cut;
    EXPECT_EQ(none, nullptr);
  }
  X* nil = nullptr;
  EXPECT_EQ(encode(wire, nil), nil_reference);
  X* again = decoded.in();
  EXPECT_TRUE(decode(wire, nil_reference, again)) << "what was there is not the function's to release";
  EXPECT_EQ(again, nullptr);
}

TEST(Cdr, References) {
  expect_reference_travels(cdr_PortableServer_POA);
  expect_reference_travels(cdr_PortableServer_LifespanPolicy);
  expect_reference_travels(cdr_PortableServer_ServantManager);
}

TEST(Cdr, EnumerationsIdsAndWhatDoesNotTravel) {
  auto state = POAManager::DISCARDING;
  EXPECT_EQ(encode(cdr_PortableServer_POAManager_State, &state), hex("02000000"));
  EXPECT_TRUE(decode(cdr_PortableServer_POAManager_State, hex("03000000"), &state));
  EXPECT_EQ(state, POAManager::INACTIVE);
  EXPECT_FALSE(decode(cdr_PortableServer_POAManager_State, hex("030000"), &state));
  EXPECT_FALSE(decode(cdr_PortableServer_POAManager_State, hex("04000000"), &state)) << "no enumerator";
  auto lifespan = TRANSIENT;
  EXPECT_FALSE(decode(cdr_PortableServer_LifespanPolicyValue, hex("02000000"), &lifespan));
  EXPECT_EQ(lifespan, TRANSIENT);
  ServantBase* servant = nullptr;
  EXPECT_EQ(encode(cdr_PortableServer_Servant, &servant), "failed");
  EXPECT_FALSE(decode(cdr_PortableServer_Servant, hex("00000000 00000000"), &servant));

  const std::string octets = hex("03000000 616263");
  CORBA::Octet borrowed[] = {1, 2, 3};
  ObjectId view(3, 3, borrowed, 0);
  ASSERT_TRUE(decode(cdr_PortableServer_ObjectId, octets, &view));
  EXPECT_EQ(encode(cdr_PortableServer_ObjectId, &view), octets);
  EXPECT_EQ(borrowed[0], 1) << "not the id's to write to";
  ObjectId empty, id;
  EXPECT_EQ(encode(cdr_PortableServer_ObjectId, &empty), hex("00000000"));
  ASSERT_TRUE(decode(cdr_PortableServer_ObjectId, octets, &id));
  EXPECT_EQ(encode(cdr_PortableServer_ObjectId, &id), octets);
  for (std::size_t cut = 0; cut < octets.size(); ++cut) {
    EXPECT_FALSE(decode(cdr_PortableServer_ObjectId, octets.substr(0, cut), &empty)) << cut;
    EXPECT_EQ(empty.get_buffer(), nullptr);
  }
  EXPECT_FALSE(decode(cdr_PortableServer_ObjectId, hex("FFFFFFFF 61"), &empty));
}

TEST(Cdr, POALists) {
  POAList list, decoded, cut, huge;
  list.length(3);
  list[0] = POA::_duplicate(test_root_poa());
  list[2] = POA::_duplicate(test_root_poa());
  const std::string octets = encode(cdr_PortableServer_POAList, &list);
  ASSERT_TRUE(decode(cdr_PortableServer_POAList, octets, &decoded));
  ASSERT_EQ(decoded.length(), 3u);
  EXPECT_EQ(decoded[1].in(), nullptr);
  EXPECT_TRUE(decoded[2]->_is_equivalent(test_root_poa()));
  EXPECT_FALSE(decode(cdr_PortableServer_POAList, octets.substr(0, octets.size() - 4), &cut));
  ASSERT_GE(cut.length(), 2u) << "what came before the third element stays";
  EXPECT_TRUE(cut[0]->_is_equivalent(test_root_poa()));
  EXPECT_EQ(cut[2].in(), nullptr);
  EXPECT_FALSE(decode(cdr_PortableServer_POAList, hex("FFFFFFFF 01000000"), &huge));
  EXPECT_EQ(huge.maximum(), 0u) << "more elements than the stream can hold";
}

TEST(Cdr, ExceptionsWithMembers) {
  POA::InvalidPolicy policy(3);
  EXPECT_EQ(encode(cdr_PortableServer_POA_InvalidPolicy, &policy), hex("0300"));
  EXPECT_TRUE(decode(cdr_PortableServer_POA_InvalidPolicy, hex("0501"), &policy));
  EXPECT_EQ(policy.index(), 0x105);
  EXPECT_EQ(CORBA::UShort(policy.index), 0x105);
  EXPECT_FALSE(decode(cdr_PortableServer_POA_InvalidPolicy, hex("05"), &policy));

  ForwardRequest forward(test_root_poa()), decoded, nil;
  const std::string octets = encode(cdr_PortableServer_ForwardRequest, &forward);
  ASSERT_TRUE(decode(cdr_PortableServer_ForwardRequest, octets, &decoded));
  EXPECT_TRUE(decoded.forward_reference()->_is_equivalent(test_root_poa()));
  EXPECT_FALSE(decode(cdr_PortableServer_ForwardRequest, octets.substr(0, 9), &decoded));
  EXPECT_NE(decoded.forward_reference(), nullptr);
  EXPECT_EQ(encode(cdr_PortableServer_ForwardRequest, &nil), nil_reference);
}

}  // namespace
