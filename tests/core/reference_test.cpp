#include "references/reference.h"

#include <gtest/gtest.h>

#include "octets.h"
#include "references/repository.h"
#include "scratch.h"
#include "wire/crc32c.h"
#include "wire/iiop_profile.h"
#include "wire/key_secret.h"
#include "wire/object_key.h"

namespace {

using namespace zrsv;
using Handle = Ref<Reference>;

constexpr bool native_little = std::endian::native == std::endian::little;

Handle adopt(void* handle) { return Handle::adopt(as_reference(handle)); }

Handle create(std::string data, const char* intf = "IDL:T:1.0", const char* impl = "impl",
              CORBA_Environment* ev = nullptr) {
  const auto length = static_cast<uint32_t>(data.size());
  const CORBA_sequence_octet octets{length, length, reinterpret_cast<unsigned char*>(data.data())};
  return adopt(ZR_create_object_reference(&octets, intf, impl, ev));
}

Handle from_text(const std::string& text, CORBA_Environment* ev = nullptr) {
  return adopt(CORBA_ORB_string_to_object(nullptr, text.c_str(), ev));
}

std::string taken(char* text) {
  std::string copy = text ? text : "";
  CORBA_free(text);
  return copy;
}
std::string text_of(const Handle& h) { return taken(CORBA_ORB_object_to_string(nullptr, h.get(), nullptr)); }
std::string url_of(const Handle& h) { return taken(ZR_object_to_corbaloc(nullptr, h.get(), nullptr)); }

std::string octets_of(const Handle& h) {
  Encoding out;
  void* handle = h.get();
  EXPECT_TRUE(OM_cdr_object(out, &handle));
  return out.octets();
}

/// With two end points of its own, and nothing left over for the next test.
class References : public testing::Test {
 protected:
  void SetUp() override {
    set_published_endpoints({{"here", 4000}, {"::1", 4001}});
    set_binding_open(true);
  }
  void TearDown() override {
    set_published_endpoints({});
    load_impl_repository("");
  }
};

// magic, version; lengths of the parts; implementation "i", interface "ID", data; check
const std::string key_octets = hex("5a52535601 010002000300 69 4944 00ff7f 82b7250e");

void expect_no_damage_passes(const std::string& key) {
  for (std::size_t i = 0; i < key.size(); ++i) {
    std::string damaged = key;
    damaged[i] ^= 1;
    EXPECT_FALSE(read_object_key(damaged)) << i;
    EXPECT_FALSE(same_key(key, damaged)) << i;
    EXPECT_FALSE(read_object_key(key.substr(0, i))) << i;
  }
}

TEST(ObjectKey, IsTheExactInverseUpToItsLimits) {
  const std::string_view data("\0\xff\x7f", 3);
  EXPECT_EQ(write_object_key({"i", "ID", data}), key_octets);
  const auto parts = read_object_key(key_octets);
  ASSERT_TRUE(parts);
  EXPECT_TRUE(parts->impl == "i" && parts->intf == "ID" && parts->data == data);
  expect_no_damage_passes(key_octets);
  EXPECT_TRUE(write_object_key({"", "", std::string(65535, 'd')}));
  EXPECT_FALSE(write_object_key({"", "", std::string(65536, 'd')}));
  EXPECT_FALSE(write_object_key({std::string_view("a\0b", 3), "", ""}));
}

/// What is wrong with a secret of these octets in a file; without a word it is used from now on.
std::string load_secret(const std::string& octets, unsigned mode = 0600) {
  return load_key_secret(Scratch().write("secret", octets, mode));
}

TEST(ObjectKey, TheChecksumIsTheSameWithTheInstructionAndWithout) {
  EXPECT_EQ(crc32c_by_table("123456789"), 0xE3069283u);
  std::string octets;
  for (int length = 0; length < 70; ++length, octets += static_cast<char>(length * 37))
    for (std::size_t from = 0; from <= octets.size(); ++from) {
      const std::string_view part = std::string_view(octets).substr(from);
      ASSERT_EQ(crc32c(part), crc32c_by_table(part)) << from << " of " << length;
    }
}

// A thread remembers 64: one that goes lends its memory to another, unless somebody has it.
TEST(ObjectKey, WhoeverHasAReferenceKeepsIt) {
  std::vector<Handle> kept;
  for (int i = 0; i < 1000; ++i) {
    const std::string data = std::string(static_cast<std::size_t>(i % 40), 'd') + std::to_string(i);
    const std::string key = *write_object_key({"impl", "IDL:T:1.0", data});
    Handle found = Reference::from_key(key);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->data(), data);
    if (i % 3 == 0) kept.push_back(std::move(found));
    EXPECT_FALSE(Reference::from_key(key + "x"));
  }
  for (std::size_t n = 0; n < kept.size(); ++n) {
    EXPECT_TRUE(kept[n]->data().ends_with(std::to_string(3 * n)));
    EXPECT_EQ(read_object_key(kept[n]->key())->data, kept[n]->data());
  }
}

