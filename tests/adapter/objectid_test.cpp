// Object ids: system ids, reference data, text.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <mutex>
#include <set>

#include "objects.h"
#include "orb_fixture.h"
#include "policy_list.h"
#include "raised.h"
#include "trace_recorder.h"

using namespace PortableServer;

namespace {

std::string text_of(const ObjectId& oid) { return std::string(oid_view(oid)); }

std::string generated() {
  const std::unique_ptr<ObjectId> oid(POAInfo::genSystemId());
  return oid ? text_of(*oid) : "";
}

class SystemIds : public AdapterTest {};
class ReferenceDataTest : public AdapterTest {
 protected:
  std::string data_of(POA* poa, const ObjectId& oid) {
    unsigned char name_octets[NAME_PART_MAXIMUM], data_octets[REFERENCE_DATA_MAXIMUM];
    CORBA_sequence_octet name{sizeof name_octets, 0, name_octets}, data{sizeof data_octets, 0, data_octets};
    const POAInfoPtr record = record_of(poa);
    EXPECT_TRUE(record->createNameReferenceData(&name));
    EXPECT_TRUE(record->createPOAReferenceData(&data, &name, oid));
    return {reinterpret_cast<char*>(data_octets), data._length};
  }
  POA_var child(POA* parent, const std::string& name) {
    return parent->create_POA(name.c_str(), nullptr, {});
  }

  CORBA::Environment env;
};

}  // namespace

// ---- System ids ---------------------------------------------------------------------------------

TEST(SystemIdForm, TheUniqueFormIsPrintedInFourNumbers) {
  char text[UNIQUE_ID_LENGTH + 1];
  print_unique_id(text, 0x1A2B, {1234567890, 5});
  EXPECT_STREQ(text, "P00001a2bT499602d2.00000005C01234567");
}

TEST(SystemIdForm, NoTimeIsGivenOutTwice) {
  const struct {
    SystemIdTime last, now, next;
  } rows[] = {
      {{0, 0}, {100, 7}, {100, 7}},        // the first
      {{100, 7}, {100, 8}, {100, 8}},      // the clock has moved
      {{100, 999}, {101, 0}, {101, 0}},    // into the next second
      {{100, 7}, {100, 7}, {100, 8}},      // within the same millisecond
      {{100, 9}, {100, 7}, {100, 10}},     // still ahead of the clock
      {{100, 999}, {100, 999}, {101, 0}},  // carry
      {{101, 3}, {100, 999}, {101, 4}},    // the clock was set back
  };
  for (const auto& row : rows) {
    const SystemIdTime got = next_system_id_time(row.last, row.now);
    EXPECT_EQ(got.seconds, row.next.seconds) << row.now.seconds << "." << row.now.millisecond;
    EXPECT_EQ(got.millisecond, row.next.millisecond) << row.now.seconds << "." << row.now.millisecond;
  }
}

TEST_F(SystemIds, TheVariableChoosesTheForm) {
  char process[10];
  std::snprintf(process, sizeof process, "P%08x", static_cast<unsigned>(getpid()));
  const struct {
    const char* value;
    bool unique;
  } rows[] = {{nullptr, true}, {"TRUE", true}, {"true", false}, {"FALSE", false}, {"", false}};
  for (const auto& row : rows) {
    const ScopedVariable variable("POA_UNIQUE_SYSID", row.value);
    const CORBA::ULong before = POAInfo::system_id;
    const std::string oid = generated();
    SCOPED_TRACE(row.value ? row.value : "(unset)");
    EXPECT_EQ(POAInfo::system_id, before + 1);
    if (row.unique) {
      EXPECT_THAT(oid, testing::MatchesRegex(std::string(process) + "T[0-9a-f]{8}\\.[0-9a-f]{8}C01234567"));
    } else {
      const std::string counter{static_cast<char>(before), static_cast<char>(before >> 8),
                                static_cast<char>(before >> 16), static_cast<char>(before >> 24)};
      EXPECT_EQ(oid, counter);
    }
  }
}

