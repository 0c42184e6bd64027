// Object ids: system ids, reference data, text.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <set>

#include "objects.h"

using namespace PortableServer;
using namespace std::literals;

namespace {

std::string generated() {
  const std::unique_ptr<ObjectId> oid(POAInfo::genSystemId());
  return oid ? text_of(*oid) : "";
}

std::string data_of(POA* poa, const ObjectId& oid) {
  unsigned char name_octets[NAME_PART_MAXIMUM], data_octets[REFERENCE_DATA_MAXIMUM];
  CORBA_sequence_octet name{sizeof name_octets, 0, name_octets}, data{sizeof data_octets, 0, data_octets};
  const POAInfoPtr record = record_of(poa);
  EXPECT_TRUE(record->createNameReferenceData(&name));
  EXPECT_TRUE(record->createPOAReferenceData(&data, &name, oid));
  return {reinterpret_cast<char*>(data_octets), data._length};
}

class SystemIds : public AdapterTest {};
class ReferenceDataTest : public ObjectTest {
 protected:
  POA_var child(POA* parent, const std::string& name) {
    return parent->create_POA(name.c_str(), nullptr, {});
  }
};

}  // namespace

// ---- System ids ---------------------------------------------------------------------------------

TEST(SystemIdForm, NoTimeIsGivenOutTwice) {
  char text[UNIQUE_ID_LENGTH + 1];
  print_unique_id(text, 0x1A2B, {1234567890, 5});
  EXPECT_STREQ(text, "P00001a2bT499602d2.00000005C01234567");
  const struct {
    SystemIdTime last, now, next;
  } rows[] = {
      {{100, 7}, {100, 8}, {100, 8}},      // the clock has moved
      {{100, 999}, {101, 0}, {101, 0}},    // into the next second
      {{100, 7}, {100, 7}, {100, 8}},      // within the same millisecond
      {{100, 9}, {100, 7}, {100, 10}},     // still ahead of the clock
      {{100, 999}, {100, 999}, {101, 0}},  // carry
      {{101, 3}, {100, 999}, {101, 4}},    // the clock was set back
  };
  for (const auto& row : rows) {
    const SystemIdTime got = next_system_id_time(row.last, row.now);
    EXPECT_TRUE(got.seconds == row.next.seconds && got.millisecond == row.next.millisecond)
        << row.last.seconds << "." << row.last.millisecond << " gave " << got.seconds << "."
        << got.millisecond;
  }
}

TEST_F(SystemIds, TheVariableChoosesTheForm) {
  char process[10];
  std::snprintf(process, sizeof process, "P%08x", static_cast<unsigned>(getpid()));
  const struct {
    const char* value;
    bool unique;
  } rows[] = {{nullptr, true}, {"TRUE", true}, {"true", false}, {"", false}};
  for (const auto& row : rows) {
    const ScopedVariable variable("POA_UNIQUE_SYSID", row.value);
    const CORBA::ULong before = POAInfo::system_id;
    const std::string oid = generated();
    SCOPED_TRACE(row.value ? row.value : "(unset)");
    EXPECT_EQ(POAInfo::system_id, before + 1);
    if (row.unique) {
      EXPECT_THAT(oid, testing::MatchesRegex(process + "T[0-9a-f]{8}\\.[0-9a-f]{8}C01234567"s));
    } else {
      std::string counter;  // little endian
      for (int bits = 0; bits < 32; bits += 8) counter += static_cast<char>(before >> bits);
      EXPECT_EQ(oid, counter);
    }
  }
}

TEST_F(SystemIds, ManyThreadsGetDifferentIds) {
  for (const char* form : {"TRUE", "FALSE"}) {
    const ScopedVariable variable("POA_UNIQUE_SYSID", form);
    std::mutex mutex;
    std::set<std::string> seen;
    run_together(4, [&](std::size_t) {
      for (int i = 0; i < 500; ++i) {
        const std::string oid = generated();
        std::lock_guard lock(mutex);
        seen.insert(oid);
      }
    });
    EXPECT_EQ(seen.size(), 2000u);
  }
}

// ---- Reference data -----------------------------------------------------------------------------

