#include "calendar.h"
#include "classic.h"

using namespace Time;

int main(int argc, char* argv[]) {
  return visit<Calendar>(argc, argv, [](CORBA::ORB_ptr, Calendar_ptr calendar) {
    Week week = {};
    for (CORBA::Octet day = 0; day < Units::friday; ++day) {
      week[day].from.hour = 9;
      week[day].to.hour = static_cast<CORBA::Octet>(17 + day);
    }
    calendar->hours(week);
    Week_var back = calendar->hours();
    CHECK(back[2].from.hour == 9 && back[2].to.hour == 19 && back[4].to.hour == 0);

    When when = calendar->at(Units::sunday);
    CHECK(when._d() == Units::sunday && when.free());
    when = calendar->at(Units::tuesday);
    CHECK(when._d() == Units::tuesday && when.working().to.hour == 18);
    CHECK_THROWS(CORBA::BAD_PARAM, when._d(Units::sunday));
    try {
      calendar->plan(Units::monday, 7);
      CHECK(!"Friday is closed");
    } catch (const CORBA::UNKNOWN&) {  // what plan() does not say that it raises
    }
    try {
      calendar->at(Units::friday);
      CHECK(!"Friday is closed");
    } catch (const Calendar::Closed& e) {
      CHECK(e.day == Units::friday);
    }
    Plan_var plan = calendar->plan(Units::saturday, 4);
    CHECK(plan->length() == 4 && plan[1u].free() && plan[3u].working().to.hour == 18);

    Slot slot = week[0];
    CORBA::Boolean changed = false;
    calendar->earlier(slot, 75, changed);
    CHECK(changed && slot.from.hour == 7 && slot.from.minute == 45);
    calendar->earlier(slot, 1000, changed);
    CHECK(!changed && slot.from.hour == 7);
  });
}
