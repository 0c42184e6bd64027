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

const std::string key_octets =
    hex("5a 52 53 56 01"     // magic, version
        "01 00 02 00 03 00"  // lengths of the parts
        "69"                 // implementation name "i"
        "49 44"              // interface id "ID"
        "00 ff 7f"           // reference data
        "82 b7 25 0e");      // check

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
      hex("03 00 00 00 49 44 00 00"  // type id "ID", padding
          "01 00 00 00"              // one profile:
          "00 00 00 00 5c 00 00 00"  // IIOP, 92 octets:
          "01 01 02 00"              //   little-endian, version 1.2, padding
          "02 00 00 00 68 00"        //   host "h"
          "50 00"                    //   port 80
          "15 00 00 00") +           //   key of 21 octets
      key_octets +
      hex("00 00 00"                             //   padding
          "02 00 00 00"                          //   two components:
          "01 00 00 00 14 00 00 00 01 00 00 00"  //     code sets, 20 octets, little-endian:
          "01 00 01 00 00 00 00 00"              //       ISO 8859-1 and no conversions
          "09 01 01 00 00 00 00 00"              //       UTF-16 and no conversions
          "03 00 00 00 0c 00 00 00 01 00 00 00"  //     another address, 12 octets:
          "02 00 00 00 62 00 51 00");            //       host "b", port 81
  const Handle made = create(std::string("\0\xff\x7f", 3), "ID", "i");
  EXPECT_EQ(made->key(), key_octets);
  set_published_endpoints({{"h", 80}, {"b", 81}});
  EXPECT_EQ(octets_of(made), golden);
  set_published_endpoints({});
  Outcome env;
  EXPECT_EQ(CORBA_ORB_object_to_string(nullptr, made.pointer, env), nullptr);  // nobody could reach it
  EXPECT_EQ(env.name(), "BAD_INV_ORDER");
}

struct Refusal {
  const char* what;
  std::function<Handle(CORBA_Environment*)> make;
  const char* exception;
};

