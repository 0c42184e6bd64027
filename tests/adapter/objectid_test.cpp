// Object ids: system ids, reference data, text.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <set>

#include "objects.h"
#include "objects/referencedata.h"

using namespace PortableServer;
using namespace std::literals;

namespace {

class Ids : public ObjectTest {};

std::string data_of(POA* poa, const ObjectId& oid) {
  unsigned char name_octets[NAME_PART_MAXIMUM], data_octets[REFERENCE_DATA_MAXIMUM];
  CORBA_sequence_octet name{sizeof name_octets, 0, name_octets}, data{sizeof data_octets, 0, data_octets};
  const POAInfoPtr record = record_of(poa);
  EXPECT_TRUE(record->createNameReferenceData(&name));
  EXPECT_TRUE(createPOAReferenceData(&data, &name, record->policies.id_assignment, oid));
  return {reinterpret_cast<char*>(data_octets), data._length};
}

bool parses(ReferenceDataView& view, const std::string& data) {
  const std::vector<unsigned char> exact(data.begin(), data.end());
  return view.parse(exact.data(), static_cast<CORBA::ULong>(exact.size()));
}

}  // namespace

TEST_F(Ids, NoTimeIsGivenOutTwice) {
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
    EXPECT_EQ(std::pair(got.seconds, got.millisecond), std::pair(row.next.seconds, row.next.millisecond))
        << "row " << &row - rows;
  }
}

TEST_F(Ids, TheVariableChoosesTheFormAndManyThreadsGetDifferentOnes) {
  char process[10];
  std::snprintf(process, sizeof process, "P%08x", static_cast<unsigned>(getpid()));
  for (const bool unique : {true, false}) {
    if (!unique) ::setenv("POA_UNIQUE_SYSID", "true", 1);  // anything but "TRUE"
    const CORBA::ULong before = next_system_id();
    std::mutex mutex;
    std::set<std::string> seen;
    run_together(4, [&](std::size_t) {
      for (int i = 0; i < 500; ++i) {
        const ObjectId_var oid(genSystemId());
        std::lock_guard lock(mutex);
        seen.insert(text_of(oid.in()));
      }
    });
    ::unsetenv("POA_UNIQUE_SYSID");
    EXPECT_EQ(seen.size(), 2000u);
    if (unique) {
      EXPECT_THAT(seen,
                  testing::Each(testing::MatchesRegex(process + "T[0-9a-f]{8}\\.[0-9a-f]{8}C01234567"s)));
    } else {
      std::string counter;  // little endian
      for (int bits = 0; bits < 32; bits += 8) counter += static_cast<char>(before >> bits);
      EXPECT_EQ(seen.count(counter), 1u);
    }
  }
}

// A thread looks at the environment each time, however it was changed.
TEST_F(Ids, TheVariableMayChangeAtAnyTime) {
  const auto length = [] { return ObjectId_var(genSystemId())->length(); };
  EXPECT_EQ(length(), 36u);
  EXPECT_EQ(length(), 36u);
  ::setenv("POA_UNIQUE_SYSID", "no", 1);
  EXPECT_EQ(length(), 4u);
  ::setenv("POA_UNIQUE_SYSID", "TRUE", 1);
  EXPECT_EQ(length(), 36u);
  static char own[] = "POA_UNIQUE_SYSID=TRUE";  // the environment has the text itself
  ::putenv(own);
  EXPECT_EQ(length(), 36u);
  own[sizeof own - 2] = 'X';
  EXPECT_EQ(length(), 4u);
  ::unsetenv("POA_UNIQUE_SYSID");
  EXPECT_EQ(length(), 36u);
  char** const all = environ;
  char* none_but[] = {own, nullptr};
  environ = none_but;
  const CORBA::ULong elsewhere = length();
  environ = nullptr;
  const CORBA::ULong without = length();
  environ = all;
  EXPECT_EQ(elsewhere, 4u);
  EXPECT_EQ(without, 36u);
}

TEST_F(Ids, AnObjectIsFoundUnderAnIdOfEitherForm) {
  const POAInfoPtr record = make();
  for (const CORBA::ULong length : {36u, 4u}) {
    if (length == 4) ::setenv("POA_UNIQUE_SYSID", "no", 1);
    const ObjectId_var id(record->activate_object(&servant, own_ev));
    ::unsetenv("POA_UNIQUE_SYSID");
    EXPECT_EQ(id->length(), length);
    EXPECT_EQ(ServantBase_var(record->id_to_servant(id.in(), own_ev)).in(), &servant);
    record->deactivate_object(id.in(), own_ev);
  }
}

