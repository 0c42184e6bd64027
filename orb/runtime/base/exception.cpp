#include "corba/exception.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <ostream>

#include "base/raise.h"

namespace CORBA {
namespace {

struct Row {
  std::string_view name;
  SystemException* (*make)(ULong minor, CompletionStatus status);
};

template <Text Name>
constexpr Row row{Name.value, [](ULong minor, CompletionStatus status) -> SystemException* {
                    return new StandardException<Name>(minor, status);
                  }};

constexpr Row standard_exceptions[] = {
    row<"UNKNOWN">,
    row<"BAD_PARAM">,
    row<"NO_MEMORY">,
    row<"IMP_LIMIT">,
    row<"COMM_FAILURE">,
    row<"INV_OBJREF">,
    row<"NO_PERMISSION">,
    row<"INTERNAL">,
    row<"MARSHAL">,
    row<"INITIALIZE">,
    row<"NO_IMPLEMENT">,
    row<"BAD_TYPECODE">,
    row<"BAD_OPERATION">,
    row<"NO_RESOURCES">,
    row<"NO_RESPONSE">,
    row<"PERSIST_STORE">,
    row<"BAD_INV_ORDER">,
    row<"TRANSIENT">,
    row<"FREE_MEM">,
    row<"INV_IDENT">,
    row<"INV_FLAG">,
    row<"INTF_REPOS">,
    row<"BAD_CONTEXT">,
    row<"OBJ_ADAPTER">,
    row<"DATA_CONVERSION">,
    row<"OBJECT_NOT_EXIST">,
    row<"TRANSACTION_REQUIRED">,
    row<"TRANSACTION_ROLLEDBACK">,
    row<"INVALID_TRANSACTION">,
    row<"INV_POLICY">,
    row<"CODESET_INCOMPATIBLE">,
    row<"REBIND">,
    row<"TIMEOUT">,
    row<"TRANSACTION_UNAVAILABLE">,
    row<"TRANSACTION_MODE">,
    row<"BAD_QOS">,
    row<"INVALID_ACTIVITY">,
    row<"ACTIVITY_COMPLETED">,
    row<"ACTIVITY_REQUIRED">,
    row<"THREAD_CANCELLED">,
};

constexpr std::string_view own_prefix = "IDL:CORBA/StExcep/", public_prefix = "IDL:omg.org/CORBA/",
                           version = ":1.0";

const Row* find_row(std::string_view id) {
  for (const std::string_view prefix : {own_prefix, public_prefix}) {
    if (!id.starts_with(prefix) || !id.ends_with(version)) continue;
    if (id.size() < prefix.size() + version.size()) continue;
    const std::string_view name = id.substr(prefix.size(), id.size() - prefix.size() - version.size());
    const auto* found = std::ranges::find(standard_exceptions, name, &Row::name);
    if (found != std::end(standard_exceptions)) return found;
  }
  return nullptr;
}

}  // namespace

std::string_view standard_exception_name(std::string_view id) {
  const Row* found = find_row(id);
  return found ? found->name : std::string_view();
}

std::unique_ptr<SystemException> make_standard_exception(std::string_view id, ULong minor,
                                                         CompletionStatus status) {
  const Row* found = find_row(id);
  return std::unique_ptr<SystemException>(found ? found->make(minor, status) : nullptr);
}

void raise_environment(Environment& ev) {
  if (!ev.exception()) raise<UNKNOWN>(ev, 0U, COMPLETED_MAYBE);
  ev.exception()->_raise();
  __builtin_unreachable();  // instrumented virtual calls lose their [[noreturn]]
}

// Each class's destructor is defined here so that its type information has one home.
UserException::~UserException() = default;
SystemException::~SystemException() = default;

Exception::Exception(const Exception& o) : std::exception(o), of_(o.of_), owned_(o.owned_) {
  if (owned_ == 0) return;
  char* const made = static_cast<char*>(om_new(owned_));
  of_.texts = static_cast<const char*>(std::memcpy(made, o.of_.texts, owned_));
}
Exception& Exception::operator=(const Exception& o) {
  Exception copy(o);
  std::swap(of_, copy.of_);
  std::swap(owned_, copy.owned_);
  return *this;
}
Exception::~Exception() {
  if (owned_ != 0) om_delete(const_cast<char*>(of_.texts));
}

void Exception::id(const char* text) {
  std::string texts = text ? text : "";
  std::size_t rep_id = 0;
  if (const Row* row = find_row(texts); row && !texts.starts_with(public_prefix)) {
    rep_id = texts.size() + 1;
    texts.append(1, '\0').append(public_prefix).append(row->name).append(version);
  }
  const std::string_view public_form = std::string_view(texts).substr(rep_id);
  std::string_view last = public_form;
  if (const auto colon = last.rfind(':'); colon != last.npos && colon > last.find(':')) {
    last = last.substr(0, colon);
  }
  const std::string name(last.substr(last.find_last_of("/:") + 1));
  const std::size_t name_at = texts.size() + 1;
  texts.append(1, '\0').append(name);

  char* const made = static_cast<char*>(om_new(texts.size() + 1));
  std::memcpy(made, texts.c_str(), texts.size() + 1);
  if (owned_ != 0) om_delete(const_cast<char*>(of_.texts));
  of_ = {made, static_cast<ULong>(rep_id), static_cast<ULong>(name_at)};
  owned_ = static_cast<ULong>(texts.size() + 1);
}

std::ostream& operator<<(std::ostream& to, const Exception& exception) {
  to << exception._rep_id();
  const auto* system = dynamic_cast<const SystemException*>(&exception);
  if (!system) return to;
  constexpr const char* completed[] = {"YES", "NO", "MAYBE"};
  char minor[16];
  std::snprintf(minor, sizeof minor, "0x%08x", system->minor());
  return to << " (minor code " << minor << ", completed "
            << completed[std::min<ULong>(system->completed(), COMPLETED_MAYBE)] << ')';
}

Exception* Exception::_clone() const { return new Exception(*this); }
Exception* UserException::_clone() const { return new UserException(*this); }
Exception* SystemException::_clone() const { return new SystemException(*this); }
void Exception::_raise() const { throw Exception(*this); }
void UserException::_raise() const { throw UserException(*this); }
void SystemException::_raise() const { throw SystemException(*this); }

}  // namespace CORBA
