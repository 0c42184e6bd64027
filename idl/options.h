// The command line of poaidl.
#pragma once

#include <string>
#include <vector>

#include "preprocess.h"

namespace idl {

struct Options {
  std::vector<std::string> files;
  PreprocessOptions preprocess;
  std::string directory = ".";
  std::string deps;  // empty for none
  bool environment = false;
  bool async = false;
  bool list = false;
  bool warnings_are_errors = false;
};

/// Reads the command line. When there is nothing more to do (--help, a wrong option) that is printed, and the result
/// is the exit status; else it is -1.
int parse_options(int argc, char** argv, Options& options);

}  // namespace idl