TEST_F(SystemIds, ManyThreadsGetDifferentIds) {
  for (const char* form : {"TRUE", "FALSE"}) {
    const ScopedVariable variable("POA_UNIQUE_SYSID", form);
    std::mutex mutex;
    std::set<std::string> seen;
    run_together(4, [&](int) {
      for (int i = 0; i < 500; ++i) {
        const std::string oid = generated();
        std::lock_guard lock(mutex);
        EXPECT_TRUE(seen.insert(oid).second) << oid;
      }
    });
    EXPECT_EQ(seen.size(), 2000u);
  }
}

// ---- Reference data -----------------------------------------------------------------------------

TEST_F(ReferenceDataTest, GoldenOctetsAndEveryTruncation) {
  const POA_var ab = child(root, "AB"), abc = child(root, "abc"), a = child(root, "A"), b = child(a, "B");
  const POA_var user = root->create_POA("user", nullptr, policies(root, USER_ID));
  using namespace std::string_literals;
  const struct {
    POA* poa;
    std::string oid, data, path;
    CORBA::ULong tag;
  } rows[] = {
      // N           name part        pad      policy          M               object id
      {ab, "\1\2\3\4",
       "\3\0\0\0"s
       "AB\0"s
       "\0"s
       "\7\0\0\0"s
       "\4\0\0\0"s
       "\1\2\3\4"s,
       "AB", 7},
      {root, "",
       "\1\0\0\0"s
       "\0"s
       "\0\0\0"s
       "\7\0\0\0"s
       "\0\0\0\0"s,
       "", 7},
      {abc, "x",
       "\4\0\0\0"s
       "abc\0"s
       "\7\0\0\0"s
       "\1\0\0\0"s
       "x"s,
       "abc", 7},
      {b, "\xFF",
       "\4\0\0\0"s
       "B\xFF"
       "A\0"s
       "\7\0\0\0"s
       "\1\0\0\0"s
       "\xFF"s,
       "B\xFF"
       "A",
       7},
      {user, "id",
       "\5\0\0\0"s
       "user\0"s
       "\0\0\0"s
       "\6\0\0\0"s
       "\2\0\0\0"s
       "id"s,
       "user", 6},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(data_of(row.poa, oid_of(row.oid)), row.data);
    for (std::size_t length = 0; length <= row.data.size(); ++length) {
      std::vector<unsigned char> octets(row.data.begin(),
                                        row.data.begin() + static_cast<std::ptrdiff_t>(length));
      CORBA_sequence_octet data{static_cast<CORBA::ULong>(length), static_cast<CORBA::ULong>(length),
                                octets.data()};
      ReferenceDataView view;
      ObjectId* oid = nullptr;
      if (length < row.data.size()) {
        EXPECT_FALSE(view.parse(data._buffer, data._length)) << length;
        TraceRecorder trace;
        expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { POAInfo::GetOid(&data, oid, ev); });
        EXPECT_TRUE(
            trace.in_order({"POAInfo::GetOid called...", "POAInfo::GetOid [reference_data is invalid.]"}));
        continue;
      }
      ASSERT_TRUE(view.parse(data._buffer, data._length));
      EXPECT_EQ(view.path(), row.path);
      EXPECT_EQ(view.id_assignment, row.tag);
      EXPECT_EQ(view.object_id, row.oid);
      POAInfo::GetOid(&data, oid, env);
      EXPECT_EQ(text_of(*ObjectId_var(oid)), row.oid);
    }
  }
  for (POA* poa : {ab.in(), abc.in(), a.in(), user.in()}) poa->destroy(false, false);
}

TEST(ReferenceDataLengths, ClaimsBeyondTheDataAreRefused) {
  using namespace std::string_literals;
  for (const std::string& data : {"\xFF\xFF\xFF\xFF"s
                                  "AB\0\0\7\0\0\0\0\0\0\0"s,
                                  "\xFC\xFF\xFF\xFF"s
                                  "AB\0\0\7\0\0\0\0\0\0\0"s,
                                  "\xFB\xFF\xFF\x7F"s
                                  "AB\0\0\7\0\0\0\0\0\0\0"s,
                                  "\1\0\0\0\0\0\0\0\7\0\0\0\xFF\xFF\xFF\xFF"s,
                                  "\1\0\0\0\0\0\0\0\7\0\0\0\xF0\xFF\xFF\xFF"s
                                  "12345678"s,
                                  "\1\0\0\0\0\0\0\0\7\0\0\0\2\0\0\0x"s}) {
    ReferenceDataView view;
    EXPECT_FALSE(view.parse(reinterpret_cast<const unsigned char*>(data.data()),
                            static_cast<CORBA::ULong>(data.size())))
        << testing::PrintToString(data);
  }
}

