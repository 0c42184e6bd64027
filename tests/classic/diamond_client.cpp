#include "classic.h"
#include "diamond.h"

int main(int argc, char* argv[]) {
  return visit<Machines::Office>(argc, argv, [](CORBA::ORB_ptr, Machines::Office_ptr office) {
    Machines::Device_var device = office->nearest("copier");
    Machines::Scanner_var scanner = Machines::Scanner::_narrow(device);
    Machines::Copier_var copier = Machines::Copier::_narrow(scanner);
    CHECK(!CORBA::is_nil(scanner) && !CORBA::is_nil(copier));
    CORBA::String_var text = scanner->scan();
    CHECK(copier->copy(2) == 2 * std::string(text).size());
    CHECK(copier->print("x") == 15);
    text = copier->model();
    CHECK(std::string(text) == "copier");
    CHECK(copier->_is_a("IDL:Machines/Device:1.0") && copier->_is_a("IDL:omg.org/CORBA/Object:1.0"));

    device = office->nearest("printer");
    Machines::Printer_var printer = Machines::Printer::_narrow(device);
    copier = Machines::Copier::_narrow(device);
    CHECK(!CORBA::is_nil(printer) && CORBA::is_nil(copier));
    Machines::Printer_ptr widened = scanner->_is_a("IDL:Machines/Printer:1.0")
                                        ? Machines::Printer::_unchecked_narrow(scanner)
                                        : Machines::Printer::_nil();
    CHECK(widened->print("yz") == 17);
    CORBA::release(widened);
    device = office->nearest("nothing");
    CHECK(CORBA::is_nil(device));
    text = printer->describe();
    CHECK(std::string(text) == "a printer");
  });
}
