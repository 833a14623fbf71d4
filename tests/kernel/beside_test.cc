// What InputSources, libevdev and libinput give when records are lost and devices go and come, on the same devices at
// the same time. docs/behaviour.md has the outcome as a table.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libevdev/libevdev.h>
#include <libinput.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "tests/scenario/uinput.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

using components::input::InputLoop;
using components::input::InputSources;
using msg::KeyInput;

const std::string kGone = "gone";

// What became of a key or button.
std::string change(unsigned code, bool isDown, bool isStillHeld = false) {
  const auto name = [code]() -> std::string {
    switch (code) {
      case KEY_LEFTSHIFT: return "Shift";
      case KEY_A: return "A";
      case BTN_LEFT: return "button";
      default: return "code " + std::to_string(code);
    }
  };
  return name() + (isDown ? " down" : " up") + (isStillHeld ? ", still held" : "");
}

// ---- The three ----------------------------------------------------------------------------------

// One that reads the keyboard, a second one, and the mouse.
class Contestant {
 public:
  virtual ~Contestant() = default;

  // What it gives of what has come.
  virtual Lines take() = 0;
};

struct Paths {
  std::string keyboard;
  std::string second;
  std::string mouse;
};

class Ours final : public Contestant {
 public:
  explicit Ours(Paths paths) : paths_(std::move(paths)) {
    reader_.init(paths_.mouse.c_str(), paths_.keyboard.c_str(), "/nowhere", 1919, 1079);
    EXPECT_TRUE(sources_.join(further_));
    EXPECT_TRUE(sources_.open(further_.source(), paths_.second.c_str()));
    sources_.keepOpen(InputLoop::kKeyboard, paths_.keyboard.c_str(), 1);
  }

  Lines take() override {
    constexpr int kRounds = 4;  // to find out, to ask or close, to open, to read
    constexpr int kRoundMs = 2;
    Lines lines;
    for (int i = 0; i < kRounds; ++i) {
      if (loop_.wait(sources_.attend(kRoundMs)).gone != 0) lines.push_back(kGone);
      for (InputEvent event; loop_.next(event);) lines.push_back(asChange(event));
    }
    return lines;
  }

 private:
  std::string asChange(const InputEvent& event) const {
    const input_event& record = loop_.cause().record;
    const bool isShift = record.code == KEY_LEFTSHIFT && event.kind == InputEvent::kKeyEvent;
    const bool isDown = record.value != 0;
    return change(record.code, isDown, isShift && !isDown && (event.keyData.modifiers & KeyInput::kShiftModifier) != 0);
  }

  Paths paths_;
  LinuxInputReader reader_;
  InputSources::FurtherNode further_;
  InputLoop loop_{reader_};
  InputSources sources_{loop_};
};

// libevdev, with an application that asks for the difference after lost records, as its documentation says.
class Libevdev final : public Contestant {
 public:
  explicit Libevdev(const Paths& paths) : nodes_{open(paths.keyboard), open(paths.second), open(paths.mouse)} {}
  ~Libevdev() override {
    for (const Node& node : nodes_) {
      close(libevdev_get_fd(node.node));
      libevdev_free(node.node);
    }
  }
  Libevdev(const Libevdev&) = delete;
  Libevdev& operator=(const Libevdev&) = delete;

  Lines take() override {
    Lines lines;
    for (Node& node : nodes_) takeFrom(node, lines);
    return lines;
  }

 private:
  struct Node {
    libevdev* node;
    bool isGone;
  };

  static Node open(const std::string& path) {
    libevdev* node = nullptr;
    EXPECT_EQ(libevdev_new_from_fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK), &node), 0) << path;
    return {node, false};
  }

  static void takeFrom(Node& from, Lines& lines) {
    unsigned flag = LIBEVDEV_READ_FLAG_NORMAL;
    while (!from.isGone) {
      input_event record;
      const int result = libevdev_next_event(from.node, flag, &record);
      if (result == -EAGAIN && flag == LIBEVDEV_READ_FLAG_SYNC) {
        flag = LIBEVDEV_READ_FLAG_NORMAL;
      } else if (result == -ENODEV) {
        lines.push_back(kGone);
        from.isGone = true;  // each call says so
      } else if (result < 0) {
        return;
      } else if (result == LIBEVDEV_READ_STATUS_SYNC && flag == LIBEVDEV_READ_FLAG_NORMAL) {
        flag = LIBEVDEV_READ_FLAG_SYNC;
      } else if (record.type == EV_KEY) {
        lines.push_back(change(record.code, record.value != 0));
      }
    }
  }

  Node nodes_[3];
};

