#include "preprocess.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

extern "C" {
#include <mcpp_lib.h>
}

// The preprocessor library, in a process of its own, compares what follows a directory's name with what may be longer.
#if defined(__SANITIZE_ADDRESS__)
extern "C" [[gnu::visibility("default")]] const char* __asan_default_suppressions();
extern "C" const char* __asan_default_suppressions() { return "interceptor_via_lib:libmcpp"; }
#endif

namespace idl {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t most_text = 256U << 20;  // octets that the preprocessor may make of a file
constexpr rlim_t most_seconds = 10;

// A directory that holds orb.idl while the preprocessor runs.
class OrbDirectory {
 public:
  OrbDirectory() {
    std::string path = (fs::temp_directory_path() / "poaidl-XXXXXX").string();
    if (!mkdtemp(path.data()))
      throw std::runtime_error("cannot make a directory in " + fs::temp_directory_path().string());
    path_ = path;
    std::ofstream(fs::path(path) / orb_idl_name) << orb_idl;
  }
  ~OrbDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  OrbDirectory(const OrbDirectory&) = delete;
  OrbDirectory& operator=(const OrbDirectory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// --- the other process --------------------------------------------------------------------------------------------

struct Output {
  std::string text, complaints;
  bool complete = false;
};

void write_all(int to, const char* text) {
  std::size_t left = text ? std::char_traits<char>::length(text) : 0;
  while (left > 0) {
    const ssize_t count = write(to, text, left);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) _exit(1);
    text += count;
    left -= static_cast<std::size_t>(count);
  }
}

[[noreturn]] void run_here(std::vector<std::string> arguments, int out, int err) {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) unsetenv(name);  // which would name an encoding
  const rlimit seconds{most_seconds, most_seconds};
  setrlimit(RLIMIT_CPU, &seconds);
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  mcpp_use_mem_buffers(1);
  mcpp_lib_main(static_cast<int>(arguments.size()), argv.data());
  write_all(out, mcpp_get_mem_buffer(OUT));
  write_all(err, mcpp_get_mem_buffer(ERR));
  _exit(0);
}

// Reads both pipes to their ends; false when more comes than is allowed.
bool read_both(const std::array<int, 2>& from, const std::array<std::string*, 2>& to) {
  std::array<pollfd, 2> watched{pollfd{from[0], POLLIN, 0}, pollfd{from[1], POLLIN, 0}};
  std::vector<char> buffer(1U << 16);
  for (unsigned open = 2; open > 0;) {
    if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) return false;
    for (std::size_t i = 0; i < watched.size(); ++i) {
      if (watched[i].fd < 0 || !watched[i].revents) continue;
      const ssize_t count = read(from[i], buffer.data(), buffer.size());
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) {
        watched[i].fd = -1, --open;
        continue;
      }
      to[i]->append(buffer.data(), static_cast<std::size_t>(count));
      if (to[i]->size() > most_text) return false;
    }
  }
  return true;
}