TEST_F(Ids, AForkedProcessHasIdsOfItsOwn) {
  const ObjectId_var before(genSystemId());
  const pid_t child = ::fork();
  if (child == 0) {
    char process[10];
    std::snprintf(process, sizeof process, "P%08x", static_cast<unsigned>(getpid()));
    const ObjectId_var oid(genSystemId());
    ::_exit(text_of(oid.in()).starts_with(process) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(Ids, GoldenReferenceDataAndEveryTruncation) {
  const POA_var outer = child(root, "A"), inner = child(outer, "B", policies(root, USER_ID));
  const struct {
    POA* poa;
    std::string oid, data, path;
    CORBA::ULong tag;
  } rows[] = {
      // N, the name part, padding; the policy; M, the object id
      {root, "", "\1\0\0\0\0\0\0\0\7\0\0\0\0\0\0\0"s, "", 7},
      {inner, "\377\1", "\4\0\0\0B\377A\0\6\0\0\0\2\0\0\0\377\1"s, "B\377A", 6},
  };
  ReferenceDataView view;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(data_of(row.poa, oid_of(row.oid)), row.data);
    for (std::size_t length = 0; length < row.data.size(); ++length)
      EXPECT_FALSE(parses(view, row.data.substr(0, length))) << length;
    std::string octets = row.data;
    auto* const first = reinterpret_cast<unsigned char*>(octets.data());
    CORBA_sequence_octet data{0, static_cast<CORBA::ULong>(octets.size()), first};
    ASSERT_TRUE(view.parse(first, data._length));
    EXPECT_EQ(std::tuple(view.path(), view.id_assignment, view.object_id),
              std::tuple(row.path, row.tag, row.oid));
    --data._length;
    ObjectId* oid = nullptr;
    expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { GetOid(&data, oid, ev); });
  }
  for (const std::string& claims_too_much :
       {"\xFF\xFF\xFF\xFF\101B\0\0\7\0\0\0\0\0\0\0"s, "\xFC\xFF\xFF\xFF\101B\0\0\7\0\0\0\0\0\0\0"s,
        "\1\0\0\0\0\0\0\0\7\0\0\0\xFF\xFF\xFF\xFF"s, "\1\0\0\0\0\0\0\0\7\0\0\0\xF0\xFF\xFF\377ABCDEFGH"s})
    EXPECT_FALSE(parses(view, claims_too_much)) << testing::PrintToString(claims_too_much);
  outer->destroy(false, false);
}

TEST_F(Ids, LongestNamesAndIdsInReferences) {
  const std::string x511(511, 'x'), x512(512, 'y');
  const POA_var outer = child(root, x511), fits = child(outer, x511);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { outer->create_POA(x512.c_str(), nullptr, {}, ev); });
  const struct {
    POA* poa;
    std::size_t oid_length;
    const char* refused = nullptr;
  } rows[] = {
      {fits, 1020},
      {root, 2040},
      {root, 2041, "POAInfo::POACreateReference [createPOAReferenceData.]"},
      {fits, 1021, "POAInfo::POACreateReference [createPOAReferenceData.]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const ObjectId oid = oid_of(std::string(row.oid_length, '\x80'));
    const POAInfoPtr record = record_of(row.poa);
    if (row.refused) {
      TraceRecorder trace;
      expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { record->POACreateReference(oid, "IDL:x:1.0", ev); });
      EXPECT_TRUE(trace.has(row.refused));
    } else {
      const CORBA::Object_var reference(record->POACreateReference(oid, "IDL:x:1.0", own_ev));
      EXPECT_EQ(text_of(*ObjectId_var(record->reference_to_id(reference.in(), own_ev))), text_of(oid));
    }
  }
  outer->destroy(false, false);
}

TEST_F(Ids, TextAndBack) {
  std::string printable;
  for (char c = 0x20; c < 0x7F; ++c) printable += c;
  for (const std::string& text : {""s, printable}) {
    const CORBA::String_var narrow(ObjectId_to_string(oid_of(text)));
    EXPECT_EQ(narrow.in(), text);
    EXPECT_EQ(text_of(ObjectId_var(string_to_ObjectId(narrow.in())).in()), text);
    const std::unique_ptr<CORBA::WChar, void (*)(CORBA::WChar*)> wide(ObjectId_to_wstring(oid_of(text)),
                                                                      CORBA::wstring_free);
    EXPECT_EQ(std::wstring_view(wide.get()), std::wstring(text.begin(), text.end()));
    EXPECT_EQ(text_of(ObjectId_var(wstring_to_ObjectId(wide.get())).in()), text);
  }
}

TEST_F(Ids, TextOutOfRange) {
  const auto refused = [](CORBA::ULong minor, auto&& call) {
    try {
      call();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const CORBA::BAD_PARAM& e) {
      EXPECT_EQ(e.minor(), minor);
    }
  };
  for (const std::string_view octets : {"a\x7F"sv, "\x1F"sv, "\x80"sv, "\0"sv}) {
    refused(0x4B510000, [&] { ObjectId_to_string(oid_of(octets)); });
    refused(0x4B510000, [&] { ObjectId_to_wstring(oid_of(octets)); });
  }
  refused(0x4B510000, [] { string_to_ObjectId("a\x7F"); });
  refused(0x4B510000, [] { wstring_to_ObjectId(L"\x0141"); });
  refused(0x4B510007, [] { string_to_ObjectId(nullptr); });
  refused(0x4B510007, [] { wstring_to_ObjectId(nullptr); });
}
