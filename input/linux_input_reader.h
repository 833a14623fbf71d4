// LinuxInputReader: mouse, keyboard and infrared remote on Linux, as one stream of events.
//
//   evdev nodes (kernel) ─┐
//                         ├─ LinuxInputReader ─ one InputEvent per readInput() ─ the application's loop
//   LIRC socket (lircd) ──┘
//
// Life cycle. Construct a reader (this reads the two environment variables below), call init() once with the paths that
// you know and the pointer's bounds, then take events, with an InputLoop or by readInput(), then destroy the reader.
// Copying is deleted. The five members that an application calls are the constructor, init(), readInput(), the
// destructor and, for diagnosis, listLinuxInputReader(). Everything else is public for InputLoop, for the application's
// diagnostics and for tests: read it, but do not change it. (There are three exceptions. docs/behaviour.md has that for
// wheels, and that for what a new reader takes over. The third is InputSources, input/input_sources.h, which replaces
// descriptors that have gone, and forgets the key that was held on a remote that has gone.)
//
// The loop is input/input_loop.h. It sleeps until there is something, and most of the surprises below are not there.
// An application that cannot wait for descriptors does without: wait once, for a short time, and then take all that is
// there.
//
//   for (int timeoutMs = 10;; timeoutMs = 0) {
//     event.kind = LinuxInputReader::InputEvent::kNoEvent;
//     if (!reader.readInput(event, timeoutMs)) break;
//     if (event.kind != LinuxInputReader::InputEvent::kNoEvent) handle(event);
//   }
//   draw();
//
// What one readInput() call does. If the call before held an event over, it delivers that, without waiting or reading.
// Otherwise it waits, then drains the keyboard, then the mouse, then reads the remote, and stops at the first event.
// All pointer motion that one drain finds becomes one move event; a key or button that follows motion waits for the
// next call, so that it cannot overtake the motion. A drain reads at most 20 records that are not keys or buttons.
//
// True does not mean that an event was written. A button's auto-repeat and the side buttons (BTN_SIDE to code 287)
// write nothing although readInput() returns true (after motion, they deliver the move event twice). To tell, preset
// event.kind to kNoEvent, as above. A wheel is worse: a step without motion delivers again the event that was held over
// last. That can be a move, or even the press of a button that is up by now; if there was none, it is an event of all
// zeroes. docs/behaviour.md says what to do.
//
// Timeouts. readInput() waits with select() on a set of descriptors that it builds before the first wait and then hands
// to select() again as select() left it: after a wait that timed out the set is empty, after one that found something
// it holds just those sources. It is rebuilt only after select() failed, for example because a signal arrived. So a
// later wait may be a plain sleep. The sources are polled after each wait anyway, so input is not lost but late, by at
// most the timeout. What overflows the kernel's own queue is lost, though, and so are all but the first of the LIRC
// lines that one read finds. Use a short timeout, and never -1 (no limit) with more than one source, with a remote, or
// once a wait has timed out: it would sleep until a signal. The longest timeout is 2147483 ms; with -2 to -2147483
// select() fails and the sources are polled at once; beyond both, the number of microseconds wraps.
//
// The remote's timing. LIRC repeats a line for as long as a button is held. The first line is a key-down. Repeats that
// come less than LIRC_RELEASE_TIMEOUT ms (default 300) after it are skipped; when a readInput() call then finds no line
// after that time, the faster repeat mode starts, in which repeats at least LIRC_REPEAT_TIMEOUT ms (default 100) apart
// are key-downs. A call that finds no line forgets the key once the sum of both timeouts has passed since its last
// key-down, or twice the repeat timeout if that one came in repeat mode. There are no key-up events for the remote.
// While a key is held, a wait ends when the release timeout has passed since its last key-down. From then on, until the
// key is forgotten, no call waits at all.
//
// Threads and signals. One thread at a time; there are no locks. All readers of a process share one click history. A
// signal that interrupts the wait makes readInput() poll the sources and return. No function is safe in a signal
// handler.
//
// What is not handled: keyboard layouts other than US, Caps Lock, key combinations that type (Control and Alt never
// change the character), absolute axes (a touchscreen's position), wheels, hot-plug. Num Lock starts as off, whatever
// the keyboard's light says. If a device is read through both evdev and LIRC, each press arrives twice.
//
// When a device is unplugged, its descriptor stays open and each readInput() call logs one ERROR line for it; the other
// sources go on. When the LIRC daemon goes away, the remote falls silent. As long as select() watches a source that is
// gone, it reports it as readable at once, so readInput() no longer waits. To open the sources again, use InputSources,
// or make a new reader.
//
// Failures do not stop the reader; those that an integrator can do something about are logged through
// logging/logging.h. Messages contain what devices and the daemon sent, so a back end must escape control characters
// before they reach a terminal. Nothing is allocated, and no exception is thrown.
#pragma once