/// Objects of POAs and types whose names differ a little, one after the other: each is found with all its parts, and none
/// under a damaged key.
void expect_all_found() {
  constexpr std::pair<const char*, const char*> names[] = {
      {"impl", "IDL:T:1.0"}, {"imql", "IDL:T:1.0"}, {"impl", "IDL:U:1.0"}, {"imp", "lIDL:T:1.0"}};
  for (int i = 0; i < 2000; ++i) {
    const auto& [impl, intf] = names[i % 7 == 0 ? i % 4 : i / 500];
    const std::string data = std::to_string(100'000 + i);
    const std::string key = *write_object_key({impl, intf, data});
    for (const std::size_t at : {key.size() - 1, key.find(data) + 5, std::size_t{13}}) {
      std::string damaged = key;
      damaged[at] ^= 1;
      EXPECT_FALSE(Reference::from_key(damaged)) << at;
    }
    const Handle found = Reference::from_key(key);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->key(), key);
    EXPECT_EQ(found->data(), data);
    EXPECT_TRUE(found->impl_name() == impl && found->intf_name() == intf && found->type_id() == intf) << key;
  }
}

TEST(ObjectKey, AThreadKnowsMoreThanOnePoa) { expect_all_found(); }

TEST(ObjectKey, IsSignedForMoreThanOnePoa) {
  ASSERT_EQ(load_secret(std::string(32, 's')), "");
  expect_all_found();
  ASSERT_EQ(load_key_secret(""), "");
  expect_all_found();
}

TEST(ObjectKey, IsSignedWhereThereIsASecret) {
  const KeyParts parts{"i", "ID", "data"};
  const std::string unsigned_key = *write_object_key(parts);
  ASSERT_EQ(load_secret(std::string(32, 's')), "");
  const std::string key = *write_object_key(parts);
  ASSERT_TRUE(read_object_key(key));
  EXPECT_TRUE(read_object_key(key)->data == "data" && Reference::from_key(key));
  EXPECT_FALSE(read_object_key(unsigned_key));
  EXPECT_EQ(key.substr(key.size() - signature_size),  // computed elsewhere
            hex("fefce2ca738ae60597b45438e1f3769a"));
  expect_no_damage_passes(key);
  EXPECT_TRUE(same_key(key, std::string(key)));
  ASSERT_EQ(load_secret(std::string(31, 's') + "t"), "");
  EXPECT_FALSE(read_object_key(key));
  ASSERT_EQ(load_key_secret(""), "");
  EXPECT_FALSE(read_object_key(key));
  EXPECT_TRUE(read_object_key(unsigned_key));
}

TEST(ObjectKey, SecretsThatAreNoneAreRefused) {
  const struct {
    std::string octets;
    unsigned mode;
    const char* why;
  } rows[] = {{std::string(31, 's'), 0600, "has 31 octets"},
              {std::string(4097, 's'), 0600, "has 4097 octets"},
              {std::string(32, 's'), 0640, "chmod 600"},
              {std::string(32, 's'), 0604, "chmod 600"}};
  for (const auto& row : rows) {
    const std::string wrong = load_secret(row.octets, row.mode);
    EXPECT_TRUE(wrong.starts_with("-ORBKeySecret") && wrong.find(row.why) != wrong.npos) << wrong;
  }
  EXPECT_NE(load_key_secret("/no/such/file").find("-ORBKeySecret: /no/such/file: No such file"),
            std::string::npos);
  EXPECT_NE(load_key_secret("/dev/null").find("is no ordinary file"), std::string::npos);
  EXPECT_FALSE(keys_are_signed());
}

