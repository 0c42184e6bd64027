// A factory that makes objects and forgets them, inheritance of interfaces and of their servants, references both ways.
#include <map>
#include <vector>

#include "bank.h"
#include "classic.h"

static CORBA::ORB_var orb;
static PortableServer::POA_var root;

class Account_impl : public virtual POA_Bank::Account, public virtual PortableServer::RefCountServantBase {
 public:
  explicit Account_impl(const char* owner) : owner_(CORBA::string_dup(owner)) {}

  char* owner() override { return CORBA::string_dup(owner_); }
  Bank::Cents balance() override { return balance_; }
  void deposit(Bank::Cents amount) override {
    balance_ += amount;
    note("deposit", amount);
  }
  void withdraw(Bank::Cents amount) override {
    if (amount > balance_) throw Bank::InsufficientFunds(balance_);
    balance_ -= amount;
    note("withdrawal", -static_cast<CORBA::LongLong>(amount));
  }
  Bank::Entries* statement() override {
    Bank::Entries_var copy = new Bank::Entries(entries_);
    return copy._retn();
  }
  void close() override {
    PortableServer::ObjectId_var id = root->servant_to_id(this);
    root->deactivate_object(id);
  }

 protected:
  void note(const char* what, CORBA::LongLong amount) {
    CORBA::ULong n = entries_.length();
    entries_.length(n + 1);
    entries_[n].what = CORBA::string_dup(what);
    entries_[n].amount = amount;
    entries_[n].pending = false;
  }

  CORBA::String_var owner_;
  Bank::Cents balance_ = 0;
  Bank::Entries entries_;
};

class Savings_impl : public virtual POA_Bank::Savings, public virtual Account_impl {
 public:
  explicit Savings_impl(const char* owner) : Account_impl(owner) {}
  void add_interest(CORBA::Float percent) override {
    const Bank::Cents more = static_cast<Bank::Cents>(static_cast<double>(balance_) * percent / 100);
    balance_ += more;
    note("interest", more);
  }
};

class Teller_impl : public virtual POA_Bank::Teller {
 public:
  Bank::Account_ptr open(const char* owner) override {
    Account_impl* account = new Account_impl(owner);
    servants_.push_back(PortableServer::ServantBase_var(account));
    Bank::Account_var reference = account->_this();
    accounts_[owner] = reference;
    return reference._retn();
  }
  Bank::Savings_ptr open_savings(const char* owner) override {
    Savings_impl* account = new Savings_impl(owner);
    servants_.push_back(PortableServer::ServantBase_var(account));
    Bank::Savings_var reference = account->POA_Bank::Savings::_this();
    accounts_[owner] = Bank::Account::_duplicate(reference);
    return reference._retn();
  }
  Bank::Account_ptr find(const char* owner) override {
    auto found = accounts_.find(owner);
    if (found == accounts_.end()) throw Bank::NoSuchAccount();
    return Bank::Account::_duplicate(found->second);
  }
  Bank::Accounts* all() override {
    Bank::Accounts_var list = new Bank::Accounts(static_cast<CORBA::ULong>(accounts_.size()));
    list->length(static_cast<CORBA::ULong>(accounts_.size()));
    CORBA::ULong i = 0;
    for (auto& entry : accounts_) list[i++] = Bank::Account::_duplicate(entry.second);
    return list._retn();
  }
  void transfer(Bank::Account_ptr from, Bank::Account_ptr to, Bank::Cents amount) override {
    from->withdraw(amount);
    to->deposit(amount);
  }
  void shutdown() override { orb->shutdown(false); }

 private:
  std::map<std::string, Bank::Account_var> accounts_;
  std::vector<PortableServer::ServantBase_var> servants_;
};

int main(int argc, char* argv[]) {
  return guarded([&] {
    orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    root = PortableServer::POA::_narrow(object);
    {
      Teller_impl teller;
      Bank::Teller_var reference = teller._this();
      publish(orb, reference, argv[1]);
      PortableServer::POAManager_var manager = root->the_POAManager();
      manager->activate();
      orb->run();
    }
    root = PortableServer::POA::_nil();
    orb->destroy();
  });
}