#include <linux/input.h>
#include <sys/select.h>
#include <sys/time.h>

#include <cstdint>

#include "msg/key_input.h"

namespace quarlo::components::input {

class LinuxInputReader {
 public:
  // A key code, and the modifiers held (msg/key_input.h).
  using Key = msg::KeyInput::Key;
  using Modifier = msg::KeyInput::Modifier;

  // A plain value. Look only at the fields that belong to its kind: the others have whatever was there before, in the
  // caller's event or in the reader's.
  struct InputEvent {
    // kind
    static constexpr std::uint8_t kKeyEvent = 0;    // keyData is valid
    static constexpr std::uint8_t kMouseEvent = 1;  // mouseData is valid
    static constexpr std::uint8_t kNoEvent = 255;   // never written: for callers to preset

    // A key was pressed or released.
    struct KeyData {
      static constexpr std::int32_t kDown = 0;  // pressed, or repeated while held
      static constexpr std::int32_t kUp = 1;    // released; never from the remote

      std::int32_t action;  // kDown or kUp
      Key key;              // 0 for a key that has no code here
      char ch;              // the character typed, 0 for none: ASCII, but 153 for Power and any byte from the remote
      Modifier modifiers;   // held on the keyboard, after this key; always 0 from the remote
    };

    // The pointer moved, or a button was pressed or released.
    struct MouseData {
      // action
      static constexpr std::int32_t kMove = 0;
      static constexpr std::int32_t kButtonDown = 1;
      static constexpr std::int32_t kButtonUp = 2;

      // button
      static constexpr std::int32_t kNoButton = 0;
      static constexpr std::int32_t kLeft = 1;
      static constexpr std::int32_t kRight = 2;
      static constexpr std::int32_t kMiddle = 3;

      std::int32_t action;  // kMove, kButtonDown or kButtonUp
      std::int32_t button;  // the one pressed or released; in a move, the one held
      std::uint16_t x;      // pixels, 0 to the width given to init(), low 16 bits
      std::uint16_t y;      // pixels, 0 to the height given to init(), low 16 bits
      std::uint8_t clicks;  // presses of this button less than 400 ms apart: 1 single, 2 double, ...; 0 in a move
    };

    std::uint8_t kind;   // kKeyEvent or kMouseEvent
    std::uint8_t flags;  // always 0
    union {
      KeyData keyData;
      MouseData mouseData;
    };
  };

  // Opens nothing. Reads LIRC_REPEAT_TIMEOUT and LIRC_RELEASE_TIMEOUT (ms) from the environment; a value that is
  // missing, does not start with a number, or is 0 or negative gives the default.
  LinuxInputReader();

  // Closes the three descriptors.
  ~LinuxInputReader();

  LinuxInputReader(const LinuxInputReader&) = delete;
  LinuxInputReader& operator=(const LinuxInputReader&) = delete;

  // Opens the three sources and returns whether at least one is open; the log says which are not. Each path may be
  // null: the devices are then searched for among /dev/input/event10 to event0 (the highest number that fits is taken),
  // the LIRC socket in its four usual places. A path that is given is opened, whatever it leads to, and nothing else is
  // tried. `width` and `height` are the largest pointer coordinates, inclusive: 1919 and 1079 for a screen of
  // 1920x1080. Call it once: a second call opens new descriptors and forgets the earlier ones.
  // REQUIRES: lircSocket is null or has at most 107 characters (the process is aborted otherwise).
  bool init(const char* mouseDevice, const char* keyboardDevice, const char* lircSocket, std::uint32_t width,
            std::uint32_t height);

  // Waits at most `timeoutMs` ms (-1: no limit) for input, and fills `event` with at most one event. Returns false when
  // there is none, at once when no source is open. See "True does not mean" and "Timeouts" above.
  bool readInput(InputEvent& event, int timeoutMs);

