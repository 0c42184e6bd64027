// What the client does with the object behind one reference.
#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>

#include "client_report.h"
#include "control.h"
#include "echo.h"

/// Whether the tour comes by the object `a` before `b`.
struct TourOrder {
  bool operator()(const std::string& a, const std::string& b) const;
};
using Echoes = std::map<std::string, Demo::Echo_var, TourOrder>;

/// The server cannot be reached, or is gone.
class ServerGone : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// An answer that is wrong.
class Wrong : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Makes one call and reports it. `make` returns the answer as text; Wrong and the exceptions of the object
/// are reported as answers that are wrong. ServerGone when no answer can come.
void report_call(Report& report, const std::string& call, const std::function<std::string()>& make);

/// Calls every operation of the object of that name.
void visit_echo(Report& report, const std::string& name, Demo::Echo& echo);
/// Turns every switch, and looks with `echoes`, the objects by name, at what that does. Leaves everything as
/// it was.
void visit_control(Report& report, Demo::Control& control, const Echoes& echoes);

/// One line on how the object of that name is served.
std::string how_it_is_served(const std::string& name);
