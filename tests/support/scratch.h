// A directory for the files of a test.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// A fresh directory, removed with all that is in it.
class Scratch {
 public:
  Scratch() { EXPECT_NE(::mkdtemp(path.data()), nullptr); }
  ~Scratch() { std::filesystem::remove_all(path); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  /// Writes a file of it, below directories that are made; gives its path.
  std::string write(const std::string& name, const std::string& content, unsigned mode = 0600) const {
    const std::filesystem::path file = std::filesystem::path(path) / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    std::filesystem::permissions(file, static_cast<std::filesystem::perms>(mode));
    return file;
  }
  std::string path = std::filesystem::temp_directory_path() / "test-XXXXXX";
};