  // Reports /dev/input/event0 to event9: names and kinds to the log (INFO), supported event types to standard output.
  // Each node is grabbed for a moment; one that another process has grabbed is left out.
  void listLinuxInputReader() const;

  // Opens the evdev node `path` for reading without blocking; if that is null, searches for a mouse or a keyboard.
  // Returns the descriptor, which the caller closes, or -1.
  int openDevice(const char* path, bool mouse);

  // Connects to the LIRC daemon without blocking. Returns the descriptor, which the caller closes, or -1.
  // REQUIRES: path has at most 107 characters (the process is aborted otherwise).
  int openLircSocket(const char* path);

  // Whether the evdev node `fd` has both REL_X and REL_Y, or both ABS_X and ABS_Y. False also when it cannot tell.
  bool hasRelEvent(int fd) const;
  bool hasAbsEvent(int fd) const;

  // Whether the evdev node `fd` has a pointer's keys (BTN_LEFT or BTN_TOUCH) or, for `pointer` false, all four arrow
  // keys. False also when it cannot tell.
  bool hasKeyEvent(int fd, bool pointer) const;

  // Rebuilds readSet and maxFd from the open descriptors. Returns whether there is one.
  bool initFdSets();

  // Waits for input as readInput() does. Returns whether select() reported a source as readable.
  bool fileSelect(int timeoutMs);

  // Drains the evdev node `fd` up to the next event, and fills `event`. Returns false when there was none.
  bool getInputEvent(int fd, InputEvent& event);

  // Turns one record (linux/input.h) into an event; a touch record's code is rewritten to BTN_LEFT. Returns false, and
  // writes nothing, for a button's auto-repeat. True does not mean that `out` was written: see above.
  bool translateEvent(input_event* ev, InputEvent& out);
  bool handleKeyEvent(input_event* ev, InputEvent& out);
  bool handleButtonEvent(const input_event& ev, InputEvent& out);
  bool handleRelEvent(input_event* ev, InputEvent& out);

  // The modifier of a key code (KEY_* of linux/input-event-codes.h), or 0.
  static Modifier getModifier(int code);

  // The application's key code and the character typed for a key code (KEY_* of linux/input-event-codes.h, any value).
  // Both are always written; 0 stands for none.
  static void translateKey(int code, Modifier modifiers, bool numLock, Key& key, char& ch);

  // Reads the LIRC socket `fd` once and fills `event` with a key-down. Returns false when there was none to report.
  bool getLircEvent(int fd, InputEvent& event);

  bool pointerMoved = false;        // the current drain has seen a step in x or y
  std::int32_t pointerX = 0;        // pixels, 0 to maxX (to a negative maxX: maxX itself)
  std::int32_t pointerY = 0;        // pixels, 0 to maxY
  int mouseFd = -1;                 // -1: not open, as for the two others
  std::int32_t maxX = 0;            // pixels, from init()
  std::int32_t maxY = 0;            // pixels, from init()
  std::int32_t pressedButton = 0;   // MouseData::kNoButton to kMiddle
  int keyboardFd = -1;              // -1: not open
  int lircFd = -1;                  // -1: not open
  Key lircKey = 0;                  // held on the remote, 0: none
  std::uint16_t lircChar = 0;       // the held key's character
  timeval lircKeyTime = {};         // when the last remote key was accepted
  bool lircRepeatMode = false;      // repeats come at the faster rate
  std::int32_t lircTimeout = 0;     // ms after lircKeyTime in which a repeat is too early
  fd_set readSet = {};              // as select() left it; valid while maxFd is not -1
  int maxFd = -1;                   // highest descriptor to wait on; -1: readSet must be rebuilt
  Modifier modifiers = 0;           // held on the keyboard
  bool numLock = false;             // as counted from the key's presses
  InputEvent pendingEvent;          // the holding slot: motion, or a key that must not overtake it
  bool hasPendingEvent = false;     // the slot holds an event that is still to be delivered
  std::int32_t lircRepeatTimeout;   // ms, LIRC_REPEAT_TIMEOUT or 100
  std::int32_t lircReleaseTimeout;  // ms, LIRC_RELEASE_TIMEOUT or 300
};

}  // namespace quarlo::components::input
