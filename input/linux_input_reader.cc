#include "input/linux_input_reader.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <type_traits>

#include "input/elapsed.h"
#include "input/ioctl_request.h"
#include "input/linux_input_reader_limits.h"
#include "logging/logging.h"

namespace quarlo::components::input {

using msg::KeyInput;
using InputEvent = LinuxInputReader::InputEvent;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;

// What the target depends on.
static_assert(sizeof(input_event) == (sizeof(long) == 4 ? 16 : 24), "a record is read whole, with one read()");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the kernel's capability bitmaps are read byte by byte");
static_assert(sizeof(InputEvent) == 20 && offsetof(InputEvent, keyData) == 4 && offsetof(InputEvent, mouseData) == 4);
static_assert(std::is_trivially_copyable_v<InputEvent> && std::is_standard_layout_v<LinuxInputReader>);
static_assert(kLongestLircPath == sizeof(sockaddr_un::sun_path) - 1, "a path is stored with its NUL");

namespace {

constexpr std::string_view kLogFile = "input/linux_input_reader";

bool isWanted(int severity) {
  if (severity < 0) return logging::GetVlogLevelHelper(kLogFile.data(), kLogFile.size() + 1) >= -severity;
  return logging::GetMinLogLevel() <= severity;
}

// The messages' arguments come in three shapes, and a function for each is less code than a LogMessage() in each place.
// A format does not look at the texts that it does not name.
void log(int line, int severity, const char* format, const char* text = nullptr) {
  if (isWanted(severity)) logging::LogMessage(kLogFile.data(), line, severity, format, text);
}

void log(int line, int severity, const char* format, std::int32_t number) {
  if (isWanted(severity)) logging::LogMessage(kLogFile.data(), line, severity, format, number);
}

void log(int line, int severity, const char* format, const char* a, const char* b, const char* c = nullptr) {
  if (isWanted(severity)) logging::LogMessage(kLogFile.data(), line, severity, format, a, b, c);
}

}  // namespace

// printf() is never called: with it, the compiler compares the format with the arguments.
#define LOG(severity, ...)                  \
  do {                                      \
    if (false) printf(__VA_ARGS__);         \
    log(__LINE__, (severity), __VA_ARGS__); \
  } while (false)
#define LOG_INFO(...) LOG(logging::kInfo, __VA_ARGS__)
#define LOG_ERROR(...) LOG(logging::kError, __VA_ARGS__)
#define LOG_VERBOSE(level, ...) LOG(-(level), __VA_ARGS__)

// ---- Life cycle ---------------------------------------------------------------------------------

namespace {

// The variable as a number, 0 if it is not set or not a number; a number that does not fit into 32 bits becomes the
// nearest one that does.
std::int32_t getenvint(const char* name) {
  const char* text = getenv(name);
  if (text == nullptr) return 0;
  const long value = strtol(text, nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<std::int32_t>(value);
}

std::int32_t positiveOr(std::int32_t value, std::int32_t fallback) { return value > 0 ? value : fallback; }

void logNotOpened(const char* what, const char* path) {
  if (path != nullptr) {
    LOG_ERROR("Could not open %s device %s", what, path);
  } else {
    LOG_INFO("Could not autodetect a suitable %s device", what);
  }
}

}  // namespace

LinuxInputReader::LinuxInputReader()
    : lircRepeatTimeout(positiveOr(getenvint(kRepeatTimeoutVariable), kDefaultRepeatTimeoutMs)),
      lircReleaseTimeout(positiveOr(getenvint(kReleaseTimeoutVariable), kDefaultReleaseTimeoutMs)) {
  // Byte by byte: a wheel can deliver the slot before anything was written to it, padding included.
  memset(&pendingEvent, 0, sizeof pendingEvent);
}

LinuxInputReader::~LinuxInputReader() {
  close(mouseFd);
  close(keyboardFd);
  close(lircFd);
}

bool LinuxInputReader::init(const char* mouseDevice, const char* keyboardDevice, const char* lircSocket,
                            std::uint32_t width, std::uint32_t height) {
  maxX = wrap(width);
  maxY = wrap(height);

  mouseFd = openDevice(mouseDevice, true);
  if (mouseFd < 0) logNotOpened("mouse", mouseDevice);
  keyboardFd = openDevice(keyboardDevice, false);
  if (keyboardFd < 0) logNotOpened("keyboard", keyboardDevice);

  if (lircSocket != nullptr) {
    lircFd = openLircSocket(lircSocket);
    if (lircFd >= 0) return true;
    LOG_ERROR("Could not open LIRC socket %s", lircSocket);
  } else {
    for (const char* path : kLircSocketPaths) {
      lircFd = openLircSocket(path);
      if (lircFd >= 0) return true;
    }
    LOG_INFO("Could not autodetect a LIRC device");
  }
  return mouseFd >= 0 || keyboardFd >= 0;
}

// ---- Waiting and polling ------------------------------------------------------------------------

// Where size does not matter, all that it calls becomes part of it: a sixth fewer instructions for a record.
#ifndef __OPTIMIZE_SIZE__
[[gnu::flatten]]
#endif
bool LinuxInputReader::readInput(InputEvent& event, int timeoutMs) {
  if (hasPendingEvent) {
    hasPendingEvent = false;
    event = pendingEvent;
    return true;
  }
  // Only a wait: no source blocks, so all of them are read, whether select() named them or not.
  fileSelect(timeoutMs);
  if (keyboardFd >= 0 && getInputEvent(keyboardFd, event)) return true;
  if (mouseFd >= 0 && getInputEvent(mouseFd, event)) return true;
  return lircFd >= 0 && getLircEvent(lircFd, event);
}

bool LinuxInputReader::fileSelect(int timeoutMs) {
  if (maxFd == -1 && !initFdSets()) return false;

  // A held remote key must be forgotten in time, and only a poll can do that.
  if (lircKey != KeyInput::kNone) {
    timeval now;
    std::int32_t remaining = wrappingDifference(lircReleaseTimeout, elapsedMs(lircKeyTime, now));
    if (remaining < 0) remaining = 0;
    if (timeoutMs == -1 || remaining < timeoutMs) timeoutMs = remaining;
  }

  timeval interval;
  timeval* limit = nullptr;
  if (timeoutMs != -1) {
    const div_t split = div(timesThousand(timeoutMs), 1000000);
    interval = {split.quot, split.rem};
    limit = &interval;
  }
  // The stored set itself, not a copy: later waits watch only what this one leaves in it. The application's timing is
  // tuned to that.
  const int ready = select(maxFd + 1, &readSet, nullptr, nullptr, limit);
  if (ready == -1) maxFd = -1;
  return ready > 0;
}

bool LinuxInputReader::initFdSets() {
  maxFd = -1;
  FD_ZERO(&readSet);
  for (const int fd : {mouseFd, keyboardFd, lircFd}) {
    if (fd < 0) continue;
    // A descriptor beyond the set cannot be waited on; it is still polled after each wait.
    if (fd < FD_SETSIZE) FD_SET(fd, &readSet);
    const int waitable = fd < FD_SETSIZE ? fd : FD_SETSIZE - 1;
    if (maxFd < waitable) maxFd = waitable;
  }
  return maxFd != -1;
}

// ---- Opening ------------------------------------------------------------------------------------

namespace {

constexpr std::size_t kNodePathSize = 24;
constexpr std::size_t kDeviceNameSize = 100;  // one more than is asked for: the kernel cuts a long name without a NUL

// EVIOCGRAB's argument is passed in place of a pointer, so it is as wide as one.
constexpr long kGrab = 1;
constexpr long kReleaseGrab = 0;

// Opens the node event<n> to look at it, and grabs it. Returns -1, with the reason in errno, also if another process
// has grabbed it. A node that cannot be grabbed answers EINVAL.
int openProbe(int n, char (&node)[kNodePathSize], char (&name)[kDeviceNameSize]) {
  snprintf(node, sizeof node, "/dev/input/event%d", n);
  const int fd = open(node, O_RDONLY);
  if (fd == -1) return -1;
  if (ioctl(fd, EVIOCGRAB, kGrab) == -1 && errno != EINVAL) {
    close(fd);
    errno = EBUSY;
    return -1;
  }
  ioctl(fd, asRequest(EVIOCGNAME(sizeof name - 1)), name);
  return fd;
}

void closeProbe(int fd) {
  ioctl(fd, EVIOCGRAB, kReleaseGrab);
  close(fd);
}

// Asks which codes of a type the device can send; `bits` stays as it is if there is no answer.
void queryCodes(int fd, unsigned long request, std::uint8_t* bits, const char* type) {
  if (ioctl(fd, asRequest(request), bits) == -1) LOG_ERROR("evdev ioctl failed in test%s", type);
}

bool hasBit(const std::uint8_t* bits, int bit) { return (bits[bit / 8] >> (bit % 8) & 1) != 0; }

// `request` asks for relative or for absolute axes, whose x and y have the same codes. Inlined, it would be there
// twice.
__attribute__((noinline)) bool hasXAndY(int fd, unsigned long request, const char* type) {
  static_assert(REL_X == ABS_X && REL_Y == ABS_Y);
  std::uint8_t bits[8] = {};
  queryCodes(fd, request, bits, type);
  return hasBit(bits, REL_X) && hasBit(bits, REL_Y);
}

}  // namespace

int LinuxInputReader::openDevice(const char* path, bool mouse) {
  if (path != nullptr) return open(path, O_RDONLY | O_NONBLOCK);

  char node[kNodePathSize];
  char name[kDeviceNameSize] = {};
  for (int n = kHighestScannedNode; n >= 0; --n) {
    const int probe = openProbe(n, node, name);
    if (probe == -1) continue;
    const bool suits = hasRelEvent(probe) == mouse && hasKeyEvent(probe, mouse);
    if (suits) LOG_INFO("Found a %s: %s - %s", mouse ? "mouse" : "keyboard", node, name);
    closeProbe(probe);
    if (suits) return open(node, O_RDONLY | O_NONBLOCK);
  }
  return -1;
}

bool LinuxInputReader::hasRelEvent(int fd) const { return hasXAndY(fd, EVIOCGBIT(EV_REL, 2), "Rel"); }

bool LinuxInputReader::hasAbsEvent(int fd) const { return hasXAndY(fd, EVIOCGBIT(EV_ABS, 8), "Abs"); }

bool LinuxInputReader::hasKeyEvent(int fd, bool pointer) const {
  std::uint8_t bits[(KEY_MAX + 1) / 8] = {};
  queryCodes(fd, EVIOCGBIT(EV_KEY, sizeof bits), bits, "Key");
  if (pointer) return hasBit(bits, BTN_LEFT) || hasBit(bits, BTN_TOUCH);
  return hasBit(bits, KEY_UP) && hasBit(bits, KEY_LEFT) && hasBit(bits, KEY_RIGHT) && hasBit(bits, KEY_DOWN);
}

int LinuxInputReader::openLircSocket(const char* path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::size_t size = strlen(path) + 1;
  if (size > sizeof address.sun_path) abort();
  memcpy(address.sun_path, path, size);

  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  if (fd == -1) return -1;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
    close(fd);
    return -1;
  }
  LOG_INFO("Found a LIRC device: %s", path);
  return fd;
}

// ---- Events -------------------------------------------------------------------------------------

// Events are written only here, field by field: only the fields of their kind, and never the whole of an event.
// Applications preset `kind` and look at it; all other bytes, padding included, stay as the application left them. (An
// event that was held back is the exception: it is delivered whole, from the holding slot.)
namespace {

void writeKey(InputEvent& out, std::int32_t action, LinuxInputReader::Key key, char ch,
              LinuxInputReader::Modifier modifiers) {
  out.kind = InputEvent::kKeyEvent;
  out.flags = 0;
  out.keyData.action = action;
  out.keyData.key = key;
  out.keyData.ch = ch;
  out.keyData.modifiers = modifiers;
}

void writeMouse(InputEvent& out, std::int32_t action, std::int32_t button, const LinuxInputReader& reader,
                std::int32_t clicks) {
  out.kind = InputEvent::kMouseEvent;
  out.flags = 0;
  out.mouseData.action = action;
  out.mouseData.button = button;
  out.mouseData.x = static_cast<std::uint16_t>(reader.pointerX);
  out.mouseData.y = static_cast<std::uint16_t>(reader.pointerY);
  out.mouseData.clicks = static_cast<std::uint8_t>(clicks);
}

}  // namespace

// ---- Evdev: one drain ---------------------------------------------------------------------------

bool LinuxInputReader::getInputEvent(int fd, InputEvent& event) {
  pointerMoved = false;
  input_event record = {};
  // A budget, so that a mouse that never stops cannot keep the other sources waiting.
  for (int budget = kRecordsPerDrain; budget > 0; --budget) {
    if (read(fd, &record, sizeof record) == -1) {
      const int error = errno;
      if (error != EAGAIN) LOG_ERROR("Reading from input device failed, errno = %d", error);
      break;
    }
    if (record.type == EV_REL) {
      translateEvent(&record, pendingEvent);
      hasPendingEvent = true;
    } else if (record.type == EV_KEY) {
      if (hasPendingEvent) {
        // The key must not overtake the motion before it.
        event = pendingEvent;
        translateEvent(&record, pendingEvent);
      } else {
        translateEvent(&record, event);
      }
      return true;
    }
  }
  if (!hasPendingEvent) return false;
  hasPendingEvent = false;
  event = pendingEvent;
  return true;
}

bool LinuxInputReader::translateEvent(input_event* ev, InputEvent& out) {
  switch (ev->type) {
    case EV_KEY: return handleKeyEvent(ev, out);
    case EV_REL: return handleRelEvent(ev, out);
    default: return true;
  }
}

// ---- Evdev: keyboard ----------------------------------------------------------------------------

namespace {

constexpr int kLastMouseButton = 287;  // of the block that starts with BTN_MOUSE; its last named button is BTN_TASK

}  // namespace

bool LinuxInputReader::handleKeyEvent(input_event* ev, InputEvent& out) {
  if (ev->code == BTN_TOUCH || ev->code == BTN_TOOL_FINGER) ev->code = BTN_LEFT;
  if (ev->code >= BTN_MOUSE && ev->code <= kLastMouseButton) return handleButtonEvent(*ev, out);

  const bool released = ev->value == 0;
  const Modifier modifier = getModifier(ev->code);
  if (released) {
    modifiers &= ~modifier;
  } else {
    modifiers |= modifier;
    // Also on auto-repeat: a Num Lock key that is held down toggles with each repeat.
    if (ev->code == KEY_NUMLOCK) numLock = !numLock;
  }

  Key key;
  char ch;
  translateKey(ev->code, modifiers, numLock, key, ch);
  writeKey(out, released ? KeyData::kUp : KeyData::kDown, key, ch, modifiers);
  return true;
}

LinuxInputReader::Modifier LinuxInputReader::getModifier(int code) {
  switch (code) {
    case KEY_LEFTCTRL:
    case KEY_RIGHTCTRL: return KeyInput::kControlModifier;
    case KEY_LEFTSHIFT:
    case KEY_RIGHTSHIFT: return KeyInput::kShiftModifier;
    case KEY_LEFTALT:
    case KEY_RIGHTALT: return KeyInput::kAltModifier;
    default: return KeyInput::kNoModifier;
  }
}

// ---- Evdev: pointer -----------------------------------------------------------------------------

namespace {

// The only state that belongs to the process and not to a reader: how often each button was clicked, and when last. So
// a double click counts even if two readers see one half of it each.
struct ClickHistory {
  std::int32_t& count;
  timeval& last;
};

ClickHistory clickHistoryOf(std::int32_t button) {
  static std::int32_t counts[] = {1, 1, 1};
  static timeval times[] = {{}, {}, {}};
  const std::int32_t index = button - MouseData::kLeft;
  return {counts[index], times[index]};
}

std::int32_t clampedStep(std::int32_t position, std::int32_t step, std::int32_t max) {
  std::int32_t moved;
  if (__builtin_add_overflow(position, step, &moved)) moved = step < 0 ? INT32_MIN : INT32_MAX;
  if (moved < 0) moved = 0;
  if (moved > max) moved = max;
  return moved;
}

}  // namespace

bool LinuxInputReader::handleRelEvent(input_event* ev, InputEvent& out) {
  switch (ev->code) {
    case REL_X:
      pointerX = clampedStep(pointerX, ev->value, maxX);
      pointerMoved = true;
      break;
    case REL_Y:
      pointerY = clampedStep(pointerY, ev->value, maxY);
      pointerMoved = true;
      break;
    default:
      if (!pointerMoved) return true;
  }
  writeMouse(out, MouseData::kMove, pressedButton, *this, 0);
  return true;
}

bool LinuxInputReader::handleButtonEvent(const input_event& ev, InputEvent& out) {
  constexpr int kAutoRepeat = 2;
  if (ev.value == kAutoRepeat) return false;

  std::int32_t button;
  switch (ev.code) {
    case BTN_LEFT: button = MouseData::kLeft; break;
    case BTN_RIGHT: button = MouseData::kRight; break;
    case BTN_MIDDLE: button = MouseData::kMiddle; break;
    default: return true;
  }

  const ClickHistory history = clickHistoryOf(button);
  const bool pressed = ev.value != 0;
  if (pressed) {
    pressedButton = button;
    timeval now;
    const bool inTime = elapsedMs(history.last, now) < kClickWindowMs;
    history.count = inTime ? wrappingSum(history.count, 1) : 1;
    history.last = now;
  } else {
    pressedButton = MouseData::kNoButton;
  }

  writeMouse(out, pressed ? MouseData::kButtonDown : MouseData::kButtonUp, button, *this, history.count);
  return true;
}

// ---- The remote: timing -------------------------------------------------------------------------

namespace {

struct LircPress {
  LinuxInputReader::Key key;
  std::uint16_t ch;
  bool fresh;  // the button went down, as opposed to being held
};

bool parseLircLine(char* text, LircPress& press);

}  // namespace

// The states of the remote's key (lircKey, lircRepeatMode). Times count from its last key-down; T is lircTimeout.
//
//            a line                a poll without a line, from T on
//   none ──────────────▶ held ─────────────────────────────────────▶ repeating
//    ▲                   │  ▲                                          │   │
//    │                   │  └─── a fresh press, or another button ─────┘   │
//    └───────────────────┴─────────────────────────────────────────────────┘
//            a poll without a line, from T + lircRepeatTimeout on
//
// A line that leads to held is a key-down. So is another line of the same button, from T on; before T it is skipped. A
// key-down sets T: to lircReleaseTimeout in held, to lircRepeatTimeout in repeating. Time alone changes nothing.
bool LinuxInputReader::getLircEvent(int fd, InputEvent& event) {
  char text[kLircReadSize + 1];
  const ssize_t length = read(fd, text, sizeof text - 1);
  timeval now;
  const std::int32_t elapsed = elapsedMs(lircKeyTime, now);

  if (length < 1) {
    if (lircKey == KeyInput::kNone) return false;
    // Only a poll that finds no line starts the repeat mode.
    if (!lircRepeatMode && lircTimeout <= elapsed) {
      LOG_VERBOSE(10, "LIRC key repeat mode started.");
      lircRepeatMode = true;
    }
    if (wrappingSum(lircTimeout, lircRepeatTimeout) > elapsed) return false;
    LOG_VERBOSE(10, "LIRC key repeat mode stopped.");
    lircKey = KeyInput::kNone;
    lircChar = 0;
    lircRepeatMode = false;
    return false;
  }

  text[length] = '\0';
  LOG_VERBOSE(2, "LIRC string: %s", text);
  LircPress press;
  if (!parseLircLine(text, press)) return false;

  // A new press of the held button is not a repeat.
  if (press.fresh) lircKey = KeyInput::kNone;
  if (press.key != lircKey) {
    lircRepeatMode = false;
  } else if (lircTimeout > elapsed) {
    LOG_VERBOSE(10, "LIRC keypress skipped - too close.");
    return false;
  }

  LOG_VERBOSE(10, "LIRC KEYDOWN %dms.", elapsed);
  readClock(lircKeyTime);
  lircTimeout = lircRepeatMode ? lircRepeatTimeout : lircReleaseTimeout;
  lircKey = press.key;
  lircChar = press.ch;
  LOG_VERBOSE(10, "LIRC timeout %dms.", lircTimeout);

  writeKey(event, KeyData::kDown, press.key, static_cast<char>(press.ch), KeyInput::kNoModifier);
  return true;
}

// ---- The remote: lines --------------------------------------------------------------------------

namespace {

// Ends the field that starts at `field` at the next space and returns what follows it, or null if there is no space.
char* endField(char* field) {
  char* space = strchr(field, ' ');
  if (space == nullptr) return nullptr;
  *space = '\0';
  return space + 1;
}

// Whether a byte of a name is this one of a text in capitals. Case is that of ASCII alone, whatever the application's
// locale: in some, I is not the capital of i.
bool isSame(char byte, char capital) {
  return byte == capital || (byte >= 'a' && byte <= 'z' && byte - 'a' + 'A' == capital);
}

bool startsWith(const char* name, const char* capitals, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    if (!isSame(name[i], capitals[i])) return false;
  }
  return true;
}

void dropPrefix(const char*& name, std::string_view prefix) {
  if (startsWith(name, prefix.data(), prefix.size())) name += prefix.size();
}

// The names one after another, each with its NUL: the place of a name follows from the sizes of those before it. A
// pointer to each, or room for the longest in each row, would double the size.
constexpr char kLircButtonNames[] =
#define LIRC_BUTTON(name, key, character) name "\0"
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
    ;

struct LircButton {
  std::uint16_t nameSize : 4;  // with the NUL
  std::uint16_t key : 9;
  std::uint16_t typesKey : 1;  // its character is the key code; the others have none
};

constexpr LircButton kLircButtons[] = {
#define LIRC_BUTTON(name, key, character) {sizeof(name), KeyInput::key, (character) == KeyInput::key},
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
};

#define LIRC_BUTTON(name, key, character) static_assert((character) == 0 || (character) == KeyInput::key, name);
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON

// The names in the list are in capitals. Most differ from `name` in the first letter already.
bool isButton(const char* name, const char* candidate, std::size_t sizeWithNul) {
  constexpr int kCaseBit = 'a' ^ 'A';
  return (name[0] & ~kCaseBit) == candidate[0] && startsWith(name, candidate, sizeWithNul);
}

bool findLircButton(const char* name, LircPress& press) {
  const char* candidate = kLircButtonNames;
  for (const LircButton& button : kLircButtons) {
    if (isButton(name, candidate, button.nameSize)) {
      press.key = button.key;
      press.ch = button.typesKey ? button.key : 0;
      return true;
    }
    candidate += button.nameSize;
  }
  return false;
}

// A line is "code repeat-count button-name remote-name\n" (the lircd manual, "SOCKET BROADCAST MESSAGES FORMAT").
// Whatever else was read with it, such as the lines between the daemon's BEGIN and END, is rejected or ignored.
bool parseLircLine(char* text, LircPress& press) {
  char* repeatCount = endField(text);
  if (repeatCount == nullptr) return false;
  char* nameField = endField(repeatCount);
  if (nameField == nullptr) return false;
  if (endField(nameField) == nullptr || *nameField == '\0') return false;

  press.fresh = repeatCount[strspn(repeatCount, "0")] == '\0';

  const char* name = nameField;
  for (const std::string_view prefix : kLircButtonPrefixes) dropPrefix(name, prefix);
  if (strlen(name) == 1) {
    press.ch = static_cast<unsigned char>(name[0]);
    press.key = press.ch;
    return true;
  }
  if (findLircButton(name, press)) return true;
  LOG_VERBOSE(2, "LIRC unknown: %s", name);
  return false;
}

}  // namespace

