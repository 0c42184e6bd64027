#include <utility>

#include "base/raise.h"

namespace CORBA {
namespace {

CompletionStatus completion(std::uint32_t status) {
  return status <= COMPLETED_MAYBE ? static_cast<CompletionStatus>(status) : COMPLETED_MAYBE;
}

/// The C++ exception that a filled record stands for; null for none and for a location forward.
std::unique_ptr<Exception> matching_exception(const CORBA_Environment& record) {
  const char* id = record._id ? record._id : "";
  if (record._major == CORBA_USER_EXCEPTION) {
    auto user = std::make_unique<UserException>();
    user->id(id);
    return user;
  }
  if (record._major != CORBA_SYSTEM_EXCEPTION) return nullptr;
  const CompletionStatus status = completion(record._completed);
  if (auto standard = make_standard_exception(id, record._minor, status)) return standard;
  return std::make_unique<UNKNOWN>(record._minor, status);
}

/// Fills a record from an exception. What is no system exception by type is a user exception: a base-class
/// copy of a system exception has lost its minor code and completion.
void fill_record(CORBA_Environment* record, const Exception& e) {
  if (const auto* system = dynamic_cast<const SystemException*>(&e)) {
    CORBA_BOA_set_standard_exception(record, e.id(), system->minor(), system->completed());
  } else {
    ZR_set_user_exception(record, e.id());
  }
}

}  // namespace

void Environment::exception(Exception* e) {
  if (!e || e != _exp) clear();
  _exp = e;
  if (e) fill_record(_evp, *e);
}

void Environment::set_ref(CORBA_Environment* filled) {
  if (!filled || filled == _evp) return;
  auto e = matching_exception(*filled);
  clear();
  *_evp = std::exchange(*filled, CORBA_Environment{});
  _exp = e.release();
}

void Environment::clear() {
  CORBA_exception_free(_evp);
  delete std::exchange(_exp, nullptr);
}

}  // namespace CORBA
