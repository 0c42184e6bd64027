#include "reference.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <vector>

#include "object_key.h"
#include "octets.h"
#include "repository.h"

namespace {

using namespace zrsv;

constexpr bool native_little = std::endian::native == std::endian::little;

/// A handle that is released.
struct Handle {
  explicit Handle(void* p) : pointer(p) {}
  Handle(Handle&& o) noexcept : pointer(std::exchange(o.pointer, nullptr)) {}
  Handle& operator=(Handle&&) = delete;
  ~Handle() { CORBA_object_release(pointer); }
  Reference* operator->() const { return as_reference(pointer); }
  void* pointer;
};

Handle create(const std::string& data, const char* intf = "IDL:T:1.0", const char* impl = "impl",
              CORBA_Environment* env = nullptr) {
  std::string copy = data;
  const CORBA_sequence_octet octets{static_cast<uint32_t>(copy.size()), static_cast<uint32_t>(copy.size()),
                                    reinterpret_cast<unsigned char*>(copy.data())};
  return Handle(ZR_create_object_reference(&octets, intf, impl, env));
}

Handle from_text(const std::string& text, CORBA_Environment* env = nullptr) {
  return Handle(CORBA_ORB_string_to_object(nullptr, text.c_str(), env));
}

std::string taken(char* text) {
  std::string copy = text ? text : "";
  CORBA_free(text);
  return copy;
}

std::string text_of(const Handle& h) {
  return taken(CORBA_ORB_object_to_string(nullptr, h.pointer, nullptr));
}

std::string octets_of(const Handle& h) {
  Encoding out;
  void* handle = h.pointer;
  EXPECT_TRUE(OM_cdr_object(out, &handle));
  return out.octets();
}

/// With two end points of its own, and nothing left over for the next test.
class References : public testing::Test {
 protected:
  void SetUp() override { set_published_endpoints({{"here", 4000}, {"::1", 4001}}); }
  void TearDown() override {
    set_published_endpoints({});
    set_binding_open(true);
    load_impl_repository("");
  }
};

// magic, version; lengths of the parts; implementation "i", interface "ID", data; check
const std::string key_octets = hex("5a52535601 010002000300 69 4944 00ff7f 82b7250e");

TEST(ObjectKey, IsTheExactInverseAndDamageIsFound) {
  EXPECT_EQ(crc32c("123456789"), 0xE3069283u);  // the check value that defines CRC-32C
  EXPECT_EQ(write_object_key({"i", "ID", std::string_view("\0\xff\x7f", 3)}), key_octets);
  const auto parts = read_object_key(key_octets);
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->impl, "i");
  EXPECT_EQ(parts->intf, "ID");
  EXPECT_EQ(parts->data, std::string_view("\0\xff\x7f", 3));
  for (std::size_t n = 0; n < key_octets.size(); ++n) {
    EXPECT_FALSE(read_object_key(key_octets.substr(0, n))) << "cut to " << n;
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = key_octets;
      damaged[n] = static_cast<char>(damaged[n] ^ (1 << bit));
      EXPECT_FALSE(read_object_key(damaged)) << "octet " << n << " bit " << bit;
    }
  }
  EXPECT_FALSE(read_object_key(key_octets + '\0'));
  EXPECT_TRUE(write_object_key({"", "", std::string(65535, 'd')}));
  EXPECT_FALSE(write_object_key({"", "", std::string(65536, 'd')}));
  EXPECT_FALSE(write_object_key({std::string_view("a\0b", 3), "", ""}));
}

TEST_F(References, LocalOnesCarryTheirPartsThroughEveryForm) {
  const std::string data("\0\1\2\xff", 4);
  const Handle made = create(data);
  const Handle by_key(Reference::from_key(made->key()).release());
  const Handle again(Reference::from_key(made->key()).release());
  EXPECT_EQ(by_key.pointer, again.pointer);  // a hot key costs nothing
  const Handle by_text = from_text(text_of(made));
  const Handle by_corbaloc = from_text(taken(ZR_object_to_corbaloc(nullptr, made.pointer, nullptr)));
  Decoding in(octets_of(made), native_little);
  void* decoded = nullptr;
  ASSERT_TRUE(OM_cdr_object(in, &decoded));
  const Handle by_cdr(decoded);
  for (const Handle* h : {&made, &by_key, &by_text, &by_corbaloc, &by_cdr}) {
    ASSERT_NE(h->pointer, nullptr);
    EXPECT_TRUE((*h)->is_local());
    EXPECT_STREQ(ZR_object_get_ImplID(h->pointer, 0, nullptr), "impl");
    EXPECT_STREQ(ZR_object_get_IntfID(h->pointer, 0, nullptr), "IDL:T:1.0");
    EXPECT_STREQ(ZR_object_type_id(h->pointer), "IDL:T:1.0");
    CORBA_sequence_octet* id = CORBA_BOA_get_id(nullptr, h->pointer, nullptr);
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(id->_buffer), id->_length), data);
    CORBA_free(id);
    EXPECT_TRUE(CORBA_object_is_equivalent(made.pointer, h->pointer));
    EXPECT_EQ(CORBA_object_hash(made.pointer, 1000), CORBA_object_hash(h->pointer, 1000));
  }
  EXPECT_FALSE(CORBA_object_is_equivalent(made.pointer, create("other").pointer));
  EXPECT_FALSE(Reference::from_key("not ours"));
}