// ---- Listing ------------------------------------------------------------------------------------

namespace {

constexpr int kListedEventTypes = 31;

void logGuess(const char* kind) { LOG_INFO("Probably a %s", kind); }

struct EventType {
  int type;
  const char* label;
};

constexpr EventType kEventTypes[] = {
    {EV_KEY, "Keys or Buttons"},
    {EV_REL, "Relative Axes"},
    {EV_ABS, "Absolute Axes"},
    {EV_MSC, "Something miscellaneous"},
    {EV_LED, "LEDs"},
    {EV_SND, "Sounds"},
    {EV_REP, "Repeat"},
    {EV_FF, "Force Feedback"},
};

void printEventType(int type) {
  printf("  Event type 0x%02x ", static_cast<unsigned>(type));
  for (const EventType& known : kEventTypes) {
    if (known.type != type) continue;
    printf(" (%s)\n", known.label);
    // Programs that read this listing expect both lines for Force Feedback.
    if (type != EV_FF) return;
  }
  printf(" (Unknown event type: 0x%04hx)\n", static_cast<unsigned short>(type));
}

}  // namespace

void LinuxInputReader::listLinuxInputReader() const {
  char node[kNodePathSize];
  char name[kDeviceNameSize] = {};
  for (int n = 0; n <= kHighestListedNode; ++n) {
    const int fd = openProbe(n, node, name);
    if (fd == -1) {
      if (errno == ENODEV) return;
      continue;
    }
    LOG_INFO("%s: %s", node, name);
    if (hasRelEvent(fd) && hasKeyEvent(fd, true)) logGuess("mouse");
    if (hasAbsEvent(fd) && hasKeyEvent(fd, true)) logGuess("touchscreen");
    if (hasKeyEvent(fd, false)) logGuess("keyboard");

    std::uint8_t types[32] = {};
    if (ioctl(fd, asRequest(EVIOCGBIT(0, kListedEventTypes)), types) == -1) LOG_ERROR("evdev ioctl");
    puts("Supported event types:");
    for (int type = 0; type < kListedEventTypes; ++type) {
      if (hasBit(types, type)) printEventType(type);
    }
    closeProbe(fd);
  }
}

