// The object that calls of every kind are made to, and the handler of their replies.
#pragma once

#include <condition_variable>
#include <mutex>

#include "calls.h"
#include "server.h"

/// What an out parameter gets is made of the in parameters, so that tests see each of them arrive.
class TargetServant : public POA_Calls::Target, public PortableServer::RefCountServantBase {
 public:
  char* name() override { return CORBA::string_dup(name_); }
  void name(const char* value) override { name_ = CORBA::string_dup(value); }
  CORBA::Long size() override { return 7; }
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override { return a + b; }
  void divide(CORBA::Long& dividend, CORBA::Long divisor, CORBA::Long& remainder) override {
    if (divisor == 0) throw CORBA::BAD_PARAM(17, CORBA::COMPLETED_NO);
    remainder = dividend % divisor;
    dividend /= divisor;
  }
  char* texts(const CORBA::WChar* a, char*& b, CORBA::WString_out c) override {
    c = CORBA::wstring_dup(a);
    char* const before = std::exchange(b, CORBA::string_dup("after"));
    return before;
  }
  Calls::Point places(const Calls::Point& a, Calls::Point& b, Calls::Point& c) override {
    c = b;
    b = a;
    return a;
  }
  Calls::Entry* lists(const Calls::List& a, Calls::Entry& b, Calls::List_out c) override {
    c = new Calls::List(a);
    auto* const result = new Calls::Entry(b);
    b = a[0];
    return result;
  }
  Calls::Row_slice* arrays(const Calls::Row a, Calls::Row b, Calls::Row c) override {
    Calls::Row_copy(c, b);
    Calls::Row_copy(b, a);
    return Calls::Row_dup(a);
  }
  Calls::Pair_slice* both(Calls::Pair a, Calls::Pair_out b) override {
    b = Calls::Pair_dup(a);
    return Calls::Pair_dup(a);
  }
  Calls::Target_ptr objects(Calls::Target_ptr a, CORBA::Object_out b, CORBA::Any& c) override {
    b = CORBA::Object::_duplicate(a);
    CORBA::Long value = 0;
    c >>= value;
    c <<= value + 1;
    return Calls::Target::_duplicate(a);
  }
  void refuse(const char* why, CORBA::Long code) override { throw Calls::Refused(why, code); }
  void fail() override { throw CORBA::NO_PERMISSION(23, CORBA::COMPLETED_NO); }
  void note(const char* text) override { noted.set_value(text); }
  void wait() override { released.wait_for(std::chrono::seconds(20)); }

  std::promise<std::string> noted;
  std::promise<void> release;

 private:
  CORBA::String_var name_ = CORBA::string_dup("target");
  std::shared_future<void> released = release.get_future().share();
};

/// Writes down what it hears, and lets others wait for it.
class Handler : public POA_Calls::AMI_TargetHandler, public PortableServer::RefCountServantBase {
 public:
  /// What the next reply said.
  std::string heard() {
    std::unique_lock lock(mutex_);
    if (!said_.wait_for(lock, std::chrono::seconds(20), [&] { return !texts_.empty(); })) return "nothing";
    const std::string text = texts_.front();
    texts_.erase(texts_.begin());
    return text;
  }

  void get_name(const char* value) override { say(value); }
  void set_name() override { say("set"); }
  void get_size(CORBA::Long value) override { say(std::to_string(value)); }
  void add(CORBA::Long sum) override { say(std::to_string(sum)); }
  void divide(CORBA::Long dividend, CORBA::Long remainder) override {
    say(std::to_string(dividend) + " " + std::to_string(remainder));
  }
  void texts(const char* result, const char* b, const CORBA::WChar* c) override {
    say(std::string(result) + b + std::string(c, c + std::char_traits<wchar_t>::length(c)));
  }
  void places(const Calls::Point& result, const Calls::Point& b, const Calls::Point& c) override {
    say(std::to_string(static_cast<int>(result.x * 100 + b.y * 10 + c.x)));
  }
  void lists(const Calls::Entry& result, const Calls::Entry& b, const Calls::List& c) override {
    say(std::string(result.name) + b.name.in() + std::to_string(c.length()));
  }
  void arrays(const Calls::Row result, const Calls::Row b, const Calls::Row c) override {
    say(std::to_string(result[0] * 100 + b[1] * 10 + c[2]));
  }
  void both(const Calls::Pair result, const Calls::Pair a, const Calls::Pair b) override {
    say(std::string(result[0].in()) + a[1].in() + b[0].in());
  }
  void objects(Calls::Target_ptr result, CORBA::Object_ptr b, const CORBA::Any& c) override {
    CORBA::Long value = 0;
    c >>= value;
    say((result->_is_equivalent(b) ? "same " : "other ") + std::to_string(value));
  }
  void refuse() override { say("refuse"); }
  void fail() override { say("fail"); }
  void wait() override { say("waited"); }

  void get_name_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void set_name_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void get_size_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void add_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void divide_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void texts_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void places_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void lists_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void arrays_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void both_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void objects_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void refuse_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void fail_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }
  void wait_excep(Messaging::ExceptionHolder* holder) override { caught(holder); }

 private:
  void say(const std::string& text) {
    const std::lock_guard lock(mutex_);
    texts_.push_back(text);
    said_.notify_all();
  }
  void caught(Messaging::ExceptionHolder* holder) {
    try {
      holder->raise_exception();
    } catch (const Calls::Refused& e) {
      say("Refused " + std::string(e.why.in()) + " " + std::to_string(e.code));
    } catch (const CORBA::SystemException& e) {
      say(e._name() + (" " + std::to_string(e.minor())));
    }
  }

  std::mutex mutex_;
  std::condition_variable said_;
  std::vector<std::string> texts_;
};

/// A Target within the process and over a socket, and a handler.
class CallsTest : public StandardTest {
 protected:
  explicit CallsTest(Serving how = Serving::ByTheOrb) : StandardTest({}, how) {
    here = target->_this();
    orb->register_key("Target", here);
    const CORBA::Object_var object = orb->string_to_object(far("Target").c_str());
    there = Calls::Target::_unchecked_narrow(object);
    hears = handler->_this();
  }
  ~CallsTest() override {
    deactivate(target.in());
    deactivate(handler.in());
  }

  PortableServer::Servant_var<TargetServant> target = new TargetServant;
  PortableServer::Servant_var<Handler> handler = new Handler;
  Calls::Target_var here, there;
  Calls::AMI_TargetHandler_var hears;

 private:
  void deactivate(PortableServer::Servant one) {
    const PortableServer::ObjectId_var id = root->servant_to_id(one);
    root->deactivate_object(id);
  }
};
