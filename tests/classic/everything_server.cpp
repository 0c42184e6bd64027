#include "everything_servant.h"

int main(int argc, char* argv[]) { return serve<Thing_impl>(argc, argv); }
