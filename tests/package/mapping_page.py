"""Makes mapping.idl and mapping_page.cpp of docs/mapping.md: python3 mapping_page.py PAGE DIRECTORY.

Blocks "in: program" stand in front, blocks "in: servant" become members of one servant, blocks "in: client" a function each,
called through a socket.
"""
import pathlib
import re
import sys

HEAD = """#undef NDEBUG
#include <cassert>
#include <iostream>
#include <string>

#include <corba/portable_interceptor.h>

#include "mapping.h"

%s
class Every_impl : public virtual POA_Guide::Every {
 public:
%s
 private:
  CORBA::String_var title_;
  std::string noted_;
};

%s
int main(int argc, char* argv[]) {
  CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
  CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
  PortableServer::POA_var root = PortableServer::POA::_narrow(object.in());
  PortableServer::POAManager_var manager = root->the_POAManager();
  manager->activate();
  Every_impl servant;
  Guide::Every_var every = servant._this();
%s  orb->destroy();
}
"""


def line_of(page, text, offset):
    return '#line %d "%s"\n' % (text.count("\n", 0, offset) + 1, page)


def main():
    page, directory = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    text = page.read_text()
    blocks = {"program": [], "servant": [], "client": []}
    for found in re.finditer(r"<!-- in: (\w+) -->\n```cpp\n(.*?)```\n", text, re.S):
        blocks[found[1]].append(line_of(page, text, found.start(2)) + found[2])
    unmarked = len(re.findall(r"^```cpp$", text, re.M)) - sum(map(len, blocks.values()))
    if unmarked or not all(blocks.values()):
        sys.exit("%s: %d blocks of C++ are not marked, or there are none" % (page, unmarked))
    clients = ["void client_%d(Guide::Every_ptr every) {\n%s}\n" % c for c in enumerate(blocks["client"])]
    calls = ["  client_%d(every.in());\n" % i for i in range(len(clients))]
    idl = re.search(r"<!-- file: mapping.idl -->\n```idl\n(.*?)```\n", text, re.S)
    (directory / "mapping.idl").write_text(idl[1])
    (directory / "mapping_page.cpp").write_text(HEAD % ("".join(blocks["program"]), "".join(blocks["servant"]), "".join(clients), "".join(calls)))


main()
