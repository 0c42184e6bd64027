// Where the server leaves its references.
#pragma once

#include <filesystem>
#include <string>

/// Writes DIR/NAME.ior whole or not at all: no reader sees half of it. std::system_error, naming the file,
/// when that fails.
void write_reference(const std::filesystem::path& dir, const std::string& name, const std::string& text);