TEST_F(ReferenceDataTest, LongestNamesAndIds) {
  const std::string x511(511, 'x'), x512(512, 'y'), x1023(1023, 'z'), x1024(1024, 'w');
  const POA_var fits = child(root, x1023), too_long = child(root, x1024), outer = child(root, x511);
  const POA_var inner_fits = child(outer, x511), inner_too_long = child(outer, x512), ab = child(root, "AB");
  const auto refused_name = {"createNameReferenceData() = NULL, throw CORBA::StExcep::BAD_PARAM",
                             "POAInfo::POACreateReference [createNameReferenceData.]",
                             "POAInfo::POACreateReference [other exception.]"};
  const auto refused_data = {"createPOAReferenceData() = NULL, throw CORBA::StExcep::BAD_PARAM",
                             "POAInfo::POACreateReference [createPOAReferenceData.]",
                             "POAInfo::POACreateReference [other exception.]"};
  const auto refused_object = {"obj = NULL, throw CORBA::StExcep::BAD_PARAM",
                               "POAInfo::POACreateReference [obj is nil.]",
                               "POAInfo::POACreateReference [other exception.]"};
  const struct {
    POA* poa;
    std::size_t oid_length;
    const char* intf;
    const std::initializer_list<const char*>* refused;
  } rows[] = {
      {fits, 1, "IDL:x:1.0", nullptr},
      {inner_fits, 1020, "IDL:x:1.0", nullptr},
      {ab, 2040, "IDL:x:1.0", nullptr},
      {too_long, 1, "IDL:x:1.0", &refused_name},
      {ab, 2041, "IDL:x:1.0", &refused_data},
      {inner_too_long, 1, "IDL:x:1.0", &refused_name},
      {inner_fits, 1021, "IDL:x:1.0", &refused_data},
      {ab, 1, nullptr, &refused_object},
  };
  for (const auto& row : rows) {
    const ObjectId oid = oid_of(std::string(row.oid_length, '\x80'));
    const POAInfoPtr record = record_of(row.poa);
    SCOPED_TRACE(std::to_string(std::strlen(record->adapter_name)) + " and " +
                 std::to_string(row.oid_length));
    if (!row.refused) {
      const CORBA::Object_var reference(record->POACreateReference(oid, row.intf, env));
      EXPECT_EQ(text_of(*ObjectId_var(record->reference_to_id(reference.in(), env))), text_of(oid));
      continue;
    }
    TraceRecorder trace;
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { record->POACreateReference(oid, row.intf, ev); });
    EXPECT_TRUE(trace.in_order({row.refused->begin()[0], row.refused->begin()[1], row.refused->begin()[2]}));
  }
  for (POA* poa : {fits.in(), too_long.in(), outer.in(), ab.in()}) poa->destroy(false, false);
}

TEST_F(ReferenceDataTest, TheImplementationNameOfAReference) {
  const POAInfoPtr record = record_of(top);
  for (const char* variable : {static_cast<const char*>(nullptr), "the-server"}) {
    const ScopedVariable implid("ZR_IMPLID", variable);
    const CORBA::Object_var reference(record->POACreateReference(oid_of("x"), "IDL:test/X:1.0", env));
    EXPECT_STREQ(ZR_object_get_ImplID(reference->get_ref(), 0, env._evp),
                 variable ? variable : record->adapter_name);
    EXPECT_STREQ(ZR_object_get_IntfID(reference->get_ref(), 0, env._evp), "IDL:test/X:1.0");
  }
}

