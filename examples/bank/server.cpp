// bank_server FILE: a teller that opens accounts, whose reference goes into FILE. References to accounts are made without
// an active object; a servant locator finds the account when a request comes.
#include <cmath>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "bank.h"

namespace {

class AccountServant : public virtual POA_Bank::Account {
 public:
  AccountServant(PortableServer::POA_ptr poa, const char* owner)
      : poa_(PortableServer::POA::_duplicate(poa)), owner_(owner) {}

  char* owner() override { return CORBA::string_dup(owner_.c_str()); }
  Bank::Cents balance() override {
    const std::lock_guard lock(mutex_);
    return balance_;
  }
  Bank::Cents credit() override {
    const std::lock_guard lock(mutex_);
    return credit_;
  }
  void credit(Bank::Cents amount) override {
    const std::lock_guard lock(mutex_);
    credit_ = amount;
  }
  void deposit(Bank::Cents amount) override { enter("deposit", amount); }
  void withdraw(Bank::Cents amount) override { enter("withdrawal", -amount); }
  Bank::Entries* statement() override {
    const std::lock_guard lock(mutex_);
    return new Bank::Entries(entries_);
  }
  void watch(Bank::Watcher_ptr who) override {
    const std::lock_guard lock(mutex_);
    watcher_ = Bank::Watcher::_duplicate(who);
  }

  PortableServer::POA_ptr _default_POA() override { return PortableServer::POA::_duplicate(poa_.in()); }

 protected:
  /// An entry of that amount; below 0 it may be more than there is.
  void enter(const char* what, Bank::Cents amount) {
    const std::lock_guard lock(mutex_);
    const Bank::Cents after = balance_ + amount;
    if (amount < 0 && after < -credit_) throw Bank::Overdrawn(-credit_ - after);
    balance_ = after;
    entries_.length(entries_.length() + 1);
    Bank::Entry& entry = entries_[entries_.length() - 1];
    entry.what = what;
    entry.amount = amount;
    if (!CORBA::is_nil(watcher_.in())) watcher_->changed(Bank::Account_var(_this()).in(), entry);
  }

 private:
  const PortableServer::POA_var poa_;
  const std::string owner_;
  std::mutex mutex_;  // guards what follows
  Bank::Cents balance_ = 0, credit_ = 0;
  Bank::Entries entries_;
  Bank::Watcher_var watcher_;
};

class SavingsServant : public virtual POA_Bank::Savings, public AccountServant {
 public:
  SavingsServant(PortableServer::POA_ptr poa, const char* owner, double percent)
      : AccountServant(poa, owner), percent_(percent) {}

  CORBA::Double percent() override { return percent_; }
  Bank::Cents add_interest() override {
    const Bank::Cents interest = std::llround(static_cast<double>(balance()) * percent_ / 100);
    enter("interest", interest);
    return interest;
  }

 private:
  const double percent_;
};

/// The accounts by their owners' names, which are the ids of the objects. One that was opened stays.
class Vault : public PortableServer_ServantLocator_impl {
 public:
  /// The servant that was there first, when there was one.
  AccountServant& put(const std::string& owner, std::unique_ptr<AccountServant> servant) {
    const std::lock_guard lock(mutex_);
    return *accounts_.emplace(owner, std::move(servant)).first->second;
  }
  AccountServant* find(const std::string& owner) {
    const std::lock_guard lock(mutex_);
    const auto found = accounts_.find(owner);
    return found == accounts_.end() ? nullptr : found->second.get();
  }
  template <class Visit>
  void each(Visit visit) {
    const std::lock_guard lock(mutex_);
    for (const auto& [owner, servant] : accounts_) visit(owner, *servant);
  }

  PortableServer::Servant preinvoke(const PortableServer::ObjectId& id, PortableServer::POA_ptr, const char*,
                                    Cookie&, CORBA::Environment&) override {
    const CORBA::String_var owner = PortableServer::ObjectId_to_string(id);
    PortableServer::Servant servant = find(owner.in());
    if (!servant) throw CORBA::OBJECT_NOT_EXIST();
    return servant;
  }
  void postinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*, Cookie,
                  PortableServer::Servant, CORBA::Environment&) override {}