// ---- Key tables ---------------------------------------------------------------------------------

// Switches that hold only data, in the order of a keyboard. Without logic, and each over a range of its own, they
// compile to small tables. The codes are those of linux/input-event-codes.h.
namespace {

// A key with the character that it types without Shift: key | character << kKeyBits. 0: no such key. Each row of the
// keyboard fits 16 bits, and so the compiler's table takes no more; Power's does not, and is with the media keys.
using Row = std::uint32_t;
constexpr int kKeyBits = 9;

constexpr Row types(LinuxInputReader::Key key, int character) {
  return static_cast<Row>(key) | static_cast<Row>(character) << kKeyBits;
}

// Most keys type the low byte of their code; letters are lower case without Shift. That makes Power type 153.
constexpr Row types(LinuxInputReader::Key key) {
  const int character = key & 0xff;
  const bool letter = key >= KeyInput::kA && key <= KeyInput::kZ;
  return types(key, letter ? character + 'a' - 'A' : character);
}

constexpr Row silent(LinuxInputReader::Key key) { return types(key, 0); }

Row keyboardRow(int code) {
  // clang-format off
  switch (code) {
    case KEY_ESC:        return types(KeyInput::kEscape);
    case KEY_F1:         return silent(KeyInput::kF1);
    case KEY_F2:         return silent(KeyInput::kF2);
    case KEY_F3:         return silent(KeyInput::kF3);
    case KEY_F4:         return silent(KeyInput::kF4);
    case KEY_F5:         return silent(KeyInput::kF5);
    case KEY_F6:         return silent(KeyInput::kF6);
    case KEY_F7:         return silent(KeyInput::kF7);
    case KEY_F8:         return silent(KeyInput::kF8);
    case KEY_F9:         return silent(KeyInput::kF9);
    case KEY_F10:        return silent(KeyInput::kF10);
    case KEY_F11:        return silent(KeyInput::kF11);
    case KEY_F12:        return silent(KeyInput::kF12);

    case KEY_GRAVE:      return types(KeyInput::kGrave, '`');
    case KEY_1:          return types(KeyInput::k1, '1');
    case KEY_2:          return types(KeyInput::k2, '2');
    case KEY_3:          return types(KeyInput::k3, '3');
    case KEY_4:          return types(KeyInput::k4, '4');
    case KEY_5:          return types(KeyInput::k5, '5');
    case KEY_6:          return types(KeyInput::k6, '6');
    case KEY_7:          return types(KeyInput::k7, '7');
    case KEY_8:          return types(KeyInput::k8, '8');
    case KEY_9:          return types(KeyInput::k9, '9');
    case KEY_0:          return types(KeyInput::k0, '0');
    case KEY_MINUS:      return types(KeyInput::kMinus, '-');
    case KEY_EQUAL:      return types(KeyInput::kEquals, '=');
    case KEY_BACKSPACE:  return types(KeyInput::kBackspace);

    case KEY_TAB:        return types(KeyInput::kTab);
    case KEY_Q:          return types(KeyInput::kQ);
    case KEY_W:          return types(KeyInput::kW);
    case KEY_E:          return types(KeyInput::kE);
    case KEY_R:          return types(KeyInput::kR);
    case KEY_T:          return types(KeyInput::kT);
    case KEY_Y:          return types(KeyInput::kY);
    case KEY_U:          return types(KeyInput::kU);
    case KEY_I:          return types(KeyInput::kI);
    case KEY_O:          return types(KeyInput::kO);
    case KEY_P:          return types(KeyInput::kP);
    case KEY_LEFTBRACE:  return types(KeyInput::kLeftBracket, '[');
    case KEY_RIGHTBRACE: return types(KeyInput::kRightBracket, ']');
    case KEY_BACKSLASH:  return types(KeyInput::kBackslash, '\\');

    case KEY_A:          return types(KeyInput::kA);
    case KEY_S:          return types(KeyInput::kS);
    case KEY_D:          return types(KeyInput::kD);
    case KEY_F:          return types(KeyInput::kF);
    case KEY_G:          return types(KeyInput::kG);
    case KEY_H:          return types(KeyInput::kH);
    case KEY_J:          return types(KeyInput::kJ);
    case KEY_K:          return types(KeyInput::kK);
    case KEY_L:          return types(KeyInput::kL);
    case KEY_SEMICOLON:  return types(KeyInput::kSemicolon, ';');
    case KEY_APOSTROPHE: return types(KeyInput::kApostrophe, '\'');
    case KEY_ENTER:      return types(KeyInput::kEnter);
    case KEY_LINEFEED:   return types(KeyInput::kEnter);

    case KEY_LEFTSHIFT:  return silent(KeyInput::kShift);
    case KEY_Z:          return types(KeyInput::kZ);
    case KEY_X:          return types(KeyInput::kX);
    case KEY_C:          return types(KeyInput::kC);
    case KEY_V:          return types(KeyInput::kV);
    case KEY_B:          return types(KeyInput::kB);
    case KEY_N:          return types(KeyInput::kN);
    case KEY_M:          return types(KeyInput::kM);
    case KEY_COMMA:      return types(KeyInput::kComma, ',');
    case KEY_DOT:        return types(KeyInput::kFullStop, '.');
    case KEY_SLASH:      return types(KeyInput::kSlash, '/');
    case KEY_RIGHTSHIFT: return silent(KeyInput::kShift);

    case KEY_LEFTCTRL:   return silent(KeyInput::kControl);
    case KEY_LEFTALT:    return silent(KeyInput::kAlt);
    case KEY_SPACE:      return types(KeyInput::kSpace);
    case KEY_RIGHTALT:   return silent(KeyInput::kAlt);
    case KEY_RIGHTCTRL:  return silent(KeyInput::kControl);

    case KEY_PAUSE:      return silent(KeyInput::kPause);
    case KEY_INSERT:     return silent(KeyInput::kInsert);
    case KEY_DELETE:     return types(KeyInput::kDelete, 127);
    case KEY_HOME:       return silent(KeyInput::kHome);
    case KEY_END:        return silent(KeyInput::kEnd);
    case KEY_PAGEUP:     return silent(KeyInput::kPageUp);
    case KEY_PAGEDOWN:   return silent(KeyInput::kPageDown);
    case KEY_UP:         return silent(KeyInput::kUp);
    case KEY_LEFT:       return silent(KeyInput::kLeft);
    case KEY_DOWN:       return silent(KeyInput::kDown);
    case KEY_RIGHT:      return silent(KeyInput::kRight);

    case KEY_NUMLOCK:    return silent(KeyInput::kNumLock);
    case KEY_KPSLASH:    return types(KeyInput::kKeypadDivide, '/');
    case KEY_KPASTERISK: return types(KeyInput::kKeypadMultiply, '*');
    case KEY_KPMINUS:    return types(KeyInput::kKeypadSubtract, '-');
    case KEY_KP7:        return types(KeyInput::kKeypad7, '7');
    case KEY_KP8:        return types(KeyInput::kKeypad8, '8');
    case KEY_KP9:        return types(KeyInput::kKeypad9, '9');
    case KEY_KPPLUS:     return types(KeyInput::kKeypadAdd, '+');
    case KEY_KP4:        return types(KeyInput::kKeypad4, '4');
    case KEY_KP5:        return types(KeyInput::kKeypad5, '5');
    case KEY_KP6:        return types(KeyInput::kKeypad6, '6');
    case KEY_KP1:        return types(KeyInput::kKeypad1, '1');
    case KEY_KP2:        return types(KeyInput::kKeypad2, '2');
    case KEY_KP3:        return types(KeyInput::kKeypad3, '3');
    case KEY_KP0:        return types(KeyInput::kKeypad0, '0');
    case KEY_KPENTER:    return types(KeyInput::kEnter);
    case KEY_KPCOMMA:    return types(KeyInput::kKeypadDecimal, ',');  // the decimal key: KEY_KPDOT has no code

    case KEY_MUTE:       return silent(KeyInput::kMute);
    case KEY_VOLUMEDOWN: return silent(KeyInput::kVolumeDown);
    case KEY_VOLUMEUP:   return silent(KeyInput::kVolumeUp);

    default:             return 0;
  }
  // clang-format on
}

Row mediaRow(int code) {
  // clang-format off
  switch (code) {
    case KEY_POWER:       return types(KeyInput::kPower);
    case KEY_STOP:        return silent(KeyInput::kStop);
    case KEY_MENU:        return silent(KeyInput::kMenu);
    case KEY_BACK:        return silent(KeyInput::kPreviousTrack);  // a remote's BACK is the Exit key's code instead;
    case KEY_FORWARD:     return silent(KeyInput::kNextTrack);      // the application tells the two apart, keep them so
    case KEY_RECORD:      return silent(KeyInput::kRecord);
    case KEY_REWIND:      return silent(KeyInput::kRewind);
    case KEY_EXIT:        return silent(KeyInput::kBack);
    case KEY_PLAY:        return silent(KeyInput::kPlay);
    case KEY_FASTFORWARD: return silent(KeyInput::kFastForward);

    default:              return 0;
  }
  // clang-format on
}

Row remoteRow(int code) {
  // clang-format off
  switch (code) {
    case KEY_OK:     return types(KeyInput::kEnter);
    case KEY_SELECT: return types(KeyInput::kEnter);
    case KEY_CLEAR:  return types(KeyInput::kBackspace);

    default:         return 0;
  }
  // clang-format on
}

Row colourRow(int code) {
  // clang-format off
  switch (code) {
    case KEY_RED:         return silent(KeyInput::kRed);
    case KEY_GREEN:       return silent(KeyInput::kGreen);
    case KEY_YELLOW:      return silent(KeyInput::kYellow);
    case KEY_BLUE:        return silent(KeyInput::kBlue);
    case KEY_CHANNELUP:   return silent(KeyInput::kChannelUp);
    case KEY_CHANNELDOWN: return silent(KeyInput::kChannelDown);

    default:              return 0;
  }
  // clang-format on
}

Row numericRow(int code) {
  // clang-format off
  switch (code) {
    case KEY_NUMERIC_1: return types(KeyInput::k1, '1');
    case KEY_NUMERIC_2: return types(KeyInput::k2, '2');
    case KEY_NUMERIC_3: return types(KeyInput::k3, '3');
    case KEY_NUMERIC_4: return types(KeyInput::k4, '4');
    case KEY_NUMERIC_5: return types(KeyInput::k5, '5');
    case KEY_NUMERIC_6: return types(KeyInput::k6, '6');
    case KEY_NUMERIC_7: return types(KeyInput::k7, '7');
    case KEY_NUMERIC_8: return types(KeyInput::k8, '8');
    case KEY_NUMERIC_9: return types(KeyInput::k9, '9');
    case KEY_NUMERIC_0: return types(KeyInput::k0, '0');

    default:            return 0;
  }
  // clang-format on
}

// What Shift makes of a digit or a sign on a US keyboard. 0: the character is another.
char shiftedSign(char ch) {
  // clang-format off
  switch (ch) {
    case '`':  return '~';
    case '1':  return '!';
    case '2':  return '@';
    case '3':  return '#';
    case '4':  return '$';
    case '5':  return '%';
    case '6':  return '^';
    case '7':  return '&';
    case '8':  return '*';
    case '9':  return '(';
    case '0':  return ')';
    case '-':  return '_';
    case '=':  return '+';
    case '[':  return '{';
    case ']':  return '}';
    case '\\': return '|';
    case ';':  return ':';
    case '\'': return '"';
    case ',':  return '<';
    case '.':  return '>';
    case '/':  return '?';
    default:   return 0;
  }
  // clang-format on
}

char shifted(char ch) {
  if (ch >= 'a' && ch <= 'z') return static_cast<char>(ch - 'a' + 'A');
  const char sign = shiftedSign(ch);
  return sign != 0 ? sign : ch;
}

bool isKeypad(LinuxInputReader::Key key) { return key >= KeyInput::kKeypad0 && key <= KeyInput::kKeypadDivide; }

}  // namespace

void LinuxInputReader::translateKey(int code, Modifier modifiers, bool numLock, Key& key, char& ch) {
  Row row = keyboardRow(code);
  if (row == 0) row = mediaRow(code);
  if (row == 0) row = remoteRow(code);
  if (row == 0) row = colourRow(code);
  if (row == 0) row = numericRow(code);

  key = static_cast<Key>(row & ((1U << kKeyBits) - 1));
  ch = static_cast<char>(row >> kKeyBits);
  if (isKeypad(key)) {
    // Without Num Lock its digits type nothing; they do not turn into arrows. Shift does not matter to it.
    if (key <= KeyInput::kKeypad9 && !numLock) ch = 0;
  } else if ((modifiers & KeyInput::kShiftModifier) != 0) {
    ch = shifted(ch);
  }
}

}  // namespace quarlo::components::input