TEST_F(References, RefusalsSayWhy) {
  const std::string file = testing::TempDir() + "zrsv_names_" + std::to_string(getpid());
  std::ofstream(file) << "# names\n  known # one\n\n\tother\r\n";
  ASSERT_EQ(load_impl_repository(file), "");
  std::remove(file.c_str());
  const Refusal cases[] = {
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
  for (const Refusal& c : cases) {
    Outcome env;
    const Handle made = c.make(env);
    EXPECT_EQ(env.name(), c.exception) << c.what;
    EXPECT_EQ(made.pointer == nullptr, *c.exception != '\0') << c.what;
  }
  EXPECT_NE(load_impl_repository(file), "");
  EXPECT_FALSE(is_known_impl("unknown"));  // the failed load changed nothing
}

TEST_F(References, RepositoriesHandOutStableDefinitions) {
  Outcome env;
  void* first = KQ_ImplementationRep_lookup_id(nullptr, "one", env);
  for (int i = 0; i < 100; ++i) KQ_ImplementationRep_lookup_id(nullptr, std::to_string(i).c_str(), env);
  EXPECT_EQ(KQ_ImplementationRep_lookup_id(nullptr, "one", env), first);
  EXPECT_EQ(static_cast<ImplDef*>(first)->name, "one");
  ZR_register_interface("IDL:registered:1.0");
  const Handle interface(CORBA_Repository_lookup_id(nullptr, "IDL:registered:1.0", env));
  ASSERT_EQ(env.name(), "");
  EXPECT_TRUE(interface->is_internal());
  EXPECT_EQ(interface->data(), "IDL:registered:1.0");
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
    hex("06 00 00 00 49 44 4c 3a 58 00 00 00"  // type id "IDL:X", padding
        "02 00 00 00"                          // two profiles:
        "00 00 00 00 36 00 00 00"              // IIOP, 54 octets:
        "00 01 02 00"                          //   big-endian, version 1.2, padding
        "00 00 00 02 68 00"                    //   host "h"
        "00 50"                                //   port 80
        "00 00 00 03 6b 65 79 00"              //   key "key", padding
        "00 00 00 02"                          //   two components:
        "00 00 00 03 00 00 00 0c"              //     another address, 12 octets:
        "01 00 00 00 02 00 00 00 62 00 51 00"  //       little-endian, padding, host "b", port 81
        "00 00 00 63 00 00 00 02 aa bb"        //     an unknown one of 2 octets
        "00 00"                                // padding
        "4d 00 00 00 03 00 00 00 01 02 03");   // an unknown profile of 3 octets

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
  damaged(15, 0x7f);  // count of profiles
  damaged(20, 0x35);  // length of the IIOP profile
  damaged(24, 2);     // its byte order
  damaged(33, 0x01);  // the NUL of its host
  damaged(36, 0x7f);  // length of its key
  damaged(44, 0x7f);  // count of its components
  damaged(73, 0x7f);  // length of the unknown component
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
  struct Case {
    std::string text;
    std::string read;  // addresses, "nil" or "refused"
  };
  const Case cases[] = {
      {"IOR:00000000000000010000000000000000", "nil"},
      {"ior:01000000010000000000000000000000", "nil"},
      {"IOR:0000000000000001000000000000000000", "refused"},  // an octet too many
      {"IOR:000000000000000100000000000000", "refused"},      // one too few
      {"IOR:0000000000000001000000000000000", "refused"},     // half an octet
      {"IOR:0000000000000001000000000000000g", "refused"},    // not a digit
      {"IOR:", "refused"},
      {"", "refused"},
      {"corbaloc:iiop:host" + key, "1.0 host 2809"},
      {"corbaloc::host:80" + key, "1.0 host 80"},
      {"corbaloc:iiop:1.2@[fe80::1]:80,iiop:1.1@b" + key, "1.2 fe80::1 80,1.1 b 2809"},
      {"corbaloc:iiop:host", "refused"},              // no key
      {"corbaloc:iiop:host/", "refused"},             // an empty one
      {"corbaloc:iiop:host/a%2", "refused"},          // an escape cut
      {"corbaloc:iiop:host/a b", "refused"},          // a blank
      {"corbaloc:iiop:1.3@host" + key, "refused"},    // a version to come
      {"corbaloc:iiop:host:0" + key, "refused"},      // no port to call
      {"corbaloc:iiop:host:65536" + key, "refused"},  // nor this
      {"corbaloc:iiop:[::1" + key, "refused"},        // bracket open
      {"corbaloc:iiop:::1:80" + key, "refused"},      // brackets missing
      {"corbaloc:iiop:host," + key, "refused"},       // an empty address
      {"corbaloc:rir:" + key, "refused"},             // another protocol
  };
  for (const Case& c : cases) {
    Outcome env;
    const Handle read = from_text(c.text, env);
    const bool refused = env.name() == "BAD_PARAM";
    EXPECT_EQ(refused ? "refused" : addresses_of(read), c.read) << c.text;
    EXPECT_TRUE(refused || CORBA_object_is_equivalent(read.pointer, from_text(text_of(read)).pointer))
        << c.text;
    if (read.pointer) {
      EXPECT_EQ(read->key(), std::string("k\0/ey", 5));
    }
  }
  EXPECT_EQ(text_of(Handle(nullptr)), native_little ? "IOR:01000000010000000000000000000000" : cases[0].text);
}

TEST_F(References, OthersTurnLocalOnlyWithOurKeyAtOurAddress) {
  const Handle made = create("data");
  const std::string text = taken(ZR_object_to_corbaloc(nullptr, made.pointer, nullptr));
  const std::string key = text.substr(text.find('/'));
  struct Case {
    std::string text;
    bool local;
  };
  const Case cases[] = {{"corbaloc:iiop:here:4000" + key, true},
                        {"corbaloc:iiop:other:1,iiop:[::1]:4001" + key, true},
                        {"corbaloc:iiop:here:4001" + key, false},
                        {"corbaloc:iiop:there:4000" + key, false},
                        {"corbaloc:iiop:here:4000" + key + "x", false}};
  for (const Case& c : cases) EXPECT_EQ(from_text(c.text)->is_local(), c.local) << c.text;
}

TEST_F(References, ForwardsAreFollowedUntilTheyAreTooMany) {
  Ref<Reference> from = Reference::make_local("i", "t", "1");
  Ref<Reference> to = Reference::make_local("i", "t", "2");
  EXPECT_FALSE(from->forward());
  for (int i = 0; i < ZR_FORWARD_LIMIT; ++i) EXPECT_TRUE(from->set_forward(to));
  EXPECT_EQ(from->forward().get(), to.get());
  EXPECT_FALSE(from->set_forward(to));
  EXPECT_FALSE(from->forward());
  for (int i = 0; i < 3 * ZR_FORWARD_LIMIT; ++i) {
    EXPECT_TRUE(from->set_forward(to));
    from->answered();
  }
  EXPECT_TRUE(from->set_forward(from));  // to itself: no forward, and no ring that keeps itself alive
  EXPECT_FALSE(from->forward());
}

}  // namespace