// libinput, with devices that are named by their paths: there is no udev that could tell of them.
class Libinput final : public Contestant {
 public:
  explicit Libinput(const Paths& paths) : context_(libinput_path_create_context(&kInterface, nullptr)) {
    for (const std::string& path : {paths.keyboard, paths.second, paths.mouse}) {
      EXPECT_NE(libinput_path_add_device(context_, path.c_str()), nullptr) << path;
    }
    EXPECT_EQ(take(), Lines());
  }
  ~Libinput() override { libinput_unref(context_); }
  Libinput(const Libinput&) = delete;
  Libinput& operator=(const Libinput&) = delete;

  Lines take() override {
    EXPECT_EQ(libinput_dispatch(context_), 0);
    Lines lines;
    while (libinput_event* event = libinput_get_event(context_)) {
      const std::string line = asChange(event);
      if (!line.empty()) lines.push_back(line);
      libinput_event_destroy(event);
    }
    return lines;
  }

 private:
  static std::string asChange(libinput_event* event) {
    switch (libinput_event_get_type(event)) {
      case LIBINPUT_EVENT_DEVICE_REMOVED: return kGone;
      case LIBINPUT_EVENT_KEYBOARD_KEY: {
        libinput_event_keyboard* key = libinput_event_get_keyboard_event(event);
        const bool isDown = libinput_event_keyboard_get_key_state(key) == LIBINPUT_KEY_STATE_PRESSED;
        const bool isStillHeld = !isDown && libinput_event_keyboard_get_seat_key_count(key) != 0;
        return change(libinput_event_keyboard_get_key(key), isDown, isStillHeld);
      }
      case LIBINPUT_EVENT_POINTER_BUTTON: {
        libinput_event_pointer* button = libinput_event_get_pointer_event(event);
        return change(libinput_event_pointer_get_button(button),
                      libinput_event_pointer_get_button_state(button) == LIBINPUT_BUTTON_STATE_PRESSED);
      }
      default: return "";
    }
  }

  static int openNode(const char* path, int flags, void* /*user*/) {
    const int fd = open(path, flags);
    return fd == -1 ? -errno : fd;
  }
  static void closeNode(int fd, void* /*user*/) { close(fd); }
  static constexpr libinput_interface kInterface = {openNode, closeNode};

  libinput* context_;
};

// ---- What happens -------------------------------------------------------------------------------

// A device, and what libinput asks udev's database about it.
class DescribedDevice {
 public:
  DescribedDevice(const Description& description, const std::string& property) : device_(description) {
    struct stat status = {};
    EXPECT_EQ(stat(device_.path().c_str(), &status), 0);
    entry_ = "/run/udev/data/c" + std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
    std::filesystem::create_directories("/run/udev/data");
    std::ofstream(entry_) << "I:1\nE:ID_INPUT=1\nE:" << property << "=1\nV:1\n";
  }
  ~DescribedDevice() { std::filesystem::remove(entry_); }
  DescribedDevice(const DescribedDevice&) = delete;
  DescribedDevice& operator=(const DescribedDevice&) = delete;

  UinputDevice* operator->() { return &device_; }

 private:
  UinputDevice device_;
  std::string entry_;
};

// Without auto-repeat: nothing comes by itself while a key is held.
Description plainKeyboard() {
  Description device = keyboard();
  device.codes.erase(EV_REP);
  return device;
}

constexpr char kIsKeyboard[] = "ID_INPUT_KEYBOARD";

// Two keyboards and a mouse, which all three read.
class Desk {
 public:
  // What each has given since the last time, as the cells of a table.
  std::string cells() {
    std::string row;
    for (const auto& contestant : contestants_) {
      std::string cell;
      for (const std::string& line : contestant->take()) cell += (cell.empty() ? "" : "; ") + line;
      row += " " + (cell.empty() ? "nothing" : cell) + " |";
    }
    return row;
  }

  // Fills what is left of the keyboard's queue, up to the record that makes the kernel drop all of them.
  void overflow(int recordsBefore) {
    constexpr int kQueue = 64;
    for (int i = recordsBefore; i < kQueue; i += 2) {
      keyboard->report(EV_MSC, MSC_SCAN, KEY_A);
      keyboard->report(EV_SYN, SYN_REPORT, 0);
    }
  }