// A POA, or ZR_IMPLID, may have such a name, too.
TEST_F(References, TheBrokersOwnObjectsAreToldByTheirData) {
  const std::string served(16, 'd');
  const struct {
    const char* impl;
    std::string data;
    bool own;
  } rows[] = {{"IDL:omg.org/PortableServer/POAManager:1.0", "12345678", true},
              {"IDL:CORBA/InterfaceDef:1.0", "IDL:omg.org/PortableServer/POA:1.0", true},
              {"IDL:omg.org/PortableServer/POAManager:1.0", served, false},
              {"IDL:shop", served, false},
              {"shop", "1234", false}};
  for (const auto& row : rows)
    EXPECT_EQ(create(row.data, "IDL:T:1.0", row.impl)->is_internal(), row.own) << row.impl;
}

TEST_F(References, LocalOnesCarryTheirPartsThroughEveryForm) {
  const std::string data("\0\1\2\xff", 4);
  const Handle made = create(data), by_key = Reference::from_key(made->key());
  EXPECT_EQ(by_key.get(), Reference::from_key(made->key()).get());  // a hot key costs nothing
  Handle by_cdr;
  ASSERT_TRUE(read_reference(Decoding(octets_of(made), native_little), &by_cdr));
  for (const Handle& h : {made, by_key, from_text(text_of(made)), from_text(url_of(made)), by_cdr}) {
    ASSERT_TRUE(h && h->is_local());
    EXPECT_STREQ(ZR_object_get_ImplID(h.get(), 0, nullptr), "impl");
    EXPECT_STREQ(ZR_object_get_IntfID(h.get(), 0, nullptr), "IDL:T:1.0");
    CORBA_sequence_octet* id = CORBA_BOA_get_id(nullptr, h.get(), nullptr);
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(std::string(id->_buffer, id->_buffer + id->_length), data);
    CORBA_free(id);
    EXPECT_TRUE(CORBA_object_is_equivalent(made.get(), h.get()));
    EXPECT_EQ(CORBA_object_hash(made.get(), 1000), CORBA_object_hash(h.get(), 1000));
  }
  EXPECT_FALSE(CORBA_object_is_equivalent(made.get(), create("other").get()));
}

TEST_F(References, LocalOnesAreWrittenWithEveryEndPoint) {
  if (!native_little) GTEST_SKIP() << "the golden octets are little-endian";
  const std::string golden =
      hex("03000000 49440000 01000000 00000000 60000000"  // type id "ID"; one profile: IIOP, 96 octets
          "01010200 020000006800 5000 15000000") +        // 1.2, host "h", port 80, key of 21 octets
      key_octets +                                        //
      hex("000000 02000000"                               // padding; two components:
          "01000000 18000000 01000000"                    // code sets, 24 octets, little-endian:
          "01000105 01000000 01000100"                    // UTF-8, which is converted from and to ISO 8859-1
          "09010100 00000000"                             // UTF-16; no conversions
          "03000000 0c000000 01000000 02000000 6200 5100");  // another address: host "b", port 81
  const Handle made = create(std::string("\0\xff\x7f", 3), "ID", "i");
  set_published_endpoints({{"h", 80}, {"b", 81}});
  EXPECT_EQ(octets_of(made), golden);
  set_published_endpoints({});
  Outcome ev;
  EXPECT_EQ(CORBA_ORB_object_to_string(nullptr, made.get(), ev), nullptr);  // nobody could reach it
  EXPECT_EQ(ev.name(), "BAD_INV_ORDER");
}

