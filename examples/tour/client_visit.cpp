#include "client_visit.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "tour_text.h"

namespace {

using Clock = std::chrono::steady_clock;

/// A system exception that means that nobody answers, not that the object answered with it.
bool is_gone(const CORBA::SystemException& e) {
  constexpr CORBA::ULong from_an_adapter = 0x4B51;  // the upper half of the minor codes that POAs set
  return (e.minor() >> 16) != from_an_adapter &&
         (dynamic_cast<const CORBA::TRANSIENT*>(&e) || dynamic_cast<const CORBA::COMM_FAILURE*>(&e));
}

std::string quoted(const std::string& text) { return '"' + text + '"'; }

std::string expect(const std::string& answer, const std::string& wanted) {
  if (answer != wanted) throw Wrong(answer + ", not " + wanted);
  return answer;
}

/// Asks until the answer is `wanted`, at most 5 s.
template <class Ask>
void wait_for(CORBA::Long wanted, Ask ask) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(5);
  CORBA::Long answer = ask();
  while (answer < wanted && Clock::now() < end) answer = ask();
  if (answer < wanted) throw Wrong(std::to_string(answer) + " after 5 s, not " + std::to_string(wanted));
}

std::string echo_string(Demo::Echo& echo) {
  const CORBA::String_var answer = echo.echo_string("hello, world");
  return expect(quoted(answer.in()), "\"hello, world\"");
}

std::string echo_octets(Demo::Echo& echo) {
  Demo::Octets sent;
  sent.length(1 << 20);
  for (CORBA::ULong i = 0; i < sent.length(); ++i) sent[i] = static_cast<CORBA::Octet>(i * 7);
  const Demo::Octets_var answer = echo.echo_octets(sent);
  if (answer->length() != sent.length() ||
      std::memcmp(answer->get_buffer(), sent.get_buffer(), sent.length()) != 0) {
    throw Wrong("other octets");
  }
  return "the same octets";
}

std::string refuse(Demo::Echo& echo) {
  try {
    echo.refuse("not today", -7);
  } catch (const Demo::Refused& e) {
    return expect("Refused(" + quoted(e.why.in()) + ", " + std::to_string(e.code) + ')',
                  "Refused(\"not today\", -7)");
  }
  throw Wrong("no exception");
}

/// A oneway call: when it returns the request is on its way, and the object may have counted it or not.
std::string note(Demo::Echo& echo) {
  const CORBA::Long before = echo.notes();
  echo.note("seen from the client");
  wait_for(before + 1, [&] { return echo.notes(); });
  return "sent; notes() went up from " + std::to_string(before);
}

std::string sleep_ms(Demo::Echo& echo) {
  const Clock::time_point start = Clock::now();
  echo.sleep_ms(20);
  if (Clock::now() - start < std::chrono::milliseconds(20)) throw Wrong("answered too early");
  return "answered after that time";
}

struct Known {
  const char* name;
  const char* who;
  const char* how;
};

constexpr Known known[] = {
    {"root", ":", "activated in the root POA, under an id that the library made up"},
    {"deep", "A/B/C:deep", "activated under an id of the program's, in a persistent POA three levels down"},
    {"activator", "activator:on-demand",
     "a servant activator makes its servant at the first call; the POA keeps it"},
    {"locator", "locator:each-call",
     "a servant locator makes a servant for each call; the POA keeps nothing"},
    {"default", "default:anyone", "one default servant stands in for every object of its POA"},
    {"lazy", "Lazy:sleeper", "an adapter activator makes its POA when the first request names it"},
    {"dynamic", "dynamic:interpreter", "its servant has no skeleton: it reads each request by itself"},
    {"session", "session:visit", "its servant is deleted when the connection of its client is gone"},
};

const Known* find(const std::string& name) {
  const auto* found =
      std::find_if(std::begin(known), std::end(known), [&](const Known& one) { return name == one.name; });
  return found == std::end(known) ? nullptr : found;
}

std::string who(const std::string& name, Demo::Echo& echo) {
  const CORBA::String_var answer = echo.who();
  const Known* wanted = find(name);
  if (!wanted) return quoted(answer.in());
  if (name != "root") return expect(quoted(answer.in()), quoted(wanted->who));
  if (answer.in()[0] != ':') throw Wrong(quoted(answer.in()) + ", not an object of the root POA");
  return quoted(answer.in());
}

