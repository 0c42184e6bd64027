// Amounts of money, exceptions that hold structs, oneway calls back to the clients.
#include <mutex>
#include <vector>

#include "auction.h"
#include "classic.h"

class Lot_impl : public virtual POA_Auction::Lot, public virtual PortableServer::RefCountServantBase {
 public:
  explicit Lot_impl(const Auction::Price& least) { best_.amount = least; }

  Auction::Bid* best() override {
    std::lock_guard<std::mutex> lock(mutex_);
    return new Auction::Bid(best_);
  }
  void bid(const Auction::Bid& b, Auction::Bidder_ptr who) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (over_) throw Auction::Over(best_.who);
    if (b.amount <= best_.amount) throw Auction::TooLow(best_);
    if (!CORBA::is_nil(bidder_)) bidder_->outbid(b);
    best_ = b;
    bidder_ = Auction::Bidder::_duplicate(who);
  }
  void close() override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (over_) throw Auction::Over(best_.who);
    over_ = true;
    if (!CORBA::is_nil(bidder_)) bidder_->over(best_);
  }

 private:
  std::mutex mutex_;
  Auction::Bid best_;
  Auction::Bidder_var bidder_;
  bool over_ = false;
};

class House_impl : public virtual POA_Auction::House {
 public:
  explicit House_impl(CORBA::ORB_ptr orb) : orb_(CORBA::ORB::_duplicate(orb)) {}
  Auction::Lot_ptr open(const Auction::Price& least) override {
    if (lots_.size() == MOST) throw Auction::House::NoRoom();
    Lot_impl* lot = new Lot_impl(least);
    lots_.push_back(PortableServer::ServantBase_var(lot));
    return lot->_this();
  }
  void shutdown() override { orb_->shutdown(false); }

 private:
  static const CORBA::UShort MOST = Auction::House::MOST_LOTS;
  CORBA::ORB_var orb_;
  std::vector<PortableServer::ServantBase_var> lots_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    House_impl house(orb);
    Auction::House_var reference = house._this();
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    publish(orb, reference, argv[1]);
    orb->run();
    orb->destroy();
  });
}
