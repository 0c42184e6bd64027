// Asynchronous calls: by reply handlers, and by futures.

#include <poll.h>

#include "calls_server.h"

namespace {

using Calls::Target_ptr;

/// What a future ends with, as the handler tells it.
template <class Future>
std::string ended(Future future) {
  if (future.wait_for(std::chrono::seconds(20)) != std::future_status::ready) return "nothing";
  try {
    future.get();
    return "well";
  } catch (const Calls::Refused& e) {
    return "Refused " + std::string(e.why.in()) + " " + std::to_string(e.code);
  } catch (const CORBA::SystemException& e) {
    return e._name() + (" " + std::to_string(e.minor()));
  }
}

class AsyncTest : public CallsTest {
 protected:
  static Calls::List list() {
    Calls::List list;
    list.length(1);
    list[0].name = "first";
    return list;
  }
};

TEST_F(AsyncTest, HandlersHearWhatOperationsGive) {
  for (const Target_ptr object : {here.in(), there.in()}) {
    SCOPED_TRACE(object == here.in() ? "within the process" : "over a socket");
    const auto hears_of = [&](const char* expected) { EXPECT_EQ(handler->heard(), expected); };
    object->sendc_add(hears, 40, 2);
    hears_of("42");
    object->sendc_get_name(hears);
    hears_of("target");
    object->sendc_set_name(hears, "target");
    hears_of("set");
    object->sendc_get_size(hears);
    hears_of("7");
    object->sendc_divide(hears, 17, 5);
    hears_of("3 2");
    object->sendc_texts(hears, L"w", "b");
    hears_of("bafterw");
    object->sendc_places(hears, {1, 2}, {3, 4});
    hears_of("123");
    Calls::Entry entry;
    entry.name = "entry";
    object->sendc_lists(hears, list(), entry);
    hears_of("entryfirst1");
    const Calls::Row a = {1, 2, 3}, b = {4, 5, 6};
    object->sendc_arrays(hears, a, b);
    hears_of("126");
    Calls::Pair pair;
    pair[0] = CORBA::string_dup("x"), pair[1] = CORBA::string_dup("y");
    object->sendc_both(hears, pair);
    hears_of("xyx");
    CORBA::Any any;
    any <<= CORBA::Long(1);
    object->sendc_objects(hears, here, any);
    hears_of("same 2");
  }
}

TEST_F(AsyncTest, FuturesHaveWhatOperationsGive) {
  for (const Target_ptr object : {here.in(), there.in()}) {
    SCOPED_TRACE(object == here.in() ? "within the process" : "over a socket");
    EXPECT_EQ(object->async_add(40, 2).get(), 42);
    EXPECT_STREQ(object->async_get_name().get().in(), "target");
    object->async_set_name("target").get();
    const auto [dividend, remainder] = object->async_divide(17, 5).get();
    EXPECT_EQ(dividend, 3);
    EXPECT_EQ(remainder, 2);
    const auto texts = object->async_texts(L"w", "b").get();
    EXPECT_STREQ(std::get<0>(texts).in(), "b");
    EXPECT_STREQ(std::get<1>(texts).in(), "after");
    EXPECT_EQ(std::wstring(std::get<2>(texts).in()), L"w");
    EXPECT_EQ(std::get<2>(object->async_places({1, 2}, {3, 4}).get()).x, 3);
    Calls::Entry entry;
    entry.name = "entry";
    const auto lists = object->async_lists(list(), entry).get();
    EXPECT_STREQ(std::get<0>(lists)->name, "entry");
    EXPECT_STREQ(std::get<1>(lists)->name, "first");
    EXPECT_EQ(std::get<2>(lists)->length(), 1u);
    const Calls::Row a = {1, 2, 3}, b = {4, 5, 6};
    const auto arrays = object->async_arrays(a, b).get();
    EXPECT_EQ(std::get<0>(arrays)[0] * 100 + std::get<1>(arrays)[1] * 10 + std::get<2>(arrays)[2], 126);
    CORBA::Any any;
    any <<= CORBA::Long(1);
    const auto objects = object->async_objects(here, any).get();
    EXPECT_TRUE(std::get<0>(objects)->_is_equivalent(std::get<1>(objects)));
  }
}

TEST_F(AsyncTest, BothTellWhatFailed) {
  for (const Target_ptr object : {here.in(), there.in()}) {
    SCOPED_TRACE(object == here.in() ? "within the process" : "over a socket");
    object->sendc_refuse(hears, "no", 3);
    EXPECT_EQ(handler->heard(), "Refused no 3");
    object->sendc_fail(hears);
    EXPECT_EQ(handler->heard(), "NO_PERMISSION 23");
    object->sendc_divide(hears, 1, 0);
    EXPECT_EQ(handler->heard(), "BAD_PARAM 17");
    EXPECT_EQ(ended(object->async_refuse("no", 3)), "Refused no 3");
    EXPECT_EQ(ended(object->async_fail()), "NO_PERMISSION 23");
  }
  const Calls::Target_var quick = Calls::Target::_unchecked_narrow(limited(there, 40));
  quick->sendc_wait(hears);
  EXPECT_EQ(handler->heard(), "TIMEOUT 1");
  EXPECT_EQ(ended(quick->async_wait()), "TIMEOUT 1");
  target->release.set_value();
}

// Neither a handler that is nil, nor a call that cannot be sent, nor one that nobody waits for is in the way of others.
TEST_F(AsyncTest, ManyAreUnderWayTogether) {
  std::future<void> slow = there->async_wait();
  there->sendc_add(Calls::AMI_TargetHandler::_nil(), 1, 2);
  std::vector<std::future<CORBA::Long>> sums;
  for (CORBA::Long i = 0; i < 200; ++i) sums.push_back((i % 2 ? there : here)->async_add(i, 1));
  for (CORBA::Long i = 0; i < 200; ++i) EXPECT_EQ(sums[static_cast<std::size_t>(i)].get(), i + 1);
  EXPECT_EQ(slow.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  target->release.set_value();
  slow.get();
  const CORBA::Object_var nobody = orb->string_to_object("corbaloc:iiop:127.0.0.1:1/nobody");
  const Calls::Target_var gone = Calls::Target::_unchecked_narrow(nobody);
  EXPECT_EQ(ended(gone->async_add(1, 2)), "TRANSIENT 2");
  EXPECT_THROW(gone->sendc_add(hears, 1, 2), CORBA::TRANSIENT);
}

TEST_F(AsyncTest, HandlersMayBeAnywhere) {
  orb->register_key("Handler", hears);
  const CORBA::Object_var object = orb->string_to_object(far("Handler").c_str());
  const Calls::AMI_TargetHandler_var elsewhere = Calls::AMI_TargetHandler::_unchecked_narrow(object);
  there->sendc_texts(elsewhere, L"w", "b");
  EXPECT_EQ(handler->heard(), "bafterw");
  here->sendc_refuse(elsewhere, "no", 3);
  EXPECT_EQ(handler->heard(), "Refused no 3");
  there->sendc_fail(elsewhere);
  EXPECT_EQ(handler->heard(), "NO_PERMISSION 23");
}

TEST_F(AsyncTest, HoldersRaiseWhatAListNames) {
  const Messaging::ExceptionHolder_var holder(
      new Messaging::ExceptionHolder(Calls::Refused("no", 3), CORBA::idl::raises<Calls::Refused>));
  const CORBA::ExceptionList_var list(new CORBA::ExceptionList);
  EXPECT_THROW(holder->raise_exception_with_list(list), CORBA::UNKNOWN);
  list->add(Calls::_tc_Refused);
  try {
    holder->raise_exception_with_list(list);
  } catch (const CORBA::UnknownUserException& e) {
    const Calls::Refused* refused = nullptr;
    ASSERT_TRUE(e.exception() >>= refused);
    EXPECT_EQ(refused->code, 3);
  }
  EXPECT_THROW(holder->raise_exception(), Calls::Refused) << "as often as one likes";
}

/// The program runs its requests itself.
class HostedAsyncTest : public CallsTest {
 protected:
  HostedAsyncTest() : CallsTest(Serving::ByTheProgram) {}
};

TEST_F(HostedAsyncTest, HandlersRunWherePerformWorkIsCalled) {
  orb->work_pending();
  EXPECT_EQ(here->async_add(1, 2).get(), 3) << "it runs at once: its thread may be the only one";
  here->sendc_add(hears, 40, 2);
  pollfd wait{orb->work_descriptor(), POLLIN, 0};
  ASSERT_EQ(::poll(&wait, 1, 20000), 1);
  orb->perform_work();
  EXPECT_EQ(handler->heard(), "42");
}

}  // namespace
