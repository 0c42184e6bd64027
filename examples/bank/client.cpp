// bank_client FILE: opens accounts at the teller whose reference FILE holds, uses and watches them, and closes the bank.
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <iostream>
#include <mutex>
#include <string>

#include "bank.h"

namespace {

/// Is told of changes, and tells them.
class WatcherServant : public virtual POA_Bank::Watcher {
 public:
  void changed(Bank::Account_ptr which, const Bank::Entry& last) override {
    const CORBA::String_var owner = which->owner();
    const std::lock_guard lock(mutex_);
    std::cout << owner.in() << ": " << last.what.in() << " of " << last.amount << std::endl;
    ++changes_;
    changed_.notify_all();
  }
  /// Whether so many changes came within ten seconds.
  bool wait_for(int changes) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return changes_ >= changes; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int changes_ = 0;  // guarded by mutex_
};

/// True when the bank did as it should.
bool visit(Bank::Teller_ptr teller, Bank::Watcher_ptr watcher) {
  const Bank::Account_var ann = teller->open("Ann");
  const Bank::Savings_var bob = teller->open_savings("Bob", 2.5);
  ann->watch(watcher);
  ann->deposit(10000);
  ann->credit(500);
  teller->transfer(ann.in(), bob.in(), 10400);
  const Bank::Cents interest = bob->add_interest();
  try {
    ann->withdraw(200);
    return false;
  } catch (const Bank::Overdrawn& e) {
    std::cout << e.missing << " are missing" << std::endl;
  }
  try {
    const Bank::Account_var none = teller->find("Carol");
    return false;
  } catch (const Bank::Unknown& e) {
    std::cout << e.owner.in() << " has no account" << std::endl;
  }
  const Bank::Account_var found = teller->find("Bob");
  const Bank::Savings_var savings = Bank::Savings::_narrow(found.in());
  const Bank::Savings_var none = Bank::Savings::_narrow(ann.in());
  const Bank::Entries_var entries = found->statement();
  const Bank::Accounts_var all = teller->all();
  return interest == 260 && !CORBA::is_nil(savings.in()) && CORBA::is_nil(none.in()) &&
         found->balance() == 10660 && ann->balance() == -400 && entries->length() == 2 && all->length() == 2;
}

}  // namespace

int main(int argc, char** argv) try {
  const CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
  if (argc != 2) return std::cerr << "bank_client FILE\n", 2;
  CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
  const PortableServer::POA_var root = PortableServer::POA::_narrow(object.in());
  PortableServer::POAManager_var(root->the_POAManager())->activate();
  WatcherServant watcher;
  const Bank::Watcher_var watching = watcher._this();

  std::string text;
  std::ifstream(argv[1]) >> text;
  object = orb->string_to_object(text.c_str());
  const Bank::Teller_var teller = Bank::Teller::_narrow(object.in());
  const bool good = visit(teller.in(), watching.in()) && watcher.wait_for(2);
  teller->close();
  orb->destroy();
  std::cout << (good ? "all is well" : "the bank is wrong") << std::endl;
  return good ? 0 : 1;
} catch (const CORBA::Exception& e) {
  return std::cerr << "bank_client: " << e << '\n', 1;
}
