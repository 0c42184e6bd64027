// What the client prints.
#pragma once

#include <chrono>
#include <string>

class Report {
 public:
  using Duration = std::chrono::steady_clock::duration;

  /// An object and how it is served.
  void object(const std::string& name, const std::string& how);
  /// One call and what came of it.
  void call(const std::string& call, const std::string& answer, Duration time, bool right);
  /// The sum of all; true when every answer was right.
  bool close() const;

 private:
  int objects_ = 0;
  int calls_ = 0;
  int wrong_ = 0;
};
