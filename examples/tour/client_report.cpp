#include "client_report.h"

#include <cstdio>

namespace {

std::string text_of(Report::Duration time) {
  const double us = std::chrono::duration<double, std::micro>(time).count();
  char text[32];
  if (us < 1000) {
    std::snprintf(text, sizeof text, "%.0f us", us);
  } else {
    std::snprintf(text, sizeof text, "%.1f ms", us / 1000);
  }
  return text;
}

}  // namespace

void Report::object(const std::string& name, const std::string& how) {
  ++objects_;
  std::printf("\n%s: %s\n", name.c_str(), how.c_str());
}

void Report::call(const std::string& call, const std::string& answer, Duration time, bool right) {
  ++calls_;
  if (!right) ++wrong_;
  std::printf("  %-32s %-52s %10s%s\n", call.c_str(), answer.c_str(), text_of(time).c_str(),
              right ? "" : "  WRONG");
}

bool Report::close() const {
  std::printf("\n%d objects, %d calls: ", objects_, calls_);
  if (wrong_ == 0) {
    std::printf("every answer is right\n");
  } else {
    std::printf("%d of the answers are wrong\n", wrong_);
  }
  return wrong_ == 0;
}