 private:
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<AccountServant>> accounts_;  // guarded by mutex_
};

class TellerServant : public virtual POA_Bank::Teller {
 public:
  TellerServant(CORBA::ORB_ptr orb, PortableServer::POA_ptr accounts, Vault& vault)
      : orb_(CORBA::ORB::_duplicate(orb)),
        accounts_(PortableServer::POA::_duplicate(accounts)),
        vault_(vault) {}

  Bank::Account_ptr open(const char* owner) override {
    return reference(owner, vault_.put(owner, std::make_unique<AccountServant>(accounts_.in(), owner)));
  }
  Bank::Savings_ptr open_savings(const char* owner, CORBA::Double percent) override {
    auto& account = vault_.put(owner, std::make_unique<SavingsServant>(accounts_.in(), owner, percent));
    return Bank::Savings::_narrow(Bank::Account_var(reference(owner, account)).in());
  }
  Bank::Account_ptr find(const char* owner) override {
    AccountServant* const account = vault_.find(owner);
    if (!account) throw Bank::Unknown(owner);
    return reference(owner, *account);
  }
  Bank::Accounts* all() override {
    Bank::Accounts_var list = new Bank::Accounts;
    vault_.each([&](const std::string& owner, AccountServant& account) {
      list->length(list->length() + 1);
      list[list->length() - 1] = reference(owner.c_str(), account);
    });
    return list._retn();
  }
  void transfer(Bank::Account_ptr from, Bank::Account_ptr to, Bank::Cents amount) override {
    from->withdraw(amount);
    to->deposit(amount);
  }
  void close() override { orb_->shutdown(false); }

 private:
  Bank::Account_ptr reference(const char* owner, AccountServant& account) {
    const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(owner);
    const bool savings = dynamic_cast<SavingsServant*>(&account) != nullptr;
    const CORBA::Object_var object = accounts_->create_reference_with_id(
        id.in(), savings ? Bank::Savings::repository_id : Bank::Account::repository_id);
    return Bank::Account::_unchecked_narrow(object.in());
  }

  const CORBA::ORB_var orb_;
  const PortableServer::POA_var accounts_;
  Vault& vault_;
};

PortableServer::POA_ptr make_accounts(PortableServer::POA_ptr root, PortableServer::POAManager_ptr manager,
                                      Vault& vault) {
  CORBA::PolicyList policies;
  policies.length(3);
  policies[0] = root->create_servant_retention_policy(PortableServer::NON_RETAIN);
  policies[1] = root->create_request_processing_policy(PortableServer::USE_SERVANT_MANAGER);
  policies[2] = root->create_id_assignment_policy(PortableServer::USER_ID);
  PortableServer::POA_ptr accounts = root->create_POA("accounts", manager, policies);
  for (CORBA::ULong i = 0; i < policies.length(); ++i) policies[i]->destroy();
  accounts->set_servant_manager(&vault);
  return accounts;
}

}  // namespace

int main(int argc, char** argv) try {
  const CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
  if (argc != 2) return std::cerr << "bank_server FILE\n", 2;
  const CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
  const PortableServer::POA_var root = PortableServer::POA::_narrow(object.in());
  const PortableServer::POAManager_var manager = root->the_POAManager();
  Vault vault;
  const PortableServer::POA_var accounts = make_accounts(root.in(), manager.in(), vault);
  TellerServant teller(orb.in(), accounts.in(), vault);
  const Bank::Teller_var reference = teller._this();
  manager->activate();
  std::ofstream(argv[1]) << CORBA::String_var(orb->object_to_string(reference.in())).in() << std::endl;
  orb->run();
  orb->destroy();
} catch (const CORBA::Exception& e) {
  return std::cerr << "bank_server: " << e << '\n', 1;
}