TEST_F(ReferenceDataTest, EmptyReferenceData) {
  const CORBA_sequence_octet nothing{};
  CORBA::Object empty, no_handle;
  empty.set_ref(ZR_create_object_reference(&nothing, "IDL:x:1.0", "x", env._evp));
  ASSERT_TRUE(empty.get_ref());
  TraceRecorder trace;
  EXPECT_EQ(checkEmptyReferenceData(nullptr), 1);
  EXPECT_EQ(checkEmptyReferenceData(&no_handle), 1);
  EXPECT_EQ(trace.count_starting("checkEmptyReferenceData len="), 0u);
  EXPECT_EQ(checkEmptyReferenceData(&empty), 1);
  EXPECT_EQ(trace.lines().back(), "checkEmptyReferenceData len=0 return(1)");
  EXPECT_EQ(checkEmptyReferenceData(root), 0);
  EXPECT_TRUE(trace.in_order({"checkEmptyReferenceData len=8 return(0)", "checkEmptyReferenceData end..."}));
}

// ---- Copies and text ----------------------------------------------------------------------------

TEST(ObjectIds, EqualityIsLengthAndContent) {
  const char* texts[] = {"", "a", "b", "ab", "aB"};
  for (const char* a : texts)
    for (const char* b : texts) EXPECT_EQ(oid_is_equivalent(oid_of(a), oid_of(b)), a == b) << a << " " << b;
}

TEST(ObjectIds, CopiesAreDeep) {
  CORBA::Environment env;
  EXPECT_EQ(ObjectId_duplicate(nullptr, env), nullptr);
  EXPECT_EQ(POAInfo::PortableServer_ObjectId_duplicate(nullptr, env), nullptr);
  ObjectId oid(8);
  oid.length(2);
  oid[0] = 'x';
  const ObjectId_var copy(POAInfo::PortableServer_ObjectId_duplicate(&oid, env));
  oid[0] = 'y';
  EXPECT_EQ(text_of(copy.in()), std::string("x\0", 2));
  EXPECT_EQ(copy.in().maximum(), 2u);
}

TEST(ObjectIds, TextAndBack) {
  const std::string printable = [] {
    std::string all;
    for (char c = 0x20; c < 0x7F; ++c) all += c;
    return all;
  }();
  for (const std::string& text : {std::string(), std::string("abc"), printable}) {
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
  using namespace std::string_view_literals;
  const struct {
    std::function<void()> call;
    CORBA::ULong minor;
    const char* trace;
  } rows[] = {
      {[] { ObjectId_to_string(oid_of("a\x7F")); }, 0x4B510000,
       "PortableServer::ObjectId_to_string [Range over.]"},
      {[] { ObjectId_to_string(oid_of("\x1F")); }, 0x4B510000,
       "PortableServer::ObjectId_to_string [Range over.]"},
      {[] { ObjectId_to_string(oid_of("\x80")); }, 0x4B510000,
       "PortableServer::ObjectId_to_string [Range over.]"},
      {[] { ObjectId_to_string(oid_of("\0"sv)); }, 0x4B510000,
       "PortableServer::ObjectId_to_string [Range over.]"},
      {[] { string_to_ObjectId(nullptr); }, 0x4B510007, "PortableServer::string_to_ObjectId [str is null.]"},
      {[] { string_to_ObjectId("a\x7F"); }, 0x4B510000, "PortableServer::string_to_ObjectId [Range over.]"},
      {[] { string_to_ObjectId("\xC3\xA4"); }, 0x4B510000,
       "PortableServer::string_to_ObjectId [Range over.]"},
      {[] { ObjectId_to_wstring(oid_of("\x1F")); }, 0x4B510000,
       "PortableServer::ObjectId_to_wstring [Range over.]"},
      {[] { wstring_to_ObjectId(nullptr); }, 0x4B510007, "PortableServer::string_to_ObjectId [str is null.]"},
      {[] { wstring_to_ObjectId(u"a\x0161"); }, 0x4B510000,
       "PortableServer::wstring_to_ObjectId [Range over.]"},
      {[] { wstring_to_ObjectId(u"\x0141"); }, 0x4B510000,
       "PortableServer::wstring_to_ObjectId [Range over.]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.trace);
    TraceRecorder trace;
    try {
      row.call();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const CORBA::BAD_PARAM& e) {
      EXPECT_EQ(e.minor(), row.minor);
    }
    EXPECT_EQ(trace.lines().back(), row.trace);
  }
}
