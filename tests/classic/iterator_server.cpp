// A long list: the first items at once, the rest by an iterator, an object that its client destroys.
#include <mutex>
#include <vector>

#include "classic.h"
#include "iterator.h"

static CORBA::ORB_var orb;
static PortableServer::POA_var poa;

class Iterator_impl : public virtual POA_Catalogue::Iterator,
                      public virtual PortableServer::RefCountServantBase {
 public:
  Iterator_impl(const Catalogue::Items& items, CORBA::ULong at) : items_(items), at_(at) {}
  CORBA::Boolean next(Catalogue::Item_out one) override {
    Catalogue::Item_var item = new Catalogue::Item;
    const bool more = at_ < items_.length();
    if (more) item = items_[at_++];
    one = item._retn();
    return more;
  }
  CORBA::Boolean next_n(CORBA::ULong how_many, Catalogue::Items_out some) override {
    if (how_many == 0) throw CORBA::BAD_PARAM();
    some = new Catalogue::Items;
    while (some->length() < how_many && at_ < items_.length()) {
      some->length(some->length() + 1);
      some[some->length() - 1] = items_[at_++];
    }
    return some->length() > 0;
  }
  void destroy() override;

 private:
  Catalogue::Items items_;
  CORBA::ULong at_;
};

class List_impl : public virtual POA_Catalogue::List {
 public:
  void add(const Catalogue::Item& one) override {
    std::lock_guard<std::mutex> lock(mutex_);
    items_.length(items_.length() + 1);
    items_[items_.length() - 1] = one;
  }
  void all(CORBA::ULong how_many, Catalogue::Items_out first, Catalogue::Iterator_out rest) override {
    std::lock_guard<std::mutex> lock(mutex_);
    const CORBA::ULong now = how_many < items_.length() ? how_many : items_.length();
    Catalogue::Items_var some = new Catalogue::Items(now);
    some->length(now);
    for (CORBA::ULong i = 0; i < now; ++i) some[i] = items_[i];
    first = some._retn();
    rest = Catalogue::Iterator::_nil();
    if (now == items_.length()) return;
    servants_.push_back(PortableServer::ServantBase_var(new Iterator_impl(items_, now)));
    PortableServer::ObjectId_var id = poa->activate_object(servants_.back().in());
    CORBA::Object_var object = poa->id_to_reference(id);
    rest = Catalogue::Iterator::_narrow(object);
    ++iterators_;
  }
  CORBA::Long iterators() override { return iterators_; }
  void gone() { --iterators_; }
  void shutdown() override { orb->shutdown(false); }

 private:
  std::mutex mutex_;
  Catalogue::Items items_;
  std::vector<PortableServer::ServantBase_var> servants_;
  CORBA::Long iterators_ = 0;
};

static List_impl* list;

void Iterator_impl::destroy() {
  PortableServer::ObjectId_var id = poa->servant_to_id(this);
  poa->deactivate_object(id);
  list->gone();
}

int main(int argc, char* argv[]) {
  return guarded([&] {
    orb = CORBA::ORB_init(argc, argv);
    poa = root_poa(orb);
    List_impl servant;
    list = &servant;
    Catalogue::List_var reference = servant._this();
    run(orb, reference, argv[1]);
    orb->destroy();
  });
}