TEST_F(References, LocalOnesAreWrittenWithEveryEndPoint) {
  if (!native_little) GTEST_SKIP() << "the golden octets are little-endian";
  const std::string golden =
      hex("03000000 49440000 01000000 00000000 5c000000"     // type id "ID"; one profile: IIOP, 92 octets
          "01010200 020000006800 5000 15000000") +           // 1.2, host "h", port 80, key of 21 octets
      key_octets +                                           //
      hex("000000 02000000"                                  // padding; two components:
          "01000000 14000000 01000000"                       // code sets, 20 octets, little-endian:
          "0100010000000000 0901010000000000"                // ISO 8859-1; UTF-16; no conversions
          "03000000 0c000000 01000000 02000000 6200 5100");  // another address: host "b", port 81
  const Handle made = create(std::string("\0\xff\x7f", 3), "ID", "i");
  EXPECT_EQ(made->key(), key_octets);
  set_published_endpoints({{"h", 80}, {"b", 81}});
  EXPECT_EQ(octets_of(made), golden);
  set_published_endpoints({});
  Outcome env;
  EXPECT_EQ(CORBA_ORB_object_to_string(nullptr, made.pointer, env), nullptr);  // nobody could reach it
  EXPECT_EQ(env.name(), "BAD_INV_ORDER");
}

TEST_F(References, RefusalsSayWhy) {
  const std::string file = testing::TempDir() + "zrsv_names_" + std::to_string(getpid());
  std::ofstream(file) << "# names\n  known # one\n\n\tother\r\n";
  ASSERT_EQ(load_impl_repository(file), "");
  std::remove(file.c_str());
  const struct {
    const char* what;
    std::function<Handle(CORBA_Environment*)> make;
    const char* exception;
  } cases[] = {
      {"null data", [](auto* env) { return Handle(ZR_create_object_reference(nullptr, "", "", env)); },
       "BAD_PARAM"},
      {"null interface", [](auto* env) { return create("", nullptr, "known", env); }, "BAD_PARAM"},
      {"long data", [](auto* env) { return create(std::string(65536, 'x'), "", "known", env); }, "BAD_PARAM"},
      {"name not listed", [](auto* env) { return create("", "", "unknown", env); }, "NO_IMPLEMENT"},
      {"comment is no name", [](auto* env) { return create("", "", "# names", env); }, "NO_IMPLEMENT"},
      {"name listed", [](auto* env) { return create("", "", "known", env); }, ""},
      {"name with a carriage return", [](auto* env) { return create("", "", "other", env); }, ""},
      {"the broker's own", [](auto* env) { return create("", "", "IDL:x:1.0", env); }, ""},
      {"interface not linked in",
       [](auto* env) { return Handle(CORBA_Repository_lookup_id(nullptr, "IDL:none:1.0", env)); },
       "INTF_REPOS"},
  };
  for (const auto& c : cases) {
    Outcome env;
    const Handle made = c.make(env);
    EXPECT_EQ(env.name(), c.exception) << c.what;
    EXPECT_EQ(made.pointer == nullptr, *c.exception != '\0') << c.what;
  }
  EXPECT_NE(load_impl_repository(file), "");
  EXPECT_FALSE(is_known_impl("unknown"));  // the failed load changed nothing
}

