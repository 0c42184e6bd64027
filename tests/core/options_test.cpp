#include "options.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {

using namespace zrsv;

/// Words with bars between them, as main gets its command line.
struct CommandLine {
  explicit CommandLine(const std::string& line) {
    std::istringstream in(line + "|");
    for (std::string word; std::getline(in, word, '|');) words.push_back(word);
    texts = words;
    for (std::string& text : texts) pointers.push_back(text.data());
    argc = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
  }
  std::vector<std::string> left() const { return {pointers.begin(), pointers.begin() + argc}; }

  std::vector<std::string> words, texts;
  std::vector<char*> pointers;
  int argc = 0;
};

TEST(Options, AreTakenOutOfTheCommandLine) {
  CommandLine line(
      "program|-ORBListen|0.0.0.0:0|file|-ORBListen|[::1]:4000|-ORBPublish|name|-ORBPublish|[fe80::1%eth0]:"
      "99|"
      "-ORBThreads|8|-ORBGIOPVersion|1.1|-ORBInProcess|0|-ORBFragmentSize|0|-ORBImplRepository|names.txt|-v");
  Options o;
  ASSERT_EQ(parse_options(&line.argc, line.pointers.data(), &o), "");
  EXPECT_EQ(line.left(), (std::vector<std::string>{"program", "file", "-v"}));
  EXPECT_EQ(line.pointers[static_cast<std::size_t>(line.argc)], nullptr);
  EXPECT_EQ(o.listen, (std::vector<Endpoint>{{"0.0.0.0", 0}, {"::1", 4000}}));
  EXPECT_EQ(o.publish, (std::vector<Endpoint>{{"name", 0}, {"fe80::1%eth0", 99}}));
  EXPECT_EQ(o.threads, 8u);
  EXPECT_EQ(o.giop_minor, 1u);
  EXPECT_EQ(o.fragment_size, 0u);
  EXPECT_EQ(o.impl_repository, "names.txt");
  EXPECT_FALSE(o.in_process);
  EXPECT_TRUE(o.client_info);
}

TEST(Options, ErrorsNameOptionAndValueAndChangeNothing) {
  for (const char* words :
       {"-ORBNoSuchThing", "-ORBThreads", "-ORBThreads|", "-ORBThreads|-1", "-ORBThreads|4x",
        "-ORBThreads|4097", "-ORBTimeout|4294967296", "-ORBTick|0", "-ORBListen|host", "-ORBListen|:80",
        "-ORBListen|h:65536", "-ORBListen|[::1:80", "-ORBListen|::1:80", "-ORBPublish|a b",
        "-ORBGIOPVersion|1.3", "-ORBGIOPVersion|2", "-ORBClientInfo|yes", "-ORBImplRepository|",
        "-ORBFragmentSize|1"}) {
    CommandLine line(std::string("program|-ORBQueue|5|") + words);
    Options o;
    const std::string error = parse_options(&line.argc, line.pointers.data(), &o);
    EXPECT_NE(error.find(line.words[3]), error.npos) << error;
    if (line.words.size() > 4) {
      EXPECT_NE(error.find("'" + line.words[4] + "'"), error.npos) << error;
    }
    EXPECT_EQ(line.left(), line.words);
    EXPECT_EQ(o.queue, Options().queue);
  }
}

}  // namespace