TEST_F(ReferenceDataTest, GoldenOctetsAndEveryTruncation) {
  const POA_var ab = child(root, "AB"), outer = child(root, "A"), inner = child(outer, "B");
  const POA_var user = root->create_POA("user", nullptr, policies(root, USER_ID));
  const struct {
    POA* poa;
    std::string oid, data, path;
    CORBA::ULong tag;
  } rows[] = {
      // N, the name part, padding; the policy; M, the object id
      {ab, "\1\2\3\4", "\3\0\0\0AB\0\0\7\0\0\0\4\0\0\0\1\2\3\4"s, "AB", 7},
      {root, "", "\1\0\0\0\0\0\0\0\7\0\0\0\0\0\0\0"s, "", 7},
      {inner, "\377", "\4\0\0\0B\377A\0\7\0\0\0\1\0\0\0\377"s, "B\377A", 7},
      {user, "id", "\5\0\0\0user\0\0\0\0\6\0\0\0\2\0\0\0id"s, "user", 6},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(data_of(row.poa, oid_of(row.oid)), row.data);
    for (CORBA::ULong length = 0; length <= row.data.size(); ++length) {
      std::vector<unsigned char> octets(row.data.begin(), row.data.begin() + length);
      CORBA_sequence_octet data{length, length, octets.data()};
      ReferenceDataView view;
      ObjectId* oid = nullptr;
      if (length < row.data.size()) {
        EXPECT_FALSE(view.parse(data._buffer, length)) << length;
        expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { POAInfo::GetOid(&data, oid, ev); });
        continue;
      }
      ASSERT_TRUE(view.parse(data._buffer, length));
      EXPECT_EQ(view.path(), row.path);
      EXPECT_EQ(view.id_assignment, row.tag);
      EXPECT_EQ(view.object_id, row.oid);
      POAInfo::GetOid(&data, oid, env);
      EXPECT_EQ(text_of(*ObjectId_var(oid)), row.oid);
    }
  }
  for (POA* poa : {ab.in(), outer.in(), user.in()}) poa->destroy(false, false);
}

TEST(ReferenceDataLengths, ClaimsBeyondTheDataAreRefused) {
  for (const std::string& data :
       {"\xFF\xFF\xFF\xFF\101B\0\0\7\0\0\0\0\0\0\0"s, "\xFC\xFF\xFF\xFF\101B\0\0\7\0\0\0\0\0\0\0"s,
        "\xFB\xFF\xFF\x7F\101B\0\0\7\0\0\0\0\0\0\0"s, "\1\0\0\0\0\0\0\0\7\0\0\0\xFF\xFF\xFF\xFF"s,
        "\1\0\0\0\0\0\0\0\7\0\0\0\xF0\xFF\xFF\377ABCDEFGH"s, "\1\0\0\0\0\0\0\0\7\0\0\0\2\0\0\0x"s}) {
    ReferenceDataView view;
    const auto* octets = reinterpret_cast<const unsigned char*>(data.data());
    EXPECT_FALSE(view.parse(octets, static_cast<CORBA::ULong>(data.size()))) << testing::PrintToString(data);
  }
}

TEST_F(ReferenceDataTest, LongestNamesAndIds) {
  const std::string x511(511, 'x'), x512(512, 'y');
  const POA_var outer = child(root, x511), fits = child(outer, x511), too_long = child(outer, x512);
  const POA_var ab = child(root, "AB");
  const struct {
    POA* poa;
    std::size_t oid_length;
    const char *intf, *refused;
  } rows[] = {
      {fits, 1020, "IDL:x:1.0", nullptr},
      {ab, 2040, "IDL:x:1.0", nullptr},
      {too_long, 1, "IDL:x:1.0", "POAInfo::POACreateReference [createNameReferenceData.]"},
      {ab, 2041, "IDL:x:1.0", "POAInfo::POACreateReference [createPOAReferenceData.]"},
      {fits, 1021, "IDL:x:1.0", "POAInfo::POACreateReference [createPOAReferenceData.]"},
      {ab, 1, nullptr, "POAInfo::POACreateReference [obj is nil.]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const ObjectId oid = oid_of(std::string(row.oid_length, '\x80'));
    const POAInfoPtr record = record_of(row.poa);
    if (!row.refused) {
      const CORBA::Object_var reference(record->POACreateReference(oid, row.intf, env));
      EXPECT_EQ(text_of(*ObjectId_var(record->reference_to_id(reference.in(), env))), text_of(oid));
      continue;
    }
    TraceRecorder trace;
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { record->POACreateReference(oid, row.intf, ev); });
    EXPECT_TRUE(trace.has(row.refused));
  }
  for (POA* poa : {outer.in(), ab.in()}) poa->destroy(false, false);
}