TEST_F(References, BindingHappensOnce) {
  Outcome env;
  const Handle a = create("a"), same = create("a"), b = create("b");
  const Handle foreign = from_text("corbaloc:iiop:elsewhere/key");
  const auto bind = [&](const Handle& h) {
    CORBA_ORB_bind_object2(nullptr, h.pointer, nullptr, env);
    return env.name();
  };
  EXPECT_EQ(bind(a), "");
  EXPECT_EQ(bind(same), "BAD_INV_ORDER");
  EXPECT_EQ(bind(b), "");
  EXPECT_EQ(bind(foreign), "INV_OBJREF");
  EXPECT_EQ(bind(Handle(nullptr)), "BAD_PARAM");
  EXPECT_EQ(ZR_bound_objects(), 2u);
  CORBA_ORB_unbind_object2(nullptr, same.pointer, nullptr, env);
  CORBA_ORB_unbind_object2(nullptr, same.pointer, nullptr, env);
  EXPECT_EQ(env.name(), "");
  EXPECT_EQ(ZR_bound_objects(), 1u);
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

TEST_F(References, ForeignOnesAreWrittenBackAsTheyCame) {
  Decoding in(golden_reference, true);
  Ref<Reference> read;
  ASSERT_TRUE(read_reference(in, &read));
  ASSERT_TRUE(read);
  EXPECT_FALSE(read->is_local());
  EXPECT_EQ(read->type_id(), "IDL:X");
  EXPECT_EQ(read->key(), "key");
  ASSERT_EQ(read->iiop().size(), 2u);
  EXPECT_EQ(read->iiop()[0].host + std::to_string(read->iiop()[0].port), "h80");
  EXPECT_EQ(read->iiop()[1].host + std::to_string(read->iiop()[1].port), "b81");
  EXPECT_EQ(read->iiop()[1].key, "key");
  ASSERT_EQ(read->iiop()[0].components.size(), 2u);
  EXPECT_EQ(read->iiop()[0].components[1].octets, hex("aa bb"));
  Outcome env;
  EXPECT_EQ(CORBA_BOA_get_id(nullptr, read.get(), env), nullptr);
  EXPECT_EQ(env.name(), "INV_OBJREF");
  EXPECT_STREQ(ZR_object_get_ImplID(read.get(), 0, nullptr), "");
  if (native_little) {
    Encoding out;
    ASSERT_TRUE(write_reference(out, read.get()));
    EXPECT_EQ(out.octets(), golden_reference);
  }
}

TEST_F(References, CutAndDamagedOctetsAreRefusedAndMoveNothing) {
  std::vector<std::string> bad;
  for (std::size_t n = 0; n < golden_reference.size(); ++n) bad.push_back(golden_reference.substr(0, n));
  const auto damaged = [&](std::size_t at, char value) {
    bad.push_back(golden_reference);
    bad.back()[at] = value;
  };
  // counts of profiles and components; lengths of profile, key and component; byte order; the NUL of the host
  for (std::size_t at : {15u, 44u, 36u, 73u}) damaged(at, 0x7f);
  damaged(20, 0x35);
  damaged(24, 2);
  damaged(33, 0x01);
  int target = 0;
  for (const std::string& octets : bad) {
    Decoding in(octets, true);
    void* handle = &target;
    EXPECT_FALSE(OM_cdr_object(in, &handle)) << testing::PrintToString(octets);
    EXPECT_EQ(handle, &target);
    EXPECT_EQ(in.left(), octets.size());
  }
}

std::string addresses_of(const Handle& h) {
  if (!h.pointer) return "nil";
  std::string text;
  for (const IiopProfile& p : h->iiop()) {
    text +=
        (text.empty() ? "1." : ",1.") + std::to_string(p.minor) + " " + p.host + " " + std::to_string(p.port);
  }
  return text;
}

TEST_F(References, TextsAreRead) {
  const std::string key = "/k%00%2fey";
  const struct {
    std::string text, read;  // the second: addresses, or "nil"
  } cases[] = {
      {"IOR:00000000000000010000000000000000", "nil"},
      {"ior:01000000010000000000000000000000", "nil"},
      {"corbaloc:iiop:host" + key, "1.0 host 2809"},
      {"corbaloc::host:80" + key, "1.0 host 80"},
      {"corbaloc:iiop:1.2@[fe80::1]:80,iiop:1.1@b" + key, "1.2 fe80::1 80,1.1 b 2809"},
  };
  for (const auto& c : cases) {
    const Handle read = from_text(c.text);
    EXPECT_EQ(addresses_of(read), c.read) << c.text;
    EXPECT_TRUE(CORBA_object_is_equivalent(read.pointer, from_text(text_of(read)).pointer)) << c.text;
    if (read.pointer) {
      EXPECT_EQ(read->key(), std::string("k\0/ey", 5));
    }
  }
  const std::string nil = cases[0].text, at = "corbaloc:iiop:";
  for (const std::string& text :
       {nil + "00", nil.substr(0, 34), nil.substr(0, 35), nil.substr(0, 35) + "g", nil.substr(0, 4),
        std::string(), at + "host", at + "host/", at + "host/a%2", at + "host/a b", at + "1.3@host" + key,
        at + "host:0" + key, at + "host:65536" + key, at + "[::1" + key, at + "::1:80" + key,
        at + "host," + key, "corbaloc:rir:" + key}) {
    Outcome env;
    EXPECT_EQ(from_text(text, env).pointer, nullptr) << text;
    EXPECT_EQ(env.name(), "BAD_PARAM") << text;
  }
  EXPECT_EQ(text_of(Handle(nullptr)), native_little ? "IOR:01000000010000000000000000000000" : cases[0].text);
}

TEST_F(References, OthersTurnLocalOnlyWithOurKeyAtOurAddress) {
  const Handle made = create("data");
  const std::string text = taken(ZR_object_to_corbaloc(nullptr, made.pointer, nullptr));
  const std::string key = text.substr(text.find('/'));
  const std::pair<std::string, bool> cases[] = {{"corbaloc:iiop:here:4000" + key, true},
                                                {"corbaloc:iiop:other:1,iiop:[::1]:4001" + key, true},
                                                {"corbaloc:iiop:here:4001" + key, false},
                                                {"corbaloc:iiop:there:4000" + key, false},
                                                {"corbaloc:iiop:here:4000" + key + "x", false}};
  for (const auto& [url, local] : cases) EXPECT_EQ(from_text(url)->is_local(), local) << url;
}

TEST_F(References, ForwardsAreFollowedUntilTheyAreTooMany) {
  Ref<Reference> from = Reference::make_local("i", "t", "1"), to = Reference::make_local("i", "t", "2");
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