TEST_F(References, ProfilesOfAnotherMajorVersionAreNotRead) {
  ProfileView profile;
  const std::string rest = hex("00 00000002 6800 0050 00000001 6b");  // padding; host "h", port 80, key "k"
  EXPECT_EQ(read_iiop_profile(hex("00 0100") + rest, &profile, nullptr), ProfileRead::Ok);  // big-endian, 1.0
  for (const char* version : {"00 0000", "00 0200", "00 0300"})
    EXPECT_EQ(read_iiop_profile(hex(version) + rest, &profile, nullptr), ProfileRead::UnknownVersion)
        << version;
}

TEST_F(References, RefusalsSayWhy) {
  ASSERT_EQ(load_impl_repository(Scratch().write("names", "# names\n  known # one\n\n\tother\r\n")), "");
  Outcome ev;
  const auto refused = [&](const char* impl, const char* intf = "", std::size_t length = 0) {
    const bool made = !!create(std::string(length, 'x'), intf, impl, ev);
    return made ? "" : ev.name();
  };
  for (const char* impl : {"known", "other", "IDL:the broker's own:1.0"})
    EXPECT_EQ(refused(impl), "") << impl;
  for (const char* impl : {"unknown", "# names"}) EXPECT_EQ(refused(impl), "NO_IMPLEMENT") << impl;
  EXPECT_EQ(refused("known", nullptr), "BAD_PARAM");
  EXPECT_EQ(refused("known", "", 65536), "BAD_PARAM");
  EXPECT_EQ(CORBA_Repository_lookup_id(nullptr, "IDL:none:1.0", ev), nullptr);
  EXPECT_EQ(ev.name(), "INTF_REPOS");
  EXPECT_NE(load_impl_repository("/no/such/file"), "");
  EXPECT_FALSE(is_known_impl("unknown"));  // the failed load changed nothing
}

TEST_F(References, BindingHappensOnce) {
  Outcome ev;
  const Handle a = create("a"), same = create("a");
  const auto bind = [&](const Handle& h) {
    CORBA_ORB_bind_object2(nullptr, h.get(), nullptr, ev);
    return ev.name();
  };
  EXPECT_EQ(bind(a), "");
  EXPECT_EQ(bind(same), "BAD_INV_ORDER");
  EXPECT_EQ(bind(from_text("corbaloc:iiop:elsewhere/key")), "INV_OBJREF");
  EXPECT_EQ(bind({}), "BAD_PARAM");
  for (int i = 0; i < 2; ++i) CORBA_ORB_unbind_object2(nullptr, same.get(), nullptr, ev);
  EXPECT_EQ(bind(a), "");
  set_binding_open(false);
  EXPECT_EQ(ZR_bound_objects(), 0u);
  EXPECT_EQ(bind(a), "BAD_INV_ORDER");
}

const std::string golden_reference =
    hex("06000000 49444c3a58000000 02000000"            // type id "IDL:X", padding; two profiles:
        "00000000 36000000 00010200 000000026800 0050"  // IIOP, 54 octets: big-endian, 1.2, host "h", port 80
        "00000003 6b657900 00000002"                    // key "key", padding; two components:
        "00000003 0000000c 01000000 02000000 6200 5100"  // another address, little-endian: host "b", port 81
        "00000063 00000002 aabb 0000"                    // an unknown component of 2 octets; padding
        "4d000000 03000000 010203");                     // an unknown profile of 3 octets

std::string addresses_of(const Handle& h) {
  std::string text = h ? "" : "nil";
  for (const IiopProfile& p : h ? h->iiop() : std::vector<IiopProfile>())
    text += "1." + std::to_string(p.minor) + " " + p.host + " " + std::to_string(p.port) + " " + p.key + ";";
  return text;
}

TEST_F(References, ForeignOnesAreWrittenBackAsTheyCame) {
  Handle read;
  ASSERT_TRUE(read_reference(Decoding(golden_reference, true), &read));
  ASSERT_TRUE(read);
  EXPECT_FALSE(read->is_local());
  EXPECT_EQ(addresses_of(read), "1.2 h 80 key;1.2 b 81 key;");
  Outcome ev;
  EXPECT_EQ(CORBA_BOA_get_id(nullptr, read.get(), ev), nullptr);
  EXPECT_EQ(ev.name(), "INV_OBJREF");
  EXPECT_TRUE(!native_little || octets_of(read) == golden_reference);
}

