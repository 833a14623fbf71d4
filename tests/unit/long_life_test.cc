// A week in the life of an application, in virtual time: people type, point, click and press the remote's buttons,
// devices and the daemon go and come back, the clock is set. Nothing is lost, nothing stays behind, nothing grows.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <new>
#include <optional>
#include <random>
#include <string>

#include "tests/unit/reader_test.h"

namespace {

// Of new and delete, in the whole process: of the simulated machine, that is, in which all that the reader leaves
// behind would be found. The reader itself knows neither new nor malloc().
std::size_t bytesInUse = 0;

// In front of each block, its size.
constexpr std::size_t kHeaderSize = alignof(std::max_align_t);
static_assert(kHeaderSize >= sizeof(std::size_t));

}  // namespace

void* operator new(std::size_t size) {
  void* block = std::malloc(kHeaderSize + size);
  if (block == nullptr) throw std::bad_alloc();
  *static_cast<std::size_t*>(block) = size;
  bytesInUse += size;
  return static_cast<std::byte*>(block) + kHeaderSize;
}

void operator delete(void* pointer) noexcept {
  if (pointer == nullptr) return;
  void* block = static_cast<std::byte*>(pointer) - kHeaderSize;
  bytesInUse -= *static_cast<std::size_t*>(block);
  std::free(block);
}

void operator delete(void* pointer, std::size_t /*size*/) noexcept { operator delete(pointer); }

namespace quarlo::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::int64_t kRecords = 3'000'000;  // and lines of the remote
constexpr microseconds kWeek = 7 * 24h;

constexpr milliseconds kRound = 10ms;
constexpr milliseconds kIdleRound = 60s;

constexpr int kMaxX = 1919;
constexpr int kMaxY = 1079;

constexpr char kMouse[] = "/dev/input/event0";
constexpr char kKeyboard[] = "/dev/input/event1";
constexpr char kSocket[] = "/run/lircd";

// From KEY_Q to KEY_P.
constexpr char kTopRow[] = "QWERTYUIOP";

// What was sent, by the count of whoever sends, and what arrived.
struct Totals {
  std::int64_t keyDowns = 0;
  std::int64_t keyUps = 0;
  std::array<std::int64_t, 4> buttonDowns = {};
  std::array<std::int64_t, 4> buttonUps = {};
  std::int64_t remoteKeys = 0;
  int x = 0;
  int y = 0;
  // Numbers that depend on each key and its place among the others, and on each button, where it was pressed and where
  // the pointer had moved to before.
  std::uint32_t keyDigest = 0;
  std::uint32_t buttonDigest = 0;

  void addKey(int key, bool down) {
    ++(down ? keyDowns : keyUps);
    add(keyDigest, {key, static_cast<int>(down)});
  }

  void addButton(int button, bool down, int atX, int atY) {
    ++(down ? buttonDowns : buttonUps).at(static_cast<std::size_t>(button));
    add(buttonDigest, {button, static_cast<int>(down), atX, atY, x, y});
  }

 private:
  static void add(std::uint32_t& digest, std::initializer_list<int> numbers) {
    for (const int number : numbers) digest = 31 * digest + static_cast<std::uint32_t>(number);
  }
};

void expectEqual(const Totals& received, const Totals& sent) {
  EXPECT_EQ(received.keyDowns, sent.keyDowns);
  EXPECT_EQ(received.keyUps, sent.keyUps);
  EXPECT_EQ(received.buttonDowns, sent.buttonDowns);
  EXPECT_EQ(received.buttonUps, sent.buttonUps);
  EXPECT_EQ(received.remoteKeys, sent.remoteKeys);
  EXPECT_EQ(received.x, sent.x);
  EXPECT_EQ(received.y, sent.y);
  EXPECT_EQ(received.keyDigest, sent.keyDigest);
  EXPECT_EQ(received.buttonDigest, sent.buttonDigest);
}

class LongLifeTest : public MachineTest {
 protected:
  LongLifeTest() {
    machine.setTracing(false);
    setMinLogLevel(2);
    setVlogLevel(0);
    plugInMouse();
    plugInKeyboard();
    startDaemon();
    openReader();
  }

  // ---- What people do ---------------------------------------------------------------------------

  // Any of it at the same time.
  void useSources() {
    microseconds length{0};
    if (between(0, 2) != 0) length = type();
    if (between(0, 2) != 0) length = std::max(length, point());
    switch (between(0, 3)) {
      case 0: break;
      case 1: length = std::max(length, hold()); break;
      case 2: length = std::max(length, tap()); break;
      // Only taps are sure to be key-downs whatever the clock does.
      default: length = std::max(length, tap()); machine.after(length / between(1, 9), [this] { setClock(); });
    }
    run(length);
  }

