// Oneway operations, a forward declared interface, operations of CORBA::Object.
#include <mutex>

#include "classic.h"
#include "notes.h"

class Pad_impl;

class Reader_impl : public virtual POA_Notes::Reader {
 public:
  explicit Reader_impl(Pad_impl& pad) : pad_(pad) {}
  Notes::Pad_ptr owner() override;
  char* last() override;

 private:
  Pad_impl& pad_;
};

class Pad_impl : public Closing<POA_Notes::Pad> {
 public:
  explicit Pad_impl(CORBA::ORB_ptr orb) : Closing(orb), reader_(*this) {}
  void write(const char* text) override {
    std::lock_guard<std::mutex> lock(mutex_);
    last_ = text;
    ++count_;
  }
  CORBA::ULong count() override {
    std::lock_guard<std::mutex> lock(mutex_);
    return count_;
  }
  Notes::Reader_ptr new_reader() override { return reader_._this(); }
  void drop_reader() override {
    PortableServer::POA_var poa = _default_POA();
    PortableServer::ObjectId_var id = poa->servant_to_id(&reader_);
    poa->deactivate_object(id);
  }
  CORBA::Object_ptr same(CORBA::Object_ptr anything) override { return CORBA::Object::_duplicate(anything); }
  std::string last() {
    std::lock_guard<std::mutex> lock(mutex_);
    return last_;
  }

 private:
  Reader_impl reader_;
  std::mutex mutex_;
  std::string last_;
  CORBA::ULong count_ = 0;
};

Notes::Pad_ptr Reader_impl::owner() { return pad_._this(); }
char* Reader_impl::last() { return CORBA::string_dup(pad_.last().c_str()); }

int main(int argc, char* argv[]) { return serve<Pad_impl>(argc, argv); }