Output run(const std::vector<std::string>& arguments) {
  std::array<int, 2> out{}, err{};
  if (pipe(out.data()) || pipe(err.data())) throw std::runtime_error("cannot make a pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot start a process");
  if (child == 0) run_here(arguments, out[1], err[1]);
  close(out[1]), close(err[1]);
  Output output;
  output.complete = read_both({out[0], err[0]}, {&output.text, &output.complaints});
  close(out[0]), close(err[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  output.complete = output.complete && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return output;
}

// --- what it wrote ------------------------------------------------------------------------------------------------

// The names that files have for the user: as given, or relative to where he is.
class FileNames {
 public:
  FileNames(std::string given, std::string orb_dir)
      : given_(std::move(given)),
        canonical_(canonical(given_)),
        here_(canonical(".") + "/"),
        orb_dir_(std::move(orb_dir)) {}

  std::string shown(const std::string& file) const {
    if (file == canonical_) return given_;
    if (file.starts_with(orb_dir_)) return orb_idl_name;
    return file.starts_with(here_) ? file.substr(here_.size()) : file;
  }

 private:
  static std::string canonical(const std::string& path) {
    std::error_code failed;
    return fs::weakly_canonical(path, failed).string();
  }

  const std::string given_, canonical_, here_, orb_dir_;
};

// The text with user's names in its markers; notes which files were read.
std::string rename_files(const std::string& text, const FileNames& names, std::vector<std::string>& files) {
  std::istringstream in(text);
  std::string renamed;
  renamed.reserve(text.size());
  for (std::string line, file; std::getline(in, line);) {
    std::uint32_t number = 0;
    if (parse_line_marker(line, number, file)) {
      file = names.shown(file);
      if (std::find(files.begin(), files.end(), file) == files.end()) files.push_back(file);
      line = "#line " + std::to_string(number) + " \"" + file + '"';
    }
    renamed += line + '\n';
  }
  return renamed;
}

// The places in a line that a complaint speaks of: what is quoted in it, else the first thing in the line.
Location place(Sources& sources, std::uint32_t file, std::uint32_t number, const std::string& complaint) {
  const std::string& line = sources.line(file, number);
  Location at{file, number, 1, 1};
  const std::size_t quote = complaint.find('"');
  if (quote != std::string::npos) {
    const std::string word = complaint.substr(quote + 1, complaint.rfind('"') - quote - 1);
    const std::size_t found = word.empty() ? std::string::npos : line.find(word);
    if (found != std::string::npos) {
      at.column = static_cast<std::uint32_t>(found + 1), at.width = static_cast<std::uint32_t>(word.size());
      return at;
    }
  }
  const std::size_t first = line.find_first_not_of(" \t");
  if (first != std::string::npos) at.column = static_cast<std::uint32_t>(first + 1);
  return at;
}

// The complaint in our words where they are better.
std::string reworded(const std::string& complaint) {
  static const std::vector<std::pair<std::regex, std::string>> wordings = {
      {std::regex("Can't open include file \"(.*)\".*"), "there is no file '$1' to include"},
      {std::regex("Unterminated character constant.*"), "the character literal does not end"},
      {std::regex("Empty character constant.*"), "the character literal is empty"},
      {std::regex("Unterminated string literal.*"), "the string literal does not end"},
      {std::regex("End of input with unterminated comment.*"), "the comment does not end"},
      {std::regex("End of input within #if.*"), "there is no #endif for this"},
      {std::regex("Unknown #directive \"(.*)\".*"), "'#$1' is no preprocessor directive"},
      {std::regex("More than .*nesting of #include.*"), "files include each other too deeply"},
  };
  for (const auto& [pattern, words] : wordings)
    if (std::regex_match(complaint, pattern)) return std::regex_replace(complaint, pattern, words);
  return complaint;
}

void report(const std::string& complaints, const FileNames& names, Sources& sources,
            Diagnostics& diagnostics) {
  static const std::regex form(R"((.*):(\d+): (error|fatal error|warning): (.*))");
  static const std::regex harmful("End of input with unterminated comment.*");
  static const std::regex section(".*section started at line (\\d+)");
  std::istringstream in(complaints);
  for (std::string line; std::getline(in, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, form)) continue;
    if (parts[3] == "warning" && !std::regex_match(parts[4].str(), harmful)) continue;
    const std::uint32_t file = sources.number(names.shown(parts[1]));
    const std::string complaint = parts[4];
    std::smatch start;
    const std::string at = std::regex_match(complaint, start, section) ? start[1] : parts[2];
    const auto number = static_cast<std::uint32_t>(std::strtoul(at.c_str(), nullptr, 10));
    diagnostics.error(place(sources, file, number, complaint), reworded(complaint));
  }
}

// The preprocessor takes a null character for the end of the line or of the file and says nothing, or reads before the
// line. Whether there is none.
bool refuse_null_characters(const std::vector<std::string>& files, Sources& sources,
                            Diagnostics& diagnostics) {
  bool none = true;
  for (const std::string& file : files) {
    std::ifstream in(file);
    std::uint32_t number = 1;
    for (std::string line; std::getline(in, line); ++number) {
      const std::size_t found = line.find('\0');
      if (found == std::string::npos) continue;
      diagnostics.error({sources.number(file), number, static_cast<std::uint32_t>(found + 1), 1},
                        "a null character");
      none = false;
      break;
    }
  }
  return none;
}

// The #include lines of the file that led to one of the files that were read.
std::vector<Include> includes_of(const std::string& file, const std::vector<std::string>& read) {
  static const std::regex form("^\\s*#\\s*include\\s*([<\"])([^>\"]+)[>\"].*");
  std::vector<Include> includes;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    std::smatch parts;
    if (line.size() > 1000 || !std::regex_match(line, parts, form)) continue;
    const std::string written = parts[2];
    const std::string name = fs::path(written).lexically_normal().string();
    const auto led_to = std::find_if(read.begin(), read.end(), [&](const std::string& other) {
      const std::string normal = fs::path(other).lexically_normal().string();
      return normal == name || normal.ends_with("/" + name) ||
             fs::path(normal).filename() == fs::path(name).filename();
    });
    const auto known = [&](const Include& include) { return include.written == written; };
    if (led_to != read.end() && std::none_of(includes.begin(), includes.end(), known))
      includes.push_back({written, parts[1] == "<", *led_to});
  }
  return includes;
}

std::vector<std::string> arguments_for(const std::string& file, const PreprocessOptions& options,
                                       const std::string& orb_dir) {
  // No predefined macros or directories; no source lines in complaints; keep columns; no \u in names and literals.
  std::vector<std::string> arguments = {"poaidl", "-N", "-I-", "-j", "-k", "-V199409L", "-W1"};
  for (const std::string& macro : options.macros) arguments.push_back("-" + macro);
  for (const std::string& dir : options.include_dirs) arguments.push_back("-I" + dir);
  arguments.push_back("-I" + orb_dir);
  arguments.push_back(file);
  return arguments;
}

}  // namespace

bool parse_line_marker(const std::string& line, std::uint32_t& number, std::string& file) {
  static constexpr std::string_view start = "#line ";
  if (!line.starts_with(start)) return false;
  char* rest = nullptr;
  number = static_cast<std::uint32_t>(std::strtoul(line.c_str() + start.size(), &rest, 10));
  const std::string name = rest;
  if (name.size() < 3 || !name.starts_with(" \"") || !name.ends_with('"')) return false;
  file = name.substr(2, name.size() - 3);
  return true;
}

Preprocessed preprocess(const std::string& file, const PreprocessOptions& options, Sources& sources,
                        Diagnostics& diagnostics) {
  const OrbDirectory orb;
  const FileNames names(file, orb.path());
  sources.number(file);
  Preprocessed result;
  result.files.push_back(file);
  if (!refuse_null_characters(result.files, sources, diagnostics)) return result;
  const Output output = run(arguments_for(file, options, orb.path()));
  result.text = rename_files(output.text, names, result.files);
  for (const std::string& read : result.files)
    if (read == orb_idl_name) sources.supply(sources.number(read), orb_idl);
  refuse_null_characters(result.files, sources, diagnostics);
  report(output.complaints, names, sources, diagnostics);
  if (!output.complete) diagnostics.error({0, 1, 1, 1}, "the preprocessor cannot cope with this file");
  result.includes = includes_of(file, result.files);
  return result;
}

}  // namespace idl
