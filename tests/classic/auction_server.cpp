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

class House_impl : public Closing<POA_Auction::House> {
 public:
  using Closing::Closing;
  Auction::Lot_ptr open(const Auction::Price& least) override {
    if (lots_.size() == MOST) throw Auction::House::NoRoom();
    Lot_impl* lot = new Lot_impl(least);
    lots_.push_back(PortableServer::ServantBase_var(lot));
    return lot->_this();
  }

 private:
  static const CORBA::UShort MOST = Auction::House::MOST_LOTS;
  std::vector<PortableServer::ServantBase_var> lots_;
};

int main(int argc, char* argv[]) { return serve<House_impl>(argc, argv); }
