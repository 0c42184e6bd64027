// Octets for the tests: golden texts to octets, and streams over exact copies of them.
#pragma once

#include <bit>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "zrsv.h"

/// The octets that hexadecimal digits name; blanks between them do not count.
inline std::string hex(std::string digits) {
  std::erase(digits, ' ');
  std::string octets;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    octets += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return octets;
}

/// A decoding stream over a copy of exactly those octets, so that a read past them is one past a heap block.
class Decoding {
 public:
  /// `start` octets are passed over, `minor` is the GIOP minor version.
  explicit Decoding(std::string_view octets, bool little = std::endian::native == std::endian::little,
                    std::size_t start = 0, uint8_t minor = 2)
      : copy_(new unsigned char[octets.size()]) {
    std::memcpy(copy_.get(), octets.data(), octets.size());
    OM_cdr_open_decode(&cdr_, copy_.get(), static_cast<uint32_t>(octets.size()),
                       little != (std::endian::native == std::endian::little));
    cdr_.in_next += start;
    cdr_.minor_version = minor;
  }
  operator CDR*() { return &cdr_; }
  uint32_t left() const { return OM_cdr_remaining(&cdr_); }

 private:
  std::unique_ptr<unsigned char[]> copy_;
  CDR cdr_;
};

/// An encoding stream that frees itself.
class Encoding {
 public:
  explicit Encoding(uint8_t minor = 2) {
    OM_cdr_open_encode(&cdr_);
    cdr_.minor_version = minor;
  }
  Encoding(const Encoding&) = delete;
  Encoding& operator=(const Encoding&) = delete;
  ~Encoding() { OM_cdr_close(&cdr_); }
  operator CDR*() { return &cdr_; }
  std::string octets() const { return {cdr_.out_base, cdr_.out_next}; }

 private:
  CDR cdr_;
};

/// An environment record that empties itself.
class Outcome {
 public:
  Outcome() = default;
  Outcome(const Outcome&) = delete;
  Outcome& operator=(const Outcome&) = delete;
  ~Outcome() { CORBA_exception_free(&env_); }
  operator CORBA_Environment*() { return &env_; }
  /// The name of the system exception in the record, "" without one; the record is empty afterwards.
  std::string name() {
    const std::string_view id = env_._id ? env_._id : "", prefix = "IDL:CORBA/StExcep/";
    std::string name(id.starts_with(prefix) ? id.substr(prefix.size(), id.size() - prefix.size() - 4) : id);
    CORBA_exception_free(&env_);
    return name;
  }

 private:
  CORBA_Environment env_{};
};