/// Calls `add` while requests are held: the answer comes when they are released.
std::string add_while_held(Demo::Control& control, Demo::Echo& echo) {
  control.hold_ms(50);
  const Clock::time_point start = Clock::now();
  expect(std::to_string(echo.add(20, 22)), "42");
  if (Clock::now() - start < std::chrono::milliseconds(25)) throw Wrong("add was not held");
  return "add(20, 22) waited, then gave 42";
}

bool is_refused(Demo::Echo& echo) {
  try {
    echo.add(20, 22);
    return false;
  } catch (const CORBA::TRANSIENT& e) {
    if (is_gone(e)) throw;
    return true;
  }
}

std::string add_while_discarded(Demo::Control& control, Demo::Echo& echo) {
  control.discard_ms(50);
  if (!is_refused(echo)) throw Wrong("add was served");
  wait_for(1, [&] { return is_refused(echo) ? 0 : 1; });
  return "add(20, 22) gave TRANSIENT, later 42";
}

std::string call_anew(Demo::Control& control, Demo::Echo& echo) {
  const CORBA::Long before = control.incarnations("activator");
  control.deactivate("activator");
  expect(std::to_string(echo.add(20, 22)), "42");
  return "add(20, 22) gave 42 and took incarnation " +
         expect(std::to_string(control.incarnations("activator")), std::to_string(before + 1));
}

std::string call_lazy_anew(Demo::Control& control, Demo::Echo& echo) {
  control.destroy_poa("lazy");
  return "add(20, 22) made the POA anew and gave " + expect(std::to_string(echo.add(20, 22)), "42");
}

std::string set_lifespan(Demo::Control& control, const std::string& name) {
  control.lifespan(name.c_str(), 3600);
  control.lifespan(name.c_str(), 0);
  return "an hour, taken back";
}

}  // namespace

bool TourOrder::operator()(const std::string& a, const std::string& b) const {
  const auto place = [](const std::string& name) {
    const Known* found = find(name);
    return std::pair(found ? found - known : std::ssize(known), name);
  };
  return place(a) < place(b);
}

void report_call(Report& report, const std::string& call, const std::function<std::string()>& make) {
  const Clock::time_point start = Clock::now();
  std::string answer;
  bool right = false;
  try {
    answer = make();
    right = true;
  } catch (const Wrong& e) {
    answer = e.what();
  } catch (const CORBA::SystemException& e) {
    if (is_gone(e)) throw ServerGone(text_of(e));
    answer = text_of(e);
  } catch (const CORBA::Exception& e) {
    answer = text_of(e);
  }
  report.call(call, answer, Clock::now() - start, right);
}

void visit_echo(Report& report, const std::string& name, Demo::Echo& echo) {
  report_call(report, "who()", [&] { return who(name, echo); });
  report_call(report, "echo_string(\"hello, world\")", [&] { return echo_string(echo); });
  report_call(report, "add(20, 22)", [&] { return expect(std::to_string(echo.add(20, 22)), "42"); });
  report_call(report, "echo_octets(1048576 octets)", [&] { return echo_octets(echo); });
  report_call(report, "refuse(\"not today\", -7)", [&] { return refuse(echo); });
  report_call(report, "note(...), then notes()", [&] { return note(echo); });
  report_call(report, "sleep_ms(20)", [&] { return sleep_ms(echo); });
}

void visit_control(Report& report, Demo::Control& control, const Echoes& echoes) {
  const auto look = [&](const std::string& name, const std::string& call, auto&& make) {
    const auto found = echoes.find(name);
    if (found != echoes.end()) report_call(report, call, [&] { return make(control, *found->second.in()); });
  };
  report_call(report, "alive()", [&] { return std::to_string(control.alive()) + " servants"; });
  for (const auto& named : echoes) {
    const std::string& name = named.first;
    report_call(report, "incarnations(" + quoted(name) + ')',
                [&] { return std::to_string(control.incarnations(name.c_str())); });
  }
  look("root", "hold_ms(50)", add_while_held);
  look("root", "discard_ms(50)", add_while_discarded);
  look("activator", "deactivate(\"activator\")", call_anew);
  look("lazy", "destroy_poa(\"lazy\")", call_lazy_anew);
  look("deep", "lifespan(\"deep\", ...)", [](auto& c, auto&) { return set_lifespan(c, "deep"); });
}

std::string how_it_is_served(const std::string& name) {
  const Known* found = find(name);
  if (found) return found->how;
  return name == "control" ? "the switches of the server, as an object" : "an object that is not of the tour";
}
