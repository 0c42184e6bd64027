// Nested modules, constants as array bounds, types of fixed length, an array as an attribute.
#include "calendar.h"
#include "classic.h"

using namespace Time;

class Calendar_impl : public Closing<POA_Time::Calendar> {
 public:
  using Closing::Closing;
  Week_slice* hours() override { return Week_dup(week_); }
  void hours(const Week value) override { Week_copy(week_, value); }
  When at(Units::Weekday day) override {
    When when;
    if (day >= Units::saturday) {
      when.free(true);
      when._d(day);
    } else {
      if (week_[day].to.hour == 0) throw Time::Calendar::Closed(day);
      when.working(week_[day]);
      when._d(day);
    }
    return when;
  }
  Plan* plan(Units::Weekday first, CORBA::UShort days) override {
    Plan_var all = new Plan;
    all->length(days);
    for (CORBA::ULong i = 0; i < days; ++i)
      all[i] = at(static_cast<Units::Weekday>((static_cast<CORBA::ULong>(first) + i) % Units::DAYS));
    return all._retn();
  }
  void earlier(Slot& s, CORBA::Short minutes, CORBA::Boolean_out changed) override {
    const int now = s.from.hour * 60 + s.from.minute - minutes;
    changed = now >= 0;
    if (!changed) return;
    s.from.hour = static_cast<CORBA::Octet>(now / 60);
    s.from.minute = static_cast<CORBA::Octet>(now % 60);
  }

 private:
  Week week_ = {};
};

int main(int argc, char* argv[]) { return serve<Calendar_impl>(argc, argv); }
