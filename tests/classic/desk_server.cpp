// Abstract interfaces, operations with a context, a native type.
#include <mutex>

#include "classic.h"
#include "desk.h"

class Item_impl : public virtual POA_Desk::Item {
 public:
  explicit Item_impl(const char* name) : name_(name) {}
  char* name() override { return CORBA::string_dup(name_.c_str()); }
  char* describe(const char* manner) override {
    return CORBA::string_dup((std::string(manner) + " " + name_).c_str());
  }
  CORBA::Long weight() override { return 7; }

 private:
  const std::string name_;
};

// "name=value " of each.
static std::string told(CORBA::Context_ptr context, const char* pattern) {
  std::string all;
  try {
    CORBA::NVList_ptr found;
    context->get_values("", 0, pattern, found);
    CORBA::NVList_var list = found;
    for (CORBA::ULong i = 0; i < list->count(); ++i) {
      const char* text = nullptr;
      CHECK(*list->item(i)->value() >>= text);
      all += std::string(list->item(i)->name()) + '=' + text + ' ';
    }
  } catch (const CORBA::BAD_CONTEXT&) {
    all += "nothing ";
  }
  return all;
}

class Office_impl : public Closing<POA_Desk::Office> {
 public:
  explicit Office_impl(CORBA::ORB_ptr orb) : Closing(orb), pen_("pen"), lamp_("lamp") {}
  Desk::Named_ptr find(const char* name) override {
    if (std::string(name) == "pen") return pen_._this();
    return std::string(name) == "lamp" ? lamp_._this() : Desk::Named::_nil();
  }
  Desk::Named_ptr swap(Desk::Named_ptr a, Desk::Named_ptr& b, Desk::Named_out c) override {
    c = b;
    b = Desk::Named::_duplicate(a);
    return Desk::Named::_duplicate(a);
  }
  Desk::Things* list(const Desk::Things& first) override {
    Desk::Things_var all = new Desk::Things(first);
    all->length(first.length() + 2);
    all[first.length()] = lamp_._this();
    return all._retn();
  }
  CORBA::Any* boxed(CORBA::AbstractBase_ptr what) override {
    CORBA::Any_var any = new CORBA::Any;
    Desk::Named_var named = Desk::Named::_narrow(what);
    *any.ptr() <<= named.in();
    return any._retn();
  }
  char* greet(const char* who, CORBA::Context_ptr context) override {
    return CORBA::string_dup((std::string(who) + ": " + told(context, "*")).c_str());
  }
  void note(const char* text, CORBA::Context_ptr context) override {
    std::lock_guard<std::mutex> lock(mutex_);
    noted_ = text + (": " + told(context, "user.na*"));
  }
  char* noted() override {
    std::lock_guard<std::mutex> lock(mutex_);
    return CORBA::string_dup(noted_.c_str());
  }

 private:
  Item_impl pen_, lamp_;
  std::mutex mutex_;
  std::string noted_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    PortableServer::POA_var root = root_poa(orb);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    Office_impl servant(orb);
    Desk::Office_var office = servant._this();

    // within the process it is the same
    CORBA::Context_ptr made;
    orb->get_default_context(made);
    CORBA::Context_var context = made;
    CORBA::Any value;
    value <<= "C++";
    context->set_one_value("language", value);
    CORBA::String_var greeting = office->greet("me", context);
    CHECK(std::string(greeting) == "me: language=C++ ");
    Desk::Named_var pen = office->find("pen");
    CORBA::String_var name = pen->name();
    CHECK(std::string(name) == "pen");

    run(orb, office, argv[1]);
    orb->destroy();
  });
}