  // These schedule what is done, and return how long it takes.
  microseconds type() {
    const int keys = between(20, 200);
    for (int i = 0; i < keys; ++i) {
      const int index = between(0, 9);
      machine.after(40ms * i, [this, index] { sendKey(index, true); });
      machine.after(40ms * i + 25ms, [this, index] { sendKey(index, false); });
    }
    return 40ms * keys;
  }

  // At 1000 Hz, with a click now and then.
  microseconds point() {
    const int reports = between(500, 4000);
    for (int i = 0; i < reports; ++i) {
      machine.after(1ms * i, [this] { sendStep(between(-9, 9), between(-9, 9)); });
    }
    for (int i = between(0, 300); i + 80 < reports; i += between(100, 600)) {
      const int button = between(1, 3);
      machine.after(1ms * i, [this, button] { sendButton(button, true); });
      machine.after(1ms * i + 80ms, [this, button] { sendButton(button, false); });
    }
    return 1ms * reports;
  }

  microseconds tap() {
    const int taps = between(1, 10);
    for (int i = 0; i < taps; ++i) machine.after(500ms * i, [this] { sendLine(0); });
    sent.remoteKeys += taps;
    return 500ms * taps;
  }

  // With lines at such a distance that the first, and each from the third on, is certain to be a key-down.
  microseconds hold() {
    const int lines = between(2, 20);
    for (int i = 0; i < lines; ++i) {
      machine.after(170ms * i, [this, i] { sendLine(static_cast<unsigned>(i)); });
    }
    sent.remoteKeys += lines - 1;
    return 170ms * lines;
  }

  // ---- What happens to a box --------------------------------------------------------------------

  // By weeks, forward and back.
  void setClock() {
    const microseconds offset = 1h * between(-10 * 24, 20 * 24);
    machine.jumpClock(offset - clockOffset);
    clockOffset = offset;
    ++clockChanges;
  }

  void loseMouse() {
    sendButton(1, true);
    run(kRound);
    mouse->unplug();
    expectKeyboardGoesOn();
    expectReadErrors();
    plugInMouse();
    openReader();
  }

  void loseKeyboard() {
    sendKey(0, true);
    run(kRound);
    keyboard->unplug();
    run(kRound);
    expectReadErrors();
    plugInKeyboard();
    openReader();
  }

  void restartDaemon() {
    daemon->stop();
    expectKeyboardGoesOn();
    startDaemon();
    openReader();
  }

  // ---- The application --------------------------------------------------------------------------

  // Opens the sources again, as they are now, and keeps the pointer's place.
  void openReader() {
    reader.reset();
    EXPECT_EQ(machine.openDescriptors(), 0);
    takeLog();
    reader.emplace();
    EXPECT_TRUE(reader->init(kMouse, kKeyboard, kSocket, kMaxX, kMaxY));
    reader->pointerX = sent.x;
    reader->pointerY = sent.y;
    ++readers;
    expectAllSourcesAlive();
    bytesAtFirst = bytesInUse;
  }

  void expectAllSourcesAlive() {
    const std::int64_t before = events;
    sendStep(sent.x < kMaxX ? 1 : -1, 0);
    run(kRound);
    sendKey(0, true);
    run(kRound);
    sendKey(0, false);
    run(kRound);
    sendLine(0);
    ++sent.remoteKeys;
    run(1s);
    EXPECT_EQ(events - before, 4);
  }

  // Nothing is under way: all has arrived, and there is as much as there was when the reader was young.
  void expectNothingLostAndNothingLeft() {
    expectEqual(received, sent);
    EXPECT_EQ(takeLog(), Lines({}));
    EXPECT_FALSE(machine.hasScheduled());
    EXPECT_EQ(machine.openDescriptors(), 3);
    EXPECT_EQ(bytesInUse, bytesAtFirst);
  }

  // The time of the week, whatever the clock says.
  microseconds time() const { return machine.now() - clockOffset - start; }

  void idleUntil(microseconds end) {
    while (time() < end) round(std::min(kIdleRound, std::chrono::ceil<milliseconds>(end - time())));
  }

  int between(int low, int high) {
    return low + static_cast<int>(random() % static_cast<std::uint32_t>(high - low + 1));
  }

  // ---- How things are sent, read and counted ----------------------------------------------------

  void plugInMouse() { mouse = &machine.addNode(kMouse, Device{"Mouse", {}}); }
  void plugInKeyboard() { keyboard = &machine.addNode(kKeyboard, Device{"Keyboard", {}}); }
  void startDaemon() { daemon = &machine.addLircDaemon(kSocket); }

