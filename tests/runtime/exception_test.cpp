#include "corba/exception.h"

#include <gtest/gtest.h>

#include <sstream>

#include "corba.h"

namespace {

using CORBA::Environment;

const char* const standard_names =
    "UNKNOWN BAD_PARAM NO_MEMORY IMP_LIMIT COMM_FAILURE INV_OBJREF NO_PERMISSION INTERNAL MARSHAL INITIALIZE "
    "NO_IMPLEMENT BAD_TYPECODE BAD_OPERATION NO_RESOURCES NO_RESPONSE PERSIST_STORE BAD_INV_ORDER TRANSIENT "
    "FREE_MEM INV_IDENT INV_FLAG INTF_REPOS BAD_CONTEXT OBJ_ADAPTER DATA_CONVERSION INV_POLICY "
    "OBJECT_NOT_EXIST CODESET_INCOMPATIBLE REBIND TIMEOUT BAD_QOS TRANSACTION_REQUIRED "
    "TRANSACTION_ROLLEDBACK INVALID_TRANSACTION TRANSACTION_UNAVAILABLE TRANSACTION_MODE INVALID_ACTIVITY "
    "ACTIVITY_COMPLETED ACTIVITY_REQUIRED THREAD_CANCELLED";

TEST(EnvironmentTest, TakesOverSystemExceptionsOfEveryName) {
  std::istringstream names(standard_names);
  for (std::string name; names >> name;) {
    SCOPED_TRACE(name);
    const std::string internal = "IDL:CORBA/StExcep/" + name + ":1.0";
    CORBA_Environment record{};
    CORBA_BOA_set_standard_exception(&record, ("IDL:omg.org/CORBA/" + name + ":1.0").c_str(), 7,
                                     CORBA_COMPLETED_MAYBE);
    Environment ev;
    ev.set_ref(&record);
    EXPECT_EQ(record._major, CORBA_NO_EXCEPTION);
    try {
      CORBA::raise_environment(ev);
    } catch (const CORBA::SystemException& e) {
      EXPECT_EQ(e.id(), internal);
      EXPECT_EQ(e._name(), name);
      EXPECT_EQ(e._rep_id(), "IDL:omg.org/CORBA/" + name + ":1.0");
      EXPECT_EQ(e.minor(), 7u);
      EXPECT_EQ(e.completed(), CORBA::COMPLETED_MAYBE);
      EXPECT_NE(&e, ev.exception());
    }
  }
}

TEST(EnvironmentTest, TakesOverUserExceptionsAndForwards) {
  CORBA_Environment record{};
  ZR_set_user_exception(&record, "IDL:a/B:1.0");
  Environment ev;
  ev.set_ref(&record);
  EXPECT_THROW(CORBA::raise_environment(ev), CORBA::UserException);

  record._major = CORBA_LOCATION_FORWARD;
  ev.set_ref(&record);
  EXPECT_EQ(ev._evp->_major, CORBA_LOCATION_FORWARD);
  EXPECT_EQ(ev.exception(), nullptr);
  record._major = CORBA_SYSTEM_EXCEPTION;
  record._id = "IDL:a/NotStandard:1.0";
  record._completed = 99;
  ev.set_ref(&record);
  ASSERT_NE(CORBA::UNKNOWN::_narrow(ev.exception()), nullptr);
  EXPECT_EQ(CORBA::SystemException::_narrow(ev.exception())->completed(), CORBA::COMPLETED_MAYBE);
  ev.clear();
  EXPECT_THROW(CORBA::raise_environment(ev), CORBA::UNKNOWN);
}

TEST(EnvironmentTest, FillsItsRecordFromTheExceptionItOwns) {
  Environment ev;
  auto* first = new CORBA::OBJ_ADAPTER(0x4B510302, CORBA::COMPLETED_YES);
  for (int i = 0; i < 2; ++i) {  // the second time it is kept, and the record is filled again
    ev.exception(first);
    EXPECT_EQ(ev.exception(), first);
    EXPECT_EQ(ev._evp->_major, CORBA_SYSTEM_EXCEPTION);
    EXPECT_EQ(ev._evp->_minor, 0x4B510302u);
    ev._evp->_major = CORBA_NO_EXCEPTION;
  }
  EXPECT_EQ(CORBA::TIMEOUT::_narrow(ev.exception()), nullptr);
  ev.exception(new CORBA::Exception(CORBA::ORB::InvalidName()));  // a copy of the base class alone
  EXPECT_EQ(ev._evp->_major, CORBA_USER_EXCEPTION);
  EXPECT_STREQ(CORBA_exception_id(ev._evp), CORBA::ORB::InvalidName::repository_id);
}

TEST(ExceptionTest, TellsItsNamesAndPrintsItself) {
  const struct {
    std::unique_ptr<CORBA::Exception> exception;
    std::string id, public_id, name, printed;
  } rows[] = {
      {std::make_unique<CORBA::TRANSIENT>(CORBA::OMGVMCID | 1, CORBA::COMPLETED_MAYBE),
       "IDL:CORBA/StExcep/TRANSIENT:1.0", "IDL:omg.org/CORBA/TRANSIENT:1.0", "TRANSIENT",
       "IDL:omg.org/CORBA/TRANSIENT:1.0 (minor code 0x4f4d0001, completed MAYBE)"},
      {std::make_unique<CORBA::ORB::InvalidName>(), CORBA::ORB::InvalidName::repository_id,
       CORBA::ORB::InvalidName::repository_id, "InvalidName", CORBA::ORB::InvalidName::repository_id},
      {std::make_unique<CORBA::Exception>(CORBA::Exception(CORBA::NO_MEMORY())),
       "IDL:CORBA/StExcep/NO_MEMORY:1.0", "IDL:omg.org/CORBA/NO_MEMORY:1.0", "NO_MEMORY",
       "IDL:omg.org/CORBA/NO_MEMORY:1.0"},
      {std::make_unique<CORBA::UserException>(), "", "", "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.printed);
    EXPECT_EQ(row.exception->id(), row.id);
    EXPECT_EQ(row.exception->_rep_id(), row.public_id);
    EXPECT_EQ(static_cast<const std::exception&>(*row.exception).what(), row.public_id);
    EXPECT_EQ(row.exception->_name(), row.name);
    std::ostringstream printed;
    printed << *row.exception;
    EXPECT_EQ(printed.str(), row.printed);
  }
}

TEST(ExceptionTest, IsCastDownToWhatItIs) {
  const CORBA::TRANSIENT transient;
  const CORBA::Exception* const e = &transient;
  EXPECT_EQ(CORBA::TRANSIENT::_downcast(e), &transient);
  EXPECT_EQ(CORBA::SystemException::_downcast(e), &transient);
  EXPECT_EQ(CORBA::TIMEOUT::_downcast(e), nullptr);
  EXPECT_EQ(CORBA::UserException::_downcast(e), nullptr);
  EXPECT_EQ(CORBA::ORB::InvalidName::_downcast(e), nullptr);
  CORBA::ORB::InvalidName invalid;
  CORBA::Exception* const user = &invalid;
  EXPECT_EQ(CORBA::ORB::InvalidName::_downcast(user), user);
  EXPECT_EQ(CORBA::UserException::_downcast(user), user);
  EXPECT_EQ(CORBA::TRANSIENT::_downcast(static_cast<CORBA::Exception*>(nullptr)), nullptr);
}

}  // namespace