TEST_F(References, CutAndDamagedOctetsAreRefusedAndMoveNothing) {
  std::vector<std::string> bad;
  for (std::size_t n = 0; n < golden_reference.size(); ++n) bad.push_back(golden_reference.substr(0, n));
  // counts of profiles and components; lengths of profile, key and component; byte order; the NUL of the host
  const std::pair<std::size_t, char> damages[] = {{15, 0x7f}, {44, 0x7f}, {36, 0x7f}, {73, 0x7f},
                                                  {20, 0x35}, {24, 2},    {33, 1}};
  for (const auto& [at, value] : damages) {
    bad.push_back(golden_reference);
    bad.back()[at] = value;
  }
  int target = 0;
  for (const std::string& octets : bad) {
    Decoding in(octets, true);
    void* handle = &target;
    EXPECT_FALSE(OM_cdr_object(in, &handle)) << testing::PrintToString(octets);
    EXPECT_EQ(handle, &target);
    EXPECT_EQ(in.left(), octets.size());
  }
}

TEST_F(References, TextsAreRead) {
  const std::string key = "/k%2fey", nil = "IOR:00000000000000010000000000000000", at = "corbaloc:iiop:";
  const std::pair<std::string, std::string> cases[] = {
      {nil, "nil"},
      {"ior:01000000010000000000000000000000", "nil"},
      {"corbaloc::host/%00", std::string("1.0 host 2809 \0;", 16)},
      {at + "1.2@[fe80::1]:80,iiop:1.1@b" + key, "1.2 fe80::1 80 k/ey;1.1 b 2809 k/ey;"},
  };
  for (const auto& [text, wanted] : cases) {
    const Handle read = from_text(text);
    EXPECT_EQ(addresses_of(read), wanted) << text;
    EXPECT_TRUE(CORBA_object_is_equivalent(read.get(), from_text(text_of(read)).get())) << text;
  }
  for (const std::string& text :
       {nil + "00", nil.substr(0, 34), nil.substr(0, 35), nil.substr(0, 35) + "g", std::string(), at + "host",
        at + "host/", at + "host/a%2", at + "host/a b", at + "1.3@host" + key, at + "host:0" + key,
        at + "[::1" + key, at + "host," + key, "corbaloc:rir:" + key}) {
    Outcome ev;
    EXPECT_FALSE(from_text(text, ev)) << text;
    EXPECT_EQ(ev.name(), "BAD_PARAM") << text;
  }
}

TEST_F(References, OthersTurnLocalOnlyWithOurKeyAtOurAddress) {
  const std::string text = url_of(create("data")), key = text.substr(text.find('/'));
  const std::pair<std::string, bool> cases[] = {{"corbaloc:iiop:here:4000" + key, true},
                                                {"corbaloc:iiop:other:1,iiop:[::1]:4001" + key, true},
                                                {"corbaloc:iiop:here:4001" + key, false},
                                                {"corbaloc:iiop:there:4000" + key, false},
                                                {"corbaloc:iiop:here:4000" + key + "x", false}};
  for (const auto& [url, local] : cases) EXPECT_EQ(from_text(url)->is_local(), local) << url;
}

TEST_F(References, ForwardsAreFollowedUntilTheyAreTooMany) {
  const Handle from = Reference::make_local("i", "t", "1"), to = Reference::make_local("i", "t", "2");
  for (int i = 0; i < 3 * ZR_FORWARD_LIMIT; ++i) {
    EXPECT_TRUE(from->set_forward(to));
    if (i < 2 * ZR_FORWARD_LIMIT) from->answered();
  }
  EXPECT_EQ(from->forward().get(), to.get());
  EXPECT_FALSE(from->set_forward(to) || from->forward());
  EXPECT_TRUE(from->set_forward(from));  // to itself: no forward, and no ring that keeps itself alive
  EXPECT_FALSE(from->forward());
}

}  // namespace