  void sendKey(int index, bool down) {
    keyboard->inject(EV_MSC, MSC_SCAN, KEY_Q + index);
    keyboard->inject(EV_KEY, KEY_Q + index, down ? 1 : 0);
    keyboard->inject(EV_SYN, SYN_REPORT, 0);
    records += 3;
    sent.addKey(kTopRow[index], down);
  }

  void sendStep(int dx, int dy) {
    mouse->inject(EV_REL, REL_X, dx);
    mouse->inject(EV_REL, REL_Y, dy);
    mouse->inject(EV_SYN, SYN_REPORT, 0);
    records += 3;
    sent.x = std::clamp(sent.x + dx, 0, kMaxX);
    sent.y = std::clamp(sent.y + dy, 0, kMaxY);
  }

  void sendButton(int button, bool down) {
    mouse->inject(EV_KEY, BTN_LEFT + button - 1, down ? 1 : 0);
    mouse->inject(EV_SYN, SYN_REPORT, 0);
    records += 2;
    sent.addButton(button, down, sent.x, sent.y);
  }

  void sendLine(unsigned repeat) {
    daemon->send("KEY_VOLUMEUP", repeat);
    ++records;
  }

  void expectKeyboardGoesOn() {
    const std::int64_t before = events;
    sendKey(5, true);
    run(kRound);
    sendKey(5, false);
    run(kRound);
    EXPECT_EQ(events - before, 2);
  }

  // Of a device that has gone, and of nothing else.
  void expectReadErrors() {
    const Lines log = takeLog();
    EXPECT_GT(log.size(), 0U);
    for (const std::string& line : log) EXPECT_EQ(line, "ERROR Reading from input device failed, errno = 19");
  }

  void run(microseconds length) {
    if (between(0, 3) == 0) machine.signalAfter(length / between(1, 10));
    // What comes last is read by the round after the end.
    for (const microseconds end = time() + length + kRound; time() < end;) round(kRound);
  }

  // The loop that is taught, and a rest where the wait is over at once: a source that is gone, or a key that is held on
  // the remote, would make it spin.
  void round(milliseconds wait) {
    const microseconds begin = time();
    InputEvent event;
    event.kind = InputEvent::kNoEvent;
    for (int timeoutMs = static_cast<int>(wait.count()); reader->readInput(event, timeoutMs); timeoutMs = 0) {
      take(event);
      event.kind = InputEvent::kNoEvent;
    }
    if (time() - begin < 1ms) machine.advance(kRound);
  }

  void takeMouse(const InputEvent::MouseData& data) {
    if (data.action == InputEvent::MouseData::kMove) {
      received.x = data.x;
      received.y = data.y;
    } else {
      received.addButton(data.button, data.action == InputEvent::MouseData::kButtonDown, data.x, data.y);
    }
  }

  void take(const InputEvent& event) {
    ++events;
    if (event.kind == InputEvent::kMouseEvent) {
      takeMouse(event.mouseData);
    } else if (event.kind == InputEvent::kKeyEvent && event.keyData.key == msg::KeyInput::kVolumeUp) {
      ++received.remoteKeys;
    } else if (event.kind == InputEvent::kKeyEvent) {
      received.addKey(event.keyData.key, event.keyData.action == InputEvent::KeyData::kDown);
    }
  }

  sim::Node* mouse = nullptr;
  sim::Node* keyboard = nullptr;
  sim::LircDaemon* daemon = nullptr;
  std::optional<LinuxInputReader> reader;

  std::int64_t records = 0;
  std::int64_t events = 0;
  Totals sent;
  Totals received;
  int readers = 0;
  std::size_t bytesAtFirst = 0;  // when the current reader was young

  std::mt19937 random;  // with its default seed: each week is the same
  const microseconds start = machine.now();
  microseconds clockOffset{0};
  int clockChanges = 0;
};

TEST_F(LongLifeTest, AWeekOfMixedUseLosesNothingAndLeavesNothingBehind) {
  while (records < kRecords && !HasFailure()) {
    switch (between(0, 29)) {
      case 0: loseMouse(); break;
      case 1: loseKeyboard(); break;
      case 2: restartDaemon(); break;
      default: useSources();
    }
    expectNothingLostAndNothingLeft();
    // The week is over when all has been sent.
    idleUntil(kWeek / kRecords * records);
  }
  expectAllSourcesAlive();
  expectNothingLostAndNothingLeft();
  EXPECT_GE(time(), kWeek);
  EXPECT_GE(readers, 20);
  EXPECT_GE(clockChanges, 10);
  std::printf("%lld records and lines gave %lld events to %d readers\n", static_cast<long long>(records),
              static_cast<long long>(events), readers);
}

}  // namespace
}  // namespace quarlo::test