TEST_F(ReferenceDataTest, TheImplementationNameOfAReference) {
  const POAInfoPtr record = record_of(top);
  for (const char* variable : {static_cast<const char*>(nullptr), "the-server"}) {
    const ScopedVariable implid("ZR_IMPLID", variable);
    const CORBA::Object_var reference(record->POACreateReference(a, "IDL:test/X:1.0", env));
    EXPECT_STREQ(ZR_object_get_ImplID(reference->get_ref(), 0, env._evp),
                 variable ? variable : record->adapter_name);
    EXPECT_STREQ(ZR_object_get_IntfID(reference->get_ref(), 0, env._evp), "IDL:test/X:1.0");
  }
}

// ---- Copies and text ----------------------------------------------------------------------------

TEST(ObjectIds, CopiesAreDeepAndNoLargerThanNeeded) {
  CORBA::Environment env;
  EXPECT_EQ(ObjectId_duplicate(nullptr, env), nullptr);
  EXPECT_EQ(POAInfo::PortableServer_ObjectId_duplicate(nullptr, env), nullptr);
  ObjectId oid(8);
  oid.length(2);
  oid[0] = 'x';
  const ObjectId_var copy(POAInfo::PortableServer_ObjectId_duplicate(&oid, env));
  oid[0] = 'y';
  EXPECT_EQ(text_of(copy.in()), "x\0"s);
  EXPECT_EQ(copy.in().maximum(), 2u);
}

TEST(ObjectIds, TextAndBack) {
  std::string printable;
  for (char c = 0x20; c < 0x7F; ++c) printable += c;
  for (const std::string& text : {""s, printable}) {
    const CORBA::String_var narrow(ObjectId_to_string(oid_of(text)));
    EXPECT_EQ(narrow.in(), text);
    EXPECT_EQ(text_of(ObjectId_var(string_to_ObjectId(narrow.in())).in()), text);
    const std::unique_ptr<CORBA::WChar, void (*)(CORBA::WChar*)> wide(ObjectId_to_wstring(oid_of(text)),
                                                                      CORBA::wstring_free);
    EXPECT_EQ(std::u16string_view(wide.get()), std::u16string(text.begin(), text.end()));
    EXPECT_EQ(text_of(ObjectId_var(wstring_to_ObjectId(wide.get())).in()), text);
  }
}

TEST(ObjectIds, TextOutOfRange) {
  const auto minor_of = [](auto&& call) -> CORBA::ULong {
    try {
      call();
    } catch (const CORBA::BAD_PARAM& e) {
      return e.minor();
    }
    return 0;
  };
  for (const std::string_view octets : {"a\x7F"sv, "\x1F"sv, "\x80"sv, "\0"sv}) {
    EXPECT_EQ(minor_of([&] { ObjectId_to_string(oid_of(octets)); }), 0x4B510000u);
    EXPECT_EQ(minor_of([&] { ObjectId_to_wstring(oid_of(octets)); }), 0x4B510000u);
  }
  for (const char* text : {"a\x7F", "\xC3\xA4"})
    EXPECT_EQ(minor_of([&] { string_to_ObjectId(text); }), 0x4B510000u);
  for (const CORBA::WChar* text : {u"a\x0161", u"\x0141"})
    EXPECT_EQ(minor_of([&] { wstring_to_ObjectId(text); }), 0x4B510000u);
  EXPECT_EQ(minor_of([] { string_to_ObjectId(nullptr); }), 0x4B510007u);
  EXPECT_EQ(minor_of([] { wstring_to_ObjectId(nullptr); }), 0x4B510007u);
}