  DescribedDevice keyboard{plainKeyboard(), kIsKeyboard};
  DescribedDevice second{plainKeyboard(), kIsKeyboard};
  DescribedDevice mouse{test::mouse(), "ID_INPUT_MOUSE"};

 private:
  std::unique_ptr<Contestant> contestants_[3] = {std::make_unique<Ours>(paths()), std::make_unique<Libevdev>(paths()),
                                                 std::make_unique<Libinput>(paths())};

  Paths paths() { return {keyboard->path(), second->path(), mouse->path()}; }
};

constexpr int kRecordsOfAChange = 2;  // with the SYN_REPORT

std::string shiftReleasedInWhatWasLost() {
  Desk desk;
  desk.keyboard->press(KEY_LEFTSHIFT);
  desk.cells();
  desk.keyboard->release(KEY_LEFTSHIFT);
  desk.overflow(kRecordsOfAChange);
  return desk.cells();
}

std::string keyPressedInWhatWasLost() {
  Desk desk;
  desk.keyboard->press(KEY_A);
  desk.overflow(kRecordsOfAChange);
  return desk.cells();
}

std::string tapInWhatWasLost() {
  Desk desk;
  desk.keyboard->tap(KEY_A);
  desk.overflow(2 * kRecordsOfAChange);
  return desk.cells();
}

std::string tapBehindWhatWasLost() {
  Desk desk;
  desk.overflow(0);
  desk.keyboard->tap(KEY_A);
  return desk.cells();
}

std::string unpluggedWithAKeyDown() {
  Desk desk;
  desk.keyboard->press(KEY_A);
  desk.cells();
  desk.keyboard->unplug();
  return desk.cells();
}

std::string unpluggedWithAButtonDown() {
  Desk desk;
  desk.mouse->press(BTN_LEFT);
  desk.cells();
  desk.mouse->unplug();
  return desk.cells();
}

std::string pluggedInAgain() {
  Desk desk;
  const std::string path = desk.keyboard->path();
  desk.keyboard->unplug();
  desk.cells();
  DescribedDevice again(plainKeyboard(), kIsKeyboard);
  EXPECT_EQ(again->path(), path);
  desk.cells();
  again->tap(KEY_A);
  return desk.cells();
}

std::string shiftReleasedOnOneOfTwo() {
  Desk desk;
  desk.keyboard->press(KEY_LEFTSHIFT);
  desk.second->press(KEY_LEFTSHIFT);
  desk.cells();
  desk.keyboard->release(KEY_LEFTSHIFT);
  return desk.cells();
}

std::string oneOfTwoUnpluggedWithShiftDown() {
  Desk desk;
  desk.keyboard->press(KEY_LEFTSHIFT);
  desk.second->press(KEY_LEFTSHIFT);
  desk.cells();
  desk.second->unplug();
  return desk.cells();
}

// The lines of the first table in a section of a document.
std::string tableOf(const std::string& document, const std::string& section) {
  std::ifstream stream(document);
  std::string line;
  while (line != section && std::getline(stream, line)) continue;
  std::string table;
  while (std::getline(stream, line) && (table.empty() || !line.empty())) {
    if (line.rfind('|', 0) == 0) table += line + "\n";
  }
  return table;
}

TEST(BesideTest, EachGivesWhatTheDocumentSays) {
  resetLog();
  const struct {
    const char* happening;
    std::string (*cells)();
  } rows[] = {
      {"Shift is released in what was lost", shiftReleasedInWhatWasLost},
      {"A is pressed in what was lost, and held", keyPressedInWhatWasLost},
      {"A is tapped in what was lost", tapInWhatWasLost},
      {"A is tapped after that, before anyone has read", tapBehindWhatWasLost},
      {"the keyboard is unplugged while A is down", unpluggedWithAKeyDown},
      {"the mouse is unplugged while its button is down", unpluggedWithAButtonDown},
      {"the keyboard comes back, and A is tapped", pluggedInAgain},
      {"of two keyboards on which Shift is down, one releases it", shiftReleasedOnOneOfTwo},
      {"of two keyboards on which Shift is down, one is unplugged", oneOfTwoUnpluggedWithShiftDown},
  };
  std::string table = "| | `InputSources` | libevdev | libinput |\n|---|---|---|---|\n";
  for (const auto& [happening, cells] : rows) table += "| " + std::string(happening) + " |" + cells() + "\n";
  EXPECT_EQ(tableOf("docs/behaviour.md", "## Beside libinput and libevdev"), table);
}

}  // namespace
}  // namespace quarlo::test
