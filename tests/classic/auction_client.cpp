#include <condition_variable>
#include <mutex>

#include "auction.h"
#include "classic.h"

class Bidder_impl : public virtual POA_Auction::Bidder {
 public:
  void outbid(const Auction::Bid& by) override { note(std::string("outbid by ") + by.who.in()); }
  void over(const Auction::Bid& best) override {
    CORBA::String_var amount = best.amount.to_string();
    note(std::string("over at ") + amount.in());
  }
  bool heard(const std::string& what) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return said_ == what; });
  }

 private:
  void note(const std::string& what) {
    std::lock_guard<std::mutex> lock(mutex_);
    said_ = what;
    changed_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string said_;
};

static Auction::Bid bid_of(const char* who, const char* amount) {
  Auction::Bid bid;
  bid.who = who;
  bid.amount = CORBA::Fixed(amount);
  return bid;
}

int main(int argc, char* argv[]) {
  return visit<Auction::House>(argc, argv, [](CORBA::ORB_ptr orb, Auction::House_ptr house) {
    PortableServer::POA_var root = root_poa(orb);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    Bidder_impl ann, bob;
    Auction::Bidder_var ann_reference = ann._this(), bob_reference = bob._this();

    Auction::Lot_var lot = house->open(CORBA::Fixed("10.00"));
    lot->bid(bid_of("Ann", "10.05"), ann_reference);
    lot->bid(bid_of("Bob", "1000000.00"), bob_reference);
    CHECK(ann.heard("outbid by Bob"));
    try {
      lot->bid(bid_of("Ann", "999999.99"), ann_reference);
      CHECK(!"it was too low");
    } catch (const Auction::TooLow& e) {
      CHECK(std::string(e.best.who) == "Bob" && e.best.amount == CORBA::Fixed("1000000"));
    }
    lot->close();
    CHECK(bob.heard("over at 1000000.00"));
    CHECK_THROWS(Auction::Over, lot->close());
    Auction::Bid_var best = lot->best();
    CHECK(std::string(best->who) == "Bob");
    for (CORBA::UShort i = 1; i < Auction::House::MOST_LOTS; ++i)
      Auction::Lot_var(house->open(CORBA::Fixed(1)));
    CHECK_THROWS(Auction::House::NoRoom, Auction::Lot_var(house->open(CORBA::Fixed(1))));
  });
}
