#include "bank.h"
#include "classic.h"

int main(int argc, char* argv[]) {
  return guarded([&] {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    CORBA::Object_var object = fetch(orb, argv[1]);
    Bank::Teller_var teller = Bank::Teller::_narrow(object);

    Bank::Account_var ann = teller->open("Ann");
    ann->deposit(500);
    try {
      ann->withdraw(501);
      CHECK(!"an exception was raised");
    } catch (Bank::InsufficientFunds& e) {
      CHECK(e.balance == 500);
    }

    Bank::Savings_var bob = teller->open_savings("Bob");
    teller->transfer(ann, bob, 200);
    bob->add_interest(10);
    CHECK(ann->balance() == 300);
    CHECK(bob->balance() == 220);

    Bank::Account_var plain = teller->find("Bob");
    Bank::Savings_var again = Bank::Savings::_narrow(plain);
    CHECK(!CORBA::is_nil(again));
    Bank::Savings_var none = Bank::Savings::_narrow(ann);
    CHECK(CORBA::is_nil(none));
    Bank::Account_var widened = Bank::Account::_narrow(bob);
    CHECK(widened->_is_equivalent(bob));
    CHECK_THROWS(Bank::NoSuchAccount, teller->find("Carol"));

    Bank::Entries_var entries = bob->statement();
    CHECK(entries->length() == 2);
    CHECK(std::string(entries[1u].what) == "interest");
    CHECK(entries[1u].amount == 20);
    CHECK(!entries[0u].pending);

    Bank::Accounts_var all = teller->all();
    CHECK(all->length() == 2);
    CORBA::String_var owner = all[0u]->owner();
    CHECK(std::string(owner) == "Ann");

    ann->close();
    CHECK_THROWS(CORBA::SystemException, ann->balance());
    CHECK(gone(ann));

    teller->shutdown();
    orb->destroy();
  });
}
