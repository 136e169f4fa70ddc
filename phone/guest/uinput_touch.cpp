// uinput_touch: a touch screen made with uinput, for the emulated guest. Reads one command per line
// from standard input and removes the screen at its end:
//
//   swipe X1 Y1 X2 Y2 STEPS
#include <errno.h>
#include <fcntl.h>
#include <linux/uinput.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>

#include "phone/input/touch_sequences.h"
#include "phone/util.h"

namespace {

constexpr const char* kUinput = "/dev/uinput";
constexpr int kScreenWidth = 1080, kScreenHeight = 2400, kContacts = 10;

bool fail(const char* what) {
  fprintf(stderr, "uinput_touch: %s: %s\n", what, strerror(errno));
  return false;
}

struct Axis {
  uint16_t code;
  int maximum;
};
constexpr Axis kAxes[] = {
    {ABS_MT_SLOT, kContacts - 1},
    {ABS_MT_TRACKING_ID, 65535},
    {ABS_MT_POSITION_X, kScreenWidth - 1},
    {ABS_MT_POSITION_Y, kScreenHeight - 1},
};

bool make_screen(int fd, const char* name) {
  bool ok = ioctl(fd, UI_SET_EVBIT, EV_KEY) == 0 && ioctl(fd, UI_SET_KEYBIT, BTN_TOUCH) == 0 &&
            ioctl(fd, UI_SET_EVBIT, EV_ABS) == 0;
  for (const Axis& axis : kAxes) {
    struct uinput_abs_setup setup = {};
    setup.code = axis.code;
    setup.absinfo.maximum = axis.maximum;
    ok = ok && ioctl(fd, UI_ABS_SETUP, &setup) == 0;
  }
  struct uinput_setup setup = {};
  setup.id.bustype = BUS_VIRTUAL;
  snprintf(setup.name, sizeof setup.name, "%s", name);
  return (ok && ioctl(fd, UI_DEV_SETUP, &setup) == 0 && ioctl(fd, UI_DEV_CREATE) == 0) ||
         fail("cannot make the screen");
}

bool send(int fd, const InputEvents& events) {
  for (const InputEvent& sent : events) {
    struct input_event event = {};
    event.type = sent.type;
    event.code = sent.code;
    event.value = sent.value;
    if (write(fd, &event, sizeof event) != sizeof event) return fail("cannot send an event");
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fputs("usage: uinput_touch NAME < COMMANDS\n", stderr);
    return 2;
  }
  Fd fd(open(kUinput, O_WRONLY | O_CLOEXEC));
  if (!fd.ok()) return fail(kUinput), 1;
  if (!make_screen(fd.get(), argv[1])) return 1;
  char line[128];
  while (fgets(line, sizeof line, stdin) != nullptr) {
    Point from, to;
    int steps;
    if (sscanf(line, "swipe %d %d %d %d %d", &from.x, &from.y, &to.x, &to.y, &steps) != 5 ||
        steps < 1) {
      fprintf(stderr, "uinput_touch: unknown command: %s", line);
      return 2;
    }
    if (!send(fd.get(), swipe(from, to, steps))) return 1;
  }
  return 0;
}
