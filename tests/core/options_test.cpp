#include "base/options.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace zrsv;
/// Parses a command line whose words have a '|' between them. What it leaves, or what is wrong with it.
std::string parse(const std::string& line, Options* options) {
  std::vector<std::string> words;
  std::istringstream in(line + "|");
  for (std::string word; std::getline(in, word, '|');) words.push_back(word);
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  int argc = static_cast<int>(words.size());
  const std::string error = parse_options(&argc, argv.data(), options);
  EXPECT_EQ(argv[static_cast<std::size_t>(argc)], nullptr);
  EXPECT_TRUE(error.empty() || argc == static_cast<int>(words.size()));
  argv.resize(static_cast<std::size_t>(argc));
  std::string left;
  for (const char* word : argv) left += word + std::string("|");
  return error.empty() ? left : error;
}

TEST(Options, AreTakenOutOfTheCommandLine) {
  Options o;
  EXPECT_EQ(parse("program|-ORBListen|0.0.0.0:0|file|-ORBListen|[::1]:4000|-ORBPublish|name|-ORBPublish|"
                  "[fe80::1%eth0]:99|-ORBThreads|8|-ORBGIOPVersion|1.1|-ORBInProcess|0|-ORBFragmentSize|0|"
                  "-ORBImplRepository|names.txt|-v",
                  &o),
            "program|file|-v|");
  EXPECT_EQ(o.listen, (std::vector<Endpoint>{{"0.0.0.0", 0}, {"::1", 4000}}));
  EXPECT_EQ(o.publish, (std::vector<Endpoint>{{"name", 0}, {"fe80::1%eth0", 99}}));
  EXPECT_TRUE(o.threads == 8 && o.giop_minor == 1 && o.fragment_size == 0 && !o.in_process && o.client_info);
  EXPECT_EQ(o.impl_repository, "names.txt");
  EXPECT_EQ(parse("-ORBThreads|file", &o), "-ORBThreads|file|");  // the name of a program
}

TEST(Options, ErrorsNameOptionAndValueAndChangeNothing) {
  for (const std::string wrong :
       {"-ORBNoSuchThing", "-ORBThreads", "-ORBThreads|", "-ORBThreads|-1", "-ORBThreads|4x",
        "-ORBThreads|4097", "-ORBTimeout|4294967296", "-ORBListen|host", "-ORBListen|h:65536",
        "-ORBListen|[::1:80", "-ORBListen|::1:80", "-ORBPublish|a b", "-ORBPublish|0.0.0.0:80",
        "-ORBPublish|[::]", "-ORBGIOPVersion|1.3", "-ORBClientInfo|yes", "-ORBImplRepository|",
        "-ORBFragmentSize|1"}) {
    Options o;
    const std::string error = parse("program|-ORBQueue|5|" + wrong, &o);
    EXPECT_NE(error.find(wrong.substr(0, wrong.find('|'))), error.npos) << error;
    EXPECT_NE(error.find(wrong.substr(wrong.find('|') + 1)), error.npos) << error;
    EXPECT_EQ(o.queue, Options().queue);
  }
}

}  // namespace
